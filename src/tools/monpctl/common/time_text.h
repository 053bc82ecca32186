/*
 * Moments and spans of time, read from the files of the log library and written for people.
 */
#ifndef MONPCTL_COMMON_TIME_TEXT_H
#define MONPCTL_COMMON_TIME_TEXT_H

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace monpctl {

/* A moment by the clock of the wall, which may be set forward and back. */
using Time = std::chrono::system_clock::time_point;

/*
 * Reads a moment as log and events have it: 2026-11-22T20:51:08.123456+0000.
 * Result: nothing for any other text.
 */
std::optional<Time> parse_time(std::string_view text);

/*
 * A moment in local time, in the format of strftime.
 */
std::string time_text(Time time, const char* format);

/*
 * A moment of the last 24 hours as "20:51:08", any other one with its date before that.
 *   now  the moment to compare with
 */
std::string short_time(Time time, Time now);

/*
 * A span as a person would tell it, in its two largest units: "12 s", "3 h 12 min", "8 d 2 h". One below zero, as after
 * the clock was set back, is told as "0 s".
 */
std::string age_text(std::chrono::seconds age);

} // namespace monpctl

#endif
