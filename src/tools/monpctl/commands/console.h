/*
 * How the commands speak, and who may change something.
 */
#ifndef MONPCTL_COMMANDS_CONSOLE_H
#define MONPCTL_COMMANDS_CONSOLE_H

#include "policy/findings.h"

#include <chrono>
#include <string>
#include <vector>

namespace monpctl {

/* Between two looks at the machine. */
constexpr auto LOOK_PAUSE = std::chrono::milliseconds(200);

using Clock = std::chrono::steady_clock;

/*
 * Throws a Fault for anybody but root.
 */
void require_root();

/*
 * Print a sentence about a type, without its full stop: a result to the standard output, a warning or an error to the
 * standard error.
 */
void say(const std::string& type, const std::string& sentence);
void warn(const std::string& type, const std::string& sentence);
void complain(const std::string& type, const std::string& sentence);

/*
 * Print lines of the log, or problems of a policy, to the standard error.
 */
void show_lines(const std::vector<std::string>& lines);
void show_problems(const std::vector<Problem>& problems);

/*
 * Tells if the standard output is a terminal that shows colours, and nobody has set NO_COLOR.
 */
bool shows_colours();

} // namespace monpctl

#endif
