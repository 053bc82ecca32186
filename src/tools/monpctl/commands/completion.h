#ifndef MONPCTL_COMMANDS_COMPLETION_H
#define MONPCTL_COMMANDS_COMPLETION_H

#include "commands/exit.h"

#include <string>

namespace CLI {
class App;
}

namespace monpctl {

/*
 * Prints the completions of monpctl and monp for a shell, made from the commands and options that the parser has. With
 * "types" instead of a shell it prints the service types, a line each: the completions ask for these when they run.
 */
Exit print_completion(const CLI::App& app, const std::string& shell);

} // namespace monpctl

#endif
