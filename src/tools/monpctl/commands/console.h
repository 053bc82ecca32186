/*
 * What the commands that change something share.
 */
#ifndef MONPCTL_OPERATE_H
#define MONPCTL_OPERATE_H

#include "machine/observer.h"
#include "machine/pidfd_handle.h"

#include <string>
#include <vector>

namespace monpctl {

/* Between two looks at the machine. */
constexpr auto LOOK_PAUSE = std::chrono::milliseconds(200);

using Clock = std::chrono::steady_clock;

/*
 * Throws a runtime_error for anybody but root.
 */
void require_root();

/*
 * Prints a sentence about a type, without its full stop: a result to the standard output, a warning or an error to the
 * standard error.
 */
void say(const std::string& type, const std::string& sentence);
void complain(const std::string& type, const std::string& sentence);

/*
 * Prints lines of the log, or problems of a policy, to the standard error.
 */
void show_lines(const std::vector<std::string>& lines);
void show_problems(const std::vector<Problem>& problems);

} // namespace monpctl

#endif
