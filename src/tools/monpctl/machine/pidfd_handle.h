/*
 * Signals that reach the process that was looked at, or none.
 */
#ifndef MONPCTL_PIDFD_HANDLE_H
#define MONPCTL_PIDFD_HANDLE_H

#include "common/unique_fd.h"
#include "machine/process.h"

#include <chrono>

namespace monpctl {

/*
 * A hold on one process that no reuse of its number can turn into a hold on another.
 */
class PidfdHandle {
public:
    /* Of a process that was looked at. It may have ended since, which is not an error; other failures throw. */
    explicit PidfdHandle(const Process& process);

    /*
     * Sends a signal that the process has a handler for, after checking that it runs the same program with the same
     * arguments since the same moment.
     * Result: false if it has ended. Throws if it has no handler, as the signal would kill it, if it has become another
     * program, and if the kernel refuses.
     */
    bool signal(int number) const;

    /*
     * Sends SIGKILL after the same check.
     * Result and exceptions as for signal().
     */
    bool kill() const;

    /* Waits for the end. Result: whether it has come. A zombie has ended. */
    [[nodiscard]] bool ended(std::chrono::milliseconds limit) const;

private:
    bool send(int number, bool handled) const;

    Process process_;
    UniqueFd fd_; /* none: it had ended before */
};

} // namespace monpctl

#endif
