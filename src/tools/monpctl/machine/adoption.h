/*
 * Running services that have no monitor.
 */
#ifndef MONPCTL_MACHINE_ADOPTION_H
#define MONPCTL_MACHINE_ADOPTION_H

#include "machine/process.h"

#include <string>
#include <vector>

namespace monpctl {

/*
 * Tells if the next monitor takes over a process that runs the service's program: the monitor finds it by the path of
 * its executable.
 */
bool adoptable(const Process& process);

/*
 * Why it does not, as part of a sentence.
 */
std::string unadoptable_reason(const Process& process);

/*
 * The processes that a process has started, and those that these have started, at this moment. One whose parent has
 * ended is not found.
 */
std::vector<Process> descendants_of(pid_t ancestor);

} // namespace monpctl

#endif
