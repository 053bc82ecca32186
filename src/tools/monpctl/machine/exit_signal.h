/*
 * The effect of the exit signal on a service.
 */
#ifndef MONPCTL_EXIT_SIGNAL_H
#define MONPCTL_EXIT_SIGNAL_H

#include "machine/process.h"

namespace monpctl {

/*
 * What a signal would do to a process at this moment.
 */
enum class ExitSignal {
    handled, /* it runs a handler */
    awaited, /* it is kept until the process asks for it, or a thread waits for it now */
    ignored, /* it is lost, and the process lives on */
    fatal,   /* it ends the process, as is the default */
    unknown  /* that cannot be told: it may end the process */
};

/*
 * Asks the kernel about a process that was looked at. A thread that waits for a signal in sigtimedwait or sigwaitinfo
 * does not show it as blocked, so the system call of each thread is looked at, too; only root may. A process that has
 * ended in the meantime gives `unknown`.
 *   process  the process
 *   number   of the signal: one whose default is the end of the process
 *   proc     where the processes are shown
 * May take 20 milliseconds for a process whose threads do not stand still.
 */
ExitSignal exit_signal(const Process& process, int number, const Proc& proc = Proc());

} // namespace monpctl

#endif
