/*
 * The JSON of the command "status"; monpctl(8) documents its members.
 */
#ifndef MONPCTL_COMMANDS_STATUS_JSON_H
#define MONPCTL_COMMANDS_STATUS_JSON_H

#include "machine/type_status.h"

#include <vector>

namespace monpctl {

/*
 * Prints an array with an object for each status. Members that do not apply, or are not known, are null.
 */
void print_status_json(const std::vector<TypeStatus>& statuses);

} // namespace monpctl

#endif
