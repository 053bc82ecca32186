/*
 * Each state's exit status and colour.
 */
#ifndef MONPCTL_COMMANDS_STATE_LOOK_H
#define MONPCTL_COMMANDS_STATE_LOOK_H

#include "commands/exit.h"
#include "machine/type_status.h"

#include <string>
#include <string_view>

namespace monpctl {

/*
 * The exit status for one type. A stopped type that the policy disables is as it should be.
 */
Exit exit_status(const TypeStatus& status);

/*
 * A text in the colour of a state, for a terminal.
 */
std::string coloured(State state, std::string_view text);

} // namespace monpctl

#endif
