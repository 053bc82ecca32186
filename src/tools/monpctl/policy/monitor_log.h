/*
 * The log library's place in this program, as seen by the monitor's code: its complaints are kept.
 */
#ifndef MONPCTL_MONITOR_LOG_H
#define MONPCTL_MONITOR_LOG_H

#include <string>
#include <vector>

namespace monpctl {

/*
 * The lines of the levels error and warning that the monitor's code has written since the last call.
 */
std::vector<std::string> take_monitor_lines();

} // namespace monpctl

#endif
