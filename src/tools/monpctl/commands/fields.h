/*
 * The fields of a status: for scripts, for the completions and for the manual page, from one table.
 */
#ifndef MONPCTL_COMMANDS_FIELDS_H
#define MONPCTL_COMMANDS_FIELDS_H

#include "machine/type_status.h"

#include <string>
#include <vector>

namespace monpctl {

/*
 * The names, in the order of the manual page.
 */
std::vector<std::string> field_names();

/*
 * Throws a Refusal for a name that is not a field.
 */
void require_field(const std::string& name);

/*
 * The values of some fields, with a tab between two. A value that there is not is "-", one whose records are missing is
 * "?". The names must be those of fields.
 */
std::string fields_line(const TypeStatus& status, const std::vector<std::string>& names);

/*
 * The state as one word, for scripts: as on the screen, but "gave-up".
 */
std::string state_word(State state);

} // namespace monpctl

#endif
