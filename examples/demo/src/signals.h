/*
 * The sample service's ends by signal: nothing else of it knows about dispositions and limits.
 */
#ifndef SAMPLE_SIGNALS_H
#define SAMPLE_SIGNALS_H

#include <sys/resource.h>

namespace sample {

constexpr int LAST_CLASSIC_SIGNAL = 31;

/*
 * Ends the process by the default action of a signal.
 *   sig         1 to 31, one whose default action is the end of the process
 *   core_limit  bytes that a core dump may have; 0: none is written
 */
[[noreturn]] void die_by(int sig, rlim_t core_limit);

} // namespace sample

#endif
