/*
 * One monitor, started in surroundings that are the same from a terminal, a job or another service.
 */
#ifndef MONPCTL_COMMANDS_LAUNCH_H
#define MONPCTL_COMMANDS_LAUNCH_H

#include "commands/console.h"
#include "common/unique_fd.h"
#include "policy/settings.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace monpctl {

/*
 * Held by one start of a type at a time. The file stays: removing it would let two starts have a lock each.
 */
class StartLock {
public:
    /* Waits for another start; throws a Fault when that goes on beyond the limit, and a system_error. */
    StartLock(const std::string& type, Clock::time_point limit);

private:
    UniqueFd fd_;
};

/*
 * Makes the lock file of a monitor, which is its launcher's to make; the monitor only removes it. A failure is a
 * warning.
 * Result: true if it is a new one.
 */
bool make_lock_file(const Settings& settings);

/*
 * Starts a monitor. Whatever this program was started from, the monitor has an empty signal mask, default
 * dispositions, "/" as its working directory, no terminal, and /dev/null as descriptors 0 to 2 and no others: the
 * daemon keeps them for life and hands them on to the service. Its environment has PATH and TESK_HOME only.
 * Result: the monitor's first process, a child of ours. Throws a system_error.
 */
pid_t launch(const std::string& type, const std::vector<std::string>& options);

} // namespace monpctl

#endif
