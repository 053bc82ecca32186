/*
 * The lines of the log that belong to some service types.
 *
 * All monitors share one log, and only some lines name a service, so a line belongs to the service that its process has
 * named: "(type=NAME" in most lines tells it, with the type's name on the command line or in its section. If only some
 * types are asked for, lines that a process wrote before it named one are kept until then.
 */
#ifndef MONPCTL_COMMANDS_LOG_FILTER_H
#define MONPCTL_COMMANDS_LOG_FILTER_H

#include "machine/log_line.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace monpctl {

class LogFilter {
public:
    /* Takes a line, its parts if it is a record, and the type that it belongs to, which is empty if that is not known. */
    using Print =
        std::function<void(const std::string& line, const std::optional<LogLine>& parsed, const std::string& type)>;

    /*
     *   types  whose lines are passed on; empty: those of all, and then parts of lines, too
     */
    LogFilter(const std::vector<std::string>& types, Print print);

    void take(const std::string& line);

private:
    /* A process of the log, and the lines that it wrote before its service was known. */
    struct Writer {
        std::string type; /* empty: not known yet */
        std::vector<std::string> kept;
    };

    Writer& writer_of(const LogLine& line);

    std::vector<std::string> wanted_;                       /* types; empty: all */
    std::map<std::string, std::string, std::less<>> types_; /* by each name that lines may show for them */
    Print print_;
    std::map<pid_t, Writer> writers_;
};

} // namespace monpctl

#endif
