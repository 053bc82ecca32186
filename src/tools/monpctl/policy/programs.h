/*
 * What can be wrong with a file that root reads or runs: owners, modes, and programs that are none.
 */
#ifndef MONPCTL_PROGRAMS_H
#define MONPCTL_PROGRAMS_H

#include "policy/settings.h"

#include <string>

namespace monpctl {

/*
 * Tells which of a policy file, the directories above it and the home directory others than root could have written.
 * Result: whether there was anything to tell.
 */
bool report_untrusted(const std::string& file, Severity severity, const std::string& consequence, Settings& result);

/*
 * Tells why a program cannot be run, or should not be.
 *   where        the policy line that names it
 *   path         one that is empty, as it does not fit its buffer, or not absolute is left to others to tell
 *   consequence  what follows if it cannot be run
 *   adopted      whether the monitor looks for a running one, which it never finds if it is a script
 */
void check_program(const std::string& where, const std::string& path, const std::string& consequence, bool adopted,
                   Settings& result);

} // namespace monpctl

#endif
