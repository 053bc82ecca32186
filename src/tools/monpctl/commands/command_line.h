#ifndef MONPCTL_COMMANDS_COMMAND_LINE_H
#define MONPCTL_COMMANDS_COMMAND_LINE_H

namespace monpctl {

/*
 * Runs the command of a command line, as main gets it. Failures are printed to the standard error.
 * Result: an Exit.
 */
int run(int argc, char** argv);

} // namespace monpctl

#endif
