/*
 * Signal work of the sample service: nothing else of it knows about dispositions and limits.
 */
#ifndef SAMPLE_SIGNALS_H
#define SAMPLE_SIGNALS_H

#include <sys/resource.h>
#include <sys/types.h>

namespace sample {

constexpr int LAST_CLASSIC_SIGNAL = 31;

/*
 * Puts signals 1 to 31 back to their defaults and blocks SIGUSR1 alone. The monitor ignores nearly all signals, and an
 * ignored signal stays ignored in the program it starts. SIGUSR1 is blocked from here on, before anything is reported:
 * an end request can neither be lost nor end us by its default.
 */
void restore_signals();

/*
 * Ends the process by the default action of a signal.
 *   sig         1 to 31, one whose default action is the end of the process
 *   core_limit  bytes that a core dump may have; 0: none is written
 */
[[noreturn]] void die_by(int sig, rlim_t core_limit);

/*
 * Tells whether a SIGUSR1 would not kill the process: it is caught or ignored there. Blocked is no protection: a shell
 * blocks all signals only while it starts us. False when the process cannot be looked at. Started by hand, our parent
 * is a shell, which a report would kill.
 */
bool survives_report(pid_t pid);

} // namespace sample

#endif
