/*
 * The one parser of a line of the log.
 */
#ifndef MONPCTL_LOG_LINE_H
#define MONPCTL_LOG_LINE_H

#include "common/time_text.h"

#include <optional>
#include <string_view>
#include <sys/types.h>

namespace monpctl {

/*
 * A line in its words, which are parts of the text that it was read from and live as long as that.
 */
struct LogLine {
    std::string_view time; /* for parse_time */
    std::string_view level;
    pid_t pid = 0;
    pid_t thread = 0;
    std::string_view ident;
    std::string_view function;
    std::string_view source; /* "file:line" */
    std::string_view text;
};

/*
 * Result: nothing for a text that is not a line of the log, such as a part that a full disk has left.
 */
std::optional<LogLine> parse_log_line(std::string_view line);

/*
 * The value behind a name in the brackets of a line's text: "dusko" for "type" and "fork() failed. (type=dusko errno=11)".
 * It ends at a blank or a closing bracket, so a value that has one in itself is cut.
 * Result: nothing without that name, or for a number, if the value is not one.
 */
std::optional<std::string_view> text_value(std::string_view text, std::string_view name);
std::optional<int> number_value(std::string_view text, std::string_view name);

} // namespace monpctl

#endif
