/*
 * The command "log".
 */
#include "commands/commands.h"
#include "commands/history_window.h"
#include "commands/log_filter.h"
#include "common/installation.h"
#include "common/log_level.h"
#include "common/refusal.h"
#include "common/suggestion.h"
#include "common/text.h"
#include "machine/observer.h"

#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace monpctl {

namespace {

size_t rank_of_option(const std::string& level)
{
    const auto words = log_level_words();

    if (level.empty()) {
        return words.size();
    }
    if (const auto rank = log_level_rank(level)) {
        return *rank;
    }
    throw Refusal(
        fmt::format("'{}' is not a level{}: there are {}", level, did_you_mean(level, words), fmt::join(words, ", ")));
}

std::string json_line(const LogLine& line, const std::string& type)
{
    const nlohmann::json object = {
        { "time", line.time },     { "type", type.empty() ? nlohmann::json() : nlohmann::json(type) },
        { "level", line.level },   { "pid", line.pid },
        { "thread", line.thread }, { "ident", line.ident },
        { "source", line.source }, { "function", line.function },
        { "text", line.text }
    };

    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string short_line(const LogLine& line, const std::string& type)
{
    const auto time = parse_time(line.time);

    return fmt::format("{} {:7} {:8} {}", time ? time_text(*time, "%F %T") : printable(std::string(line.time)),
                       line.level, type.empty() ? "-" : type, printable(std::string(line.text)));
}

/*
 * A line that is not a record, such as one that a full disk has cut, has no level and no time: it is shown only where
 * nothing is left out.
 */
void print_part(const std::string& line, const LogOptions& given, size_t rank, HistoryWindow& window)
{
    if (!given.json && rank == log_level_words().size() && window.contains({})) {
        window.print(given.full ? line : printable(line));
    }
}

} // namespace

Exit log(const LogOptions& given)
{
    std::ranges::for_each(given.types, require_known_or_running);
    const size_t rank = rank_of_option(given.level);
    HistoryWindow window(given);
    LogFilter filter(
        given.types, [&](const std::string& line, const std::optional<LogLine>& parsed, const std::string& type) {
            if (!parsed) {
                print_part(line, given, rank, window);
            } else if (log_level_rank(parsed->level).value_or(0) <= rank && window.contains(parse_time(parsed->time))) {
                window.print(given.json ? json_line(*parsed, type) : given.full ? line : short_line(*parsed, type));
            }
        });

    print_history({ .path = log_file(), .follow = given.follow }, window,
                  [&](const std::string& line) { filter.take(line); });
    return EXIT_DONE;
}

} // namespace monpctl
