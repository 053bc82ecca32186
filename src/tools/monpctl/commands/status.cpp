/*
 * The command "status".
 */
#include "commands/commands.h"
#include "common/text.h"
#include "machine/observer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>
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
    { State::gave_up, EXIT_FAILED, RED },
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

/*
 * A number that the records tell, "?" where they are missing.
 */
std::string told(const std::optional<int>& number, const TypeStatus& report)
{
    return number ? std::to_string(*number) : report.history.missing.empty() ? "-" : "?";
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

void print_table(const std::vector<TypeStatus>& reports)
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
        print_row(
            width,
            { printable(report.type), std::string(word(report.state)),
              runs ? std::to_string(report.monitor->process.pid) : "-", pid_text(report.service),
              shown ? short_time(shown->since(), std::chrono::system_clock::now()) : "-",
              told(report.history.restarts, report),
              told(report.history.last_end ? std::optional(report.history.last_end->status) : std::nullopt, report) },
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

nlohmann::json report_json(const TypeStatus& report)
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
             { "restarts", report.history.restarts ? nlohmann::json(*report.history.restarts) : nlohmann::json() },
             { "last_status",
               report.history.last_end ? nlohmann::json(report.history.last_end->status) : nlohmann::json() },
             { "lock_file", report.settings.lock_file },
             { "warnings", report.warnings } };
}

int print_status(const StatusOptions& given)
{
    if (!given.type.empty()) {
        require_known_or_running(given.type);
    }
    const auto reports = Observer().look(given.type.empty() ? std::vector<std::string>() : std::vector{ given.type });
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
