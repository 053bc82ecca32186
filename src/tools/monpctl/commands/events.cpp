/*
 * The command "events".
 */
#include "commands/commands.h"
#include "common/installation.h"
#include "common/text.h"
#include "machine/event_log.h"
#include "machine/follow.h"
#include "policy/settings.h"

#include <iomanip>
#include <iostream>

namespace monpctl {

namespace {

void print(const EventSummary& event)
{
    std::cout << printable(event.time) << ' ' << std::left << std::setw(8) << printable(event.severity) << ' '
              << std::setw(18) << printable(event.name) << ' ' << printable(event.text) << '\n';
}

} // namespace

int events(const EventsOptions& given)
{
    if (!given.type.empty()) {
        require_known(given.type);
    }
    EventReader reader(given.type);

    for_each_line(events_file(), { .follow = given.follow }, [&](const std::string& line) {
        if (const auto event = reader.read(line); event && given.json) {
            std::cout << event->line << '\n';
        } else if (event) {
            print(*event);
        }
    });
    return 0;
}

} // namespace monpctl
