/*
 * Files that root reads or runs: who else could have written them, and programs that cannot be run.
 */
#ifndef MONPCTL_POLICY_TRUST_H
#define MONPCTL_POLICY_TRUST_H

#include "policy/findings.h"

#include <string>
#include <vector>

namespace monpctl {

/*
 * Reports the policy file, the directories above it and the home directory, as far as others than root could have
 * written them.
 *   severity, consequence  of the file itself; a directory ends every monitor
 */
void report_untrusted(const std::string& file, Severity severity, const std::string& consequence,
                      std::vector<Problem>& problems);

/*
 * A program of the policy.
 */
struct NamedProgram {
    Place place = {}; /* of the key that names it */
    std::string path = {};
    std::string consequence = {}; /* if it cannot be run */
    bool adopted = false;         /* the monitor looks for a running one, which it never finds if it is a script */
};

/*
 * Reports why a program cannot be run, or should not be. A path that is empty, as it does not fit its buffer, or not
 * absolute is left to others.
 */
void check_program(const NamedProgram& program, std::vector<Problem>& problems);

} // namespace monpctl

#endif
