#include "common/moment.h"

#include "common/refusal.h"

#include <array>
#include <cctype>
#include <charconv>
#include <ctime>
#include <fmt/format.h>
#include <optional>
#include <string_view>

namespace monpctl {

namespace {

using std::chrono::seconds;

/* More than this before now is not meant, and would leave the range of the clock. */
constexpr long LONGEST_AGE = 100L * 366 * 86400;

struct Unit {
    std::string_view name;
    long seconds;
};

constexpr std::array<Unit, 9> UNITS = { { { "s", 1 },
                                          { "sec", 1 },
                                          { "m", 60 },
                                          { "min", 60 },
                                          { "h", 3600 },
                                          { "hour", 3600 },
                                          { "hours", 3600 },
                                          { "d", 86400 },
                                          { "days", 86400 } } };

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && text.front() == ' ') {
        text.remove_prefix(1);
    }
    while (!text.empty() && text.back() == ' ') {
        text.remove_suffix(1);
    }
    return text;
}

/*
 * "NUMBER UNIT ago".
 */
std::optional<Time> parse_ago(std::string_view text, Time now)
{
    long number = 0;

    if (!text.ends_with("ago")) {
        return {};
    }
    text.remove_suffix(3);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const std::string_view name = trimmed(text.substr(static_cast<size_t>(end - text.data())));
    for (const auto& unit : UNITS) {
        if (error == std::errc() && unit.name == name && number >= 0 && number <= LONGEST_AGE / unit.seconds) {
            return now - seconds(number * unit.seconds);
        }
    }
    return {};
}

/*
 * A text in local time by one format of strptime; fields that the format lacks keep the values of `fields`.
 */
std::optional<Time> parse_local(const std::string& text, const char* format, std::tm fields)
{
    const char* end = strptime(text.c_str(), format, &fields);

    if (end == nullptr || *end != '\0') {
        return {};
    }
    fields.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&fields));
}

} // namespace

Time parse_moment(const std::string& option, const std::string& text, Time now)
{
    const std::time_t seconds_now = std::chrono::system_clock::to_time_t(now);
    const std::string given(trimmed(text));
    std::tm today = {};
    std::optional<Time> found;

    localtime_r(&seconds_now, &today);
    today.tm_hour = today.tm_min = today.tm_sec = 0;
    if (given == "now") {
        return now;
    }
    found = parse_ago(given, now);
    for (const char* format :
         { "%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%d", "%H:%M:%S", "%H:%M" }) {
        found = found ? found : parse_local(given, format, today);
    }
    found = found ? found : parse_time(given);
    if (!found) {
        throw Refusal(fmt::format("{} is '{}', which is not a time; \"2026-11-22 14:00\", \"14:00\" and \"2h ago\" are",
                                  option, text));
    }
    return *found;
}

} // namespace monpctl
