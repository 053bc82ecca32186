/*
 * The commands of monpctl, one declaration each. command_line.cpp turns the command line into the calls.
 *
 * A command throws a Refusal for a type that is not known, or any other mistake of its command line.
 */
#ifndef MONPCTL_COMMANDS_COMMANDS_H
#define MONPCTL_COMMANDS_COMMANDS_H

#include "commands/exit.h"

#include <optional>
#include <string>
#include <vector>

namespace monpctl {

/*
 * The types that a command changes something of. One of the two is required.
 */
struct TypeChoice {
    std::vector<std::string> types;
    bool all = false; /* every type that the policy has an entry for */
};

/*
 * Prints every problem of the policy of some types, or of all types if none is given, and of the log.
 * Result: EXIT_DONE, or EXIT_FAILED when a monitor of one of the types would end on a problem.
 */
struct CheckOptions {
    std::vector<std::string> types;
    bool explain = false; /* every setting that a monitor would run with, too */
    bool json = false;
    std::vector<std::string> options; /* of the monitor's command line; they need one type */
};
Exit check(const CheckOptions& given);

/*
 * Print the events, or the log, of some types, or of all monitors if none is given, from the oldest generation on; with
 * `follow` they go on as the files grow, and do not return.
 * Result: EXIT_DONE, or EXIT_FAILED when a file is missing or cannot be read.
 */
struct HistoryOptions {
    std::vector<std::string> types;
    bool follow = false;
    std::optional<size_t> lines; /* the last so many only */
    std::string since;           /* times as for parse_moment; empty: no limit */
    std::string until;
    bool full = false; /* whole lines, as they stand in the file */
    bool json = false; /* one object a line; of events, as they stand in the file */
};
Exit events(const HistoryOptions& given);

struct LogOptions : HistoryOptions {
    std::string level; /* word of the least severe level to print; empty: all */
};
Exit log(const LogOptions& given);

/*
 * Prints the states of some types, or of all types if none is given.
 * Result: EXIT_DONE if all run, else the worst of EXIT_DOWN, EXIT_FAILED and EXIT_UNKNOWN.
 */
struct StatusOptions {
    std::vector<std::string> types;
    bool json = false;
    std::vector<std::string> fields; /* one line a type with these only; empty: the table */
    bool watch = false;              /* again and again, until the terminal's user ends it */
};
Exit status(const StatusOptions& given);

/*
 * Starts monitors, or has waiting ones start their services, one after the other, and waits until each service is up or
 * will not be.
 * Result: EXIT_DONE, EXIT_FAILED for a policy or options that no monitor would run with, or for a service that runs
 * already and cannot be adopted, or EXIT_DOWN; of several the worst.
 */
struct StartOptions {
    TypeChoice choice;
    std::optional<int> wait;          /* seconds; without a value as many as the policy grants the service, and some */
    bool second_copy = false;         /* start the service beside one that cannot be adopted */
    std::vector<std::string> options; /* of the monitor's command line; they need one type */
};
Exit start(const StartOptions& given);

/*
 * Ends monitors and their services, one after the other, the last of the policy's entries first.
 * Result: EXIT_DONE, also if there was none, EXIT_FAILED when one was refused, or EXIT_DOWN; of several the worst.
 */
struct StopOptions {
    TypeChoice choice;
    std::optional<int> wait;       /* seconds; without a value as many as the policy grants the service, and some */
    std::optional<int> kill_after; /* seconds until what is left is killed, the monitor first */
    bool yes = false;              /* do not ask when that may halt or reboot the node */
};
Exit stop(const StopOptions& given);

/*
 * Stops types and then starts them, with new monitors. One that could not be stopped is not started.
 */
struct RestartOptions {
    StopOptions stop;
    std::vector<std::string> options; /* of the monitor's command line; they need one type */
};
Exit restart(const RestartOptions& given);

/*
 * Has monitors read their policy again, if that is one they can run with.
 * Result: EXIT_DONE, EXIT_FAILED when it was refused or the monitor has ended on it, or EXIT_DOWN without a monitor; of
 * several the worst.
 */
struct ReloadOptions {
    TypeChoice choice;
};
Exit reload(const ReloadOptions& given);

} // namespace monpctl

#endif
