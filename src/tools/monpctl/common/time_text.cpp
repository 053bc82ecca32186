#include "common/time_text.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <fmt/format.h>

namespace monpctl {

namespace {

/*
 * Reads a fixed number of digits.
 * Result: nothing if others stand there.
 */
std::optional<int> digits(std::string_view text, size_t begin, size_t length)
{
    int value = 0;

    for (const char digit : text.substr(begin, length)) {
        if (digit < '0' || digit > '9') {
            return std::nullopt;
        }
        value = value * 10 + (digit - '0');
    }
    return value;
}

} // namespace

std::optional<Time> parse_time(std::string_view text)
{
    /* Digits stand for themselves and signs for one of them; everything else is as written. */
    constexpr std::string_view FORM = "0000-00-00T00:00:00.000000+0000";
    std::tm fields = {};

    if (text.size() != FORM.size()) {
        return std::nullopt;
    }
    for (size_t i = 0; i < FORM.size(); i++) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        const bool sign = FORM[i] == '+' && text[i] == '-';
        if (FORM[i] == '0' ? !digit : text[i] != FORM[i] && !sign) {
            return std::nullopt;
        }
    }
    fields.tm_year = *digits(text, 0, 4) - 1900;
    fields.tm_mon = *digits(text, 5, 2) - 1;
    fields.tm_mday = *digits(text, 8, 2);
    fields.tm_hour = *digits(text, 11, 2);
    fields.tm_min = *digits(text, 14, 2);
    fields.tm_sec = *digits(text, 17, 2);
    const int offset = (*digits(text, 27, 2) * 60 + *digits(text, 29, 2)) * 60 * (text[26] == '-' ? -1 : 1);
    return std::chrono::system_clock::from_time_t(timegm(&fields) - offset) +
           std::chrono::microseconds(*digits(text, 20, 6));
}

std::string time_text(Time time, const char* format)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::array<char, 128> text = {};
    std::tm fields = {};

    localtime_r(&seconds, &fields);
    return { text.data(), std::strftime(text.data(), text.size(), format, &fields) };
}

std::string short_time(Time time, Time now)
{
    const bool recent = time <= now && now - time < std::chrono::hours(24);

    return time_text(time, recent ? "%T" : "%F %T");
}

std::string age_text(std::chrono::seconds age)
{
    const auto seconds = std::max<std::chrono::seconds::rep>(age.count(), 0);
    struct Unit {
        std::chrono::seconds::rep size;
        const char* name;
    };
    constexpr std::array UNITS = { Unit{ 86400, "d" }, Unit{ 3600, "h" }, Unit{ 60, "min" } };

    for (size_t i = 0; i < UNITS.size(); i++) {
        if (seconds >= UNITS[i].size) {
            const Unit next = i + 1 < UNITS.size() ? UNITS[i + 1] : Unit{ 1, "s" };
            return fmt::format("{} {} {} {}", seconds / UNITS[i].size, UNITS[i].name,
                               seconds % UNITS[i].size / next.size, next.name);
        }
    }
    return fmt::format("{} s", seconds);
}

} // namespace monpctl
