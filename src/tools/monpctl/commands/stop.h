/*
 * The stop of one type, for the commands "stop" and "restart".
 */
#ifndef MONPCTL_COMMANDS_STOP_H
#define MONPCTL_COMMANDS_STOP_H

#include "commands/commands.h"

#include <string>

namespace monpctl {

/*
 * Ends the monitors of a type and their services, and prints the result. Only root may.
 *   given  the choice of types in it is not looked at
 * Result: as of the command "stop".
 */
Exit stop_one(const std::string& type, const StopOptions& given);

} // namespace monpctl

#endif
