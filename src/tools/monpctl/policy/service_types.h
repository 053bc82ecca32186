/*
 * The service types of an installation.
 */
#ifndef MONPCTL_POLICY_SERVICE_TYPES_H
#define MONPCTL_POLICY_SERVICE_TYPES_H

#include <string>
#include <vector>

namespace monpctl {

/*
 * The types that have a section in the policy directory, sorted by name: every section but those of the monitor itself
 * and of the recovery commands. The section "pm" counts only if it names a program.
 */
std::vector<std::string> known_types();

/*
 * The known types that have an entry below monp/service, in the order of these entries: the order in which several are
 * started. Types without an entry are left out, as no monitor could run for them. All known types, if the section of
 * the entries cannot be read.
 */
std::vector<std::string> entered_types();

/*
 * Throws a Refusal for anything but a known type, with the type that may have been meant. To be called for every type
 * that comes from outside, as it may be a path.
 */
void require_known(const std::string& type);

/*
 * The names that lines and events may show for a type: the type itself and, if it differs, the name in its section.
 */
std::vector<std::string> names_of(const std::string& type);

} // namespace monpctl

#endif
