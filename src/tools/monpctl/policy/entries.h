/*
 * The services that the policy has an entry for.
 */
#ifndef MONPCTL_ENTRIES_H
#define MONPCTL_ENTRIES_H

#include <string>
#include <vector>

namespace monpctl {

/*
 * The types that the monitor's own section has an entry for, in the order of the entries. Empty if that section cannot
 * be read.
 */
std::vector<std::string> policy_entries();

} // namespace monpctl

#endif
