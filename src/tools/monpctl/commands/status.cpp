/*
 * The command "status".
 */
#include "commands/commands.h"
#include "common/text.h"
#include "machine/monitor.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unistd.h>

namespace monpctl {

namespace {

/* A result for each state, and its colour on a terminal. */
struct Look {
    State state;
    Exit result;
    const char* colour;
};

constexpr const char* GREEN = "\033[32m";
constexpr const char* YELLOW = "\033[33m";
constexpr const char* RED = "\033[31m";
constexpr const char* PLAIN = "\033[0m";

constexpr Look LOOKS[] = {
    { State::running, EXIT_DONE, GREEN },  { State::starting, EXIT_DOWN, YELLOW },
    { State::waiting, EXIT_DOWN, YELLOW }, { State::recovering, EXIT_DOWN, YELLOW },
    { State::ending, EXIT_DOWN, YELLOW },  { State::stopped, EXIT_DOWN, "" },
    { State::dead, EXIT_FAILED, RED },     { State::unknown, EXIT_UNKNOWN, RED },
};

const Look& look_of(State state)
{
    return *std::find_if(std::begin(LOOKS), std::end(LOOKS), [state](const Look& one) { return one.state == state; });
}

/*
 * From the best to the worst; a number that is higher is not always worse.
 */
Exit worse(Exit one, Exit other)
{
    constexpr Exit ORDER[] = { EXIT_DONE, EXIT_DOWN, EXIT_FAILED, EXIT_UNKNOWN };
    const auto place = [&](Exit result) { return std::find(std::begin(ORDER), std::end(ORDER), result); };

    return place(one) < place(other) ? other : one;
}

std::string time_text(Time time, const char* format)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm fields = {};
    std::ostringstream text;

    text << std::put_time(localtime_r(&seconds, &fields), format);
    return text.str();
}

/*
 * The time of today, the date of any other day.
 */
std::string short_time(Time time)
{
    const bool today = time_text(time, "%F") == time_text(std::chrono::system_clock::now(), "%F");

    return time_text(time, today ? "%T" : "%F");
}

bool colours()
{
    const char* terminal = std::getenv("TERM");

    return isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr && terminal != nullptr &&
           std::strcmp(terminal, "dumb") != 0;
}

std::string pid_text(const std::optional<Process>& process)
{
    return process ? std::to_string(process->pid) : "-";
}

/*
 * A row fits 80 characters with a type of 29 and pids of 7.
 */
void print_row(size_t width, const std::vector<std::string>& cells, const char* colour)
{
    const size_t widths[] = { width, 10, 7, 7, 10, 8, 3 };

    for (size_t cell = 0; cell < cells.size(); cell++) {
        const std::string blanks(std::max(widths[cell], cells[cell].size()) - cells[cell].size(), ' ');
        const bool number = cell == 2 || cell == 3 || cell > 4;
        const std::string text = cell == 1 && *colour != '\0' ? colour + cells[cell] + PLAIN : cells[cell];
        const bool last = cell + 1 == cells.size();
        std::cout << (number ? blanks + text : text + (last ? "" : blanks)) << (last ? "\n" : " ");
    }
}

void print_table(const std::vector<Report>& reports)
{
    const bool coloured = colours();
    size_t width = 4;

    for (const auto& report : reports) {
        width = std::max(width, report.type.size());
    }
    print_row(width, { "TYPE", "STATE", "MONITOR", "SERVICE", "SINCE", "RESTARTS", "END" }, "");
    for (const auto& report : reports) {
        const bool runs = report.monitor.has_value();
        const auto& shown = report.service ? report.service
                            : runs         ? std::optional(report.monitor->process)
                                           : std::nullopt;
        print_row(width,
                  { printable(report.type), word(report.state),
                    runs ? std::to_string(report.monitor->process.pid) : "-", pid_text(report.service),
                    shown ? short_time(shown->since()) : "-", runs ? std::to_string(report.record.restarts) : "-",
                    report.record.last_status ? std::to_string(*report.record.last_status) : "-" },
                  coloured ? look_of(report.state).colour : "");
    }
    for (const auto& report : reports) {
        if (!report.reason.empty()) {
            std::cout << printable(report.type) << " is " << word(report.state) << ": " << report.reason << ".\n";
        }
        for (const auto& warning : report.warnings) {
            std::cout << printable(report.type) << ": warning: " << warning << ".\n";
        }
    }
}

nlohmann::json process_json(const std::optional<Process>& process)
{
    if (!process) {
        return nullptr;
    }
    return { { "pid", process->pid },
             { "since", time_text(process->since(), "%FT%T%z") },
             { "executable", process->executable } };
}

nlohmann::json report_json(const Report& report)
{
    const auto monitor = report.monitor ? std::optional(report.monitor->process) : std::nullopt;
    nlohmann::json copies = nlohmann::json::array();

    for (const auto& copy : report.copies) {
        copies.push_back(copy.pid);
    }
    return { { "type", report.type },
             { "state", word(report.state) },
             { "reason", report.reason.empty() ? nlohmann::json() : nlohmann::json(report.reason) },
             { "monitor", process_json(monitor) },
             { "service", process_json(report.service) },
             { "copies", copies },
             { "restarts", report.record.restarts },
             { "last_status",
               report.record.last_status ? nlohmann::json(*report.record.last_status) : nlohmann::json() },
             { "lock_file", report.settings.lock_file },
             { "warnings", report.warnings } };
}

int print_status(const StatusOptions& given)
{
    if (!given.type.empty()) {
        require_known_or_running(given.type);
    }
    const auto reports = Observer().look(given.type);
    Exit result = reports.empty() ? EXIT_DOWN : EXIT_DONE;

    for (const auto& report : reports) {
        result = worse(result, look_of(report.state).result);
    }
    if (given.json) {
        nlohmann::json list = nlohmann::json::array();
        std::transform(reports.begin(), reports.end(), std::back_inserter(list), report_json);
        /* A path of any bytes must not keep the rest from being told. */
        std::cout << list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    } else if (reports.empty()) {
        std::cout << "No monitor runs.\n";
    } else {
        print_table(reports);
    }
    return result;
}

} // namespace

int status(const StatusOptions& given)
{
    try {
        return print_status(given);
    } catch (const std::exception& error) {
        std::cerr << "monpctl: " << error.what() << '\n';
        return EXIT_UNKNOWN;
    }
}

} // namespace monpctl
