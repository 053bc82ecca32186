/*
 * The running monitors of this installation.
 */
#ifndef MONPCTL_MONITORS_H
#define MONPCTL_MONITORS_H

#include "machine/process.h"

#include <string>
#include <vector>

namespace monpctl {

struct RunningMonitor {
    std::string type;
    Process process;                  /* the daemon; its first process as long as there is no daemon */
    bool set_up = false;              /* it has its signal handlers; without them a signal would kill it */
    bool launching = false;           /* its first process still waits for it */
    pid_t first = 0;                  /* that first process, while it waits; 0 otherwise */
    bool no_start = false;            /* it is never to start the service */
    bool replaced = false;            /* its program is not the one that a start would run now */
    std::vector<std::string> options; /* of its command line */
};

/*
 * Finds all of them, by type and then by pid. Of the two processes of one that is being started, the first is left out;
 * so are those of another home directory, those in a container, and children of a monitor that run no program of their
 * own yet.
 */
std::vector<RunningMonitor> find_monitors(const ProcessTable& processes);

} // namespace monpctl

#endif
