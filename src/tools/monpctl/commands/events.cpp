/*
 * The command "events".
 */
#include "commands/commands.h"
#include "commands/history_window.h"
#include "common/installation.h"
#include "common/text.h"
#include "machine/event_log.h"
#include "machine/observer.h"
#include "policy/service_types.h"

#include <algorithm>
#include <fmt/format.h>

namespace monpctl {

namespace {

std::string event_line(const EventSummary& event, const HistoryOptions& given)
{
    if (given.json || given.full) {
        return event.line;
    }
    const auto time = parse_time(event.time);
    return fmt::format("{} {:8} {:10} {}", time ? time_text(*time, "%F %T") : printable(event.time),
                       printable(event.severity), printable(event.type), printable(event.text));
}

std::vector<std::string> names_of_types(const std::vector<std::string>& types)
{
    std::vector<std::string> names;

    for (const auto& type : types) {
        const auto own = names_of(type);
        names.insert(names.end(), own.begin(), own.end());
    }
    return names;
}

} // namespace

Exit events(const HistoryOptions& given)
{
    std::ranges::for_each(given.types, require_known_or_running);
    const auto names = names_of_types(given.types);
    HistoryWindow window(given);
    EventReader reader("");

    print_history({ .path = events_file(), .follow = given.follow, .may_be_missing = true }, window,
                  [&](const std::string& line) {
                      const auto event = reader.read(line);
                      const bool wanted =
                          event && (names.empty() || std::ranges::find(names, event->type) != names.end());
                      if (wanted && window.contains(parse_time(event->time))) {
                          window.print(event_line(*event, given));
                      }
                  });
    return EXIT_DONE;
}

} // namespace monpctl
