/*
 * The command "status".
 */
#include "commands/commands.h"
#include "commands/console.h"
#include "commands/fields.h"
#include "commands/log_filter.h"
#include "commands/state_look.h"
#include "commands/status_json.h"
#include "common/installation.h"
#include "common/refusal.h"
#include "common/text.h"
#include "machine/follow.h"
#include "machine/observer.h"

#include <algorithm>
#include <deque>
#include <fmt/format.h>
#include <iostream>
#include <thread>
#include <unistd.h>

namespace monpctl {

namespace {

/* Of the log, below the status of one type. */
constexpr size_t SHOWN_LINES = 5;

constexpr auto WATCH_PAUSE = std::chrono::seconds(1);
constexpr const char* CLEAR_SCREEN = "\033[H\033[2J";

Time now()
{
    return std::chrono::system_clock::now();
}

std::string age_of(const Time& time)
{
    return age_text(std::chrono::duration_cast<std::chrono::seconds>(now() - time));
}

/*
 * "2/3"; "2" without a limit.
 */
std::string restarts_text(const TypeStatus& status)
{
    const auto& history = status.history;
    const std::string unknown = history.missing.empty() ? "-" : "?";
    const std::string number = history.restarts ? std::to_string(*history.restarts) : unknown;

    return history.restart_limit.value_or(0) > 0 ? fmt::format("{}/{}", number, *history.restart_limit) : number;
}

std::string end_text(const TypeStatus& status)
{
    const auto& end = status.history.last_end;

    if (!end) {
        return status.history.missing.empty() ? "-" : "?";
    }
    return fmt::format("{}, {} ago", end->words, age_of(end->time));
}

struct Row {
    std::string type;
    std::string state;
    std::string since;
    std::string restarts;
    std::string end;
};

Row row_of(const TypeStatus& status)
{
    return { .type = printable(status.type),
             .state = std::string(word(status.state)),
             .since = status.since ? age_of(*status.since) : "-",
             .restarts = restarts_text(status),
             .end = end_text(status) };
}

/*
 * A row fits 80 characters with usual types. Only the state is coloured.
 */
void print_row(const Row& row, size_t width, std::optional<State> state)
{
    const std::string padded = fmt::format("{:10}", row.state);

    std::cout << fmt::format("{:{}}  {}  {:12}  {:>8}  {}\n", row.type, width,
                             state ? coloured(*state, padded) : padded, row.since, row.restarts, row.end);
}

/*
 * The sentences about a type: the reason of its state, the end of an uncertainty, missing records and warnings.
 */
std::vector<std::string> remarks_of(const TypeStatus& status)
{
    std::vector<std::string> remarks;

    if (!status.reason.empty()) {
        remarks.push_back(fmt::format("{}: {}", word(status.state), status.reason));
    }
    if (status.until) {
        remarks.push_back(fmt::format("decided in {} at the latest",
                                      age_text(std::chrono::ceil<std::chrono::seconds>(*status.until - now()))));
    }
    if (!status.history.missing.empty()) {
        remarks.push_back("warning: records are missing: " + status.history.missing);
    }
    for (const auto& warning : status.warnings) {
        remarks.push_back("warning: " + warning);
    }
    return remarks;
}

void print_table(const std::vector<TypeStatus>& statuses)
{
    const bool colours = shows_colours();
    size_t width = 4;

    for (const auto& status : statuses) {
        width = std::max(width, status.type.size());
    }
    print_row({ "TYPE", "STATE", "SINCE", "RESTARTS", "LAST END" }, width, {});
    for (const auto& status : statuses) {
        print_row(row_of(status), width, colours ? std::optional(status.state) : std::nullopt);
    }
    for (const auto& status : statuses) {
        for (const auto& remark : remarks_of(status)) {
            std::cout << fmt::format("{}: {}.\n", printable(status.type), printable(remark));
        }
    }
}

void print_detail(std::string_view name, const std::string& text)
{
    std::cout << fmt::format("  {:14}{}\n", name, printable(text));
}

void print_process(std::string_view name, const std::optional<Process>& process)
{
    if (process) {
        print_detail(name, fmt::format("process {}, for {}, {}", process->pid, age_of(process->since()),
                                       process->executable.empty() ? "executable not visible" : process->executable));
    }
}

std::string action_detail(const TypeStatus& status)
{
    return fmt::format("{} ({}){}", action_text(status.action.action), status.action.action,
                       status.action.in_doubt ? ", by the policy of today: the monitor may have read another" : "");
}

/*
 * The last lines of the log about a type. A log that cannot be read is among the remarks.
 */
void print_last_lines(const std::string& type)
{
    std::deque<std::string> lines;
    LogFilter filter({ type }, [&](const std::string& line, const auto&, const auto&) {
        lines.push_back(line);
        if (lines.size() > SHOWN_LINES) {
            lines.pop_front();
        }
    });
    Follower follower(log_file());

    for (std::string line; follower.next(line);) {
        filter.take(line);
    }
    if (!lines.empty()) {
        std::cout << "  last lines of its log:\n";
    }
    for (const auto& line : lines) {
        std::cout << "    " << printable(line) << '\n';
    }
}

void print_details(const TypeStatus& status)
{
    const auto& history = status.history;
    const std::string state(word(status.state));

    std::cout << fmt::format(
        "{}: {}{}\n", printable(status.type), shows_colours() ? coloured(status.state, state) : state,
        status.since ? fmt::format(" for {}, since {}", age_of(*status.since), time_text(*status.since, "%F %T")) : "");
    print_process("monitor", status.monitor ? std::optional(status.monitor->process) : std::nullopt);
    print_process(status.adopted ? "adopted" : "service", status.service);
    print_detail("restarts", restarts_text(status));
    if (history.last_end) {
        print_detail("last end", fmt::format("{}, status {}", end_text(status), history.last_end->status));
    }
    if (history.last_failure) {
        print_detail("last failure",
                     fmt::format("{}, {} ago", history.last_failure->reason, age_of(history.last_failure->time)));
    }
    print_detail("when it fails", action_detail(status));
    for (const auto& remark : remarks_of(status)) {
        std::cout << fmt::format("  {}.\n", printable(remark));
    }
    print_last_lines(status.type);
}

void print_statuses(const StatusOptions& given, const std::vector<TypeStatus>& statuses)
{
    if (given.json) {
        print_status_json(statuses);
    } else if (!given.fields.empty()) {
        for (const auto& status : statuses) {
            std::cout << fields_line(status, given.fields) << '\n';
        }
    } else if (given.types.size() == 1 && !given.watch) {
        std::ranges::for_each(statuses, print_details);
    } else if (statuses.empty()) {
        std::cout << "The policy has no entry of a service, and no monitor runs.\n";
    } else {
        print_table(statuses);
    }
}

Exit show(const StatusOptions& given, Observer& observer)
{
    const auto statuses = observer.look(given.types);
    Exit result = statuses.empty() ? EXIT_DOWN : EXIT_DONE;

    for (const auto& status : statuses) {
        result = worse(result, exit_status(status));
    }
    print_statuses(given, statuses);
    return result;
}

/*
 * Goes on until the output cannot be written; a terminal's user ends it by a signal.
 */
Exit watch(const StatusOptions& given, Observer& observer)
{
    const bool terminal = isatty(STDOUT_FILENO) != 0;
    Exit result = EXIT_DONE;

    do {
        std::cout << (terminal ? CLEAR_SCREEN : "");
        result = show(given, observer);
        std::cout << (terminal || given.json || !given.fields.empty() ? "" : "\n") << std::flush;
        std::this_thread::sleep_for(std::cout ? WATCH_PAUSE : std::chrono::seconds(0));
    } while (std::cout);
    return result;
}

} // namespace

Exit status(const StatusOptions& given)
{
    std::ranges::for_each(given.types, require_known_or_running);
    std::ranges::for_each(given.fields, require_field);
    try {
        Observer observer;
        return given.watch ? watch(given, observer) : show(given, observer);
    } catch (const Refusal&) {
        throw;
    } catch (const std::exception& error) {
        std::cerr << "monpctl: " << error.what() << '\n';
        return EXIT_UNKNOWN;
    }
}

} // namespace monpctl
