/*
 * The commands of monpctl, one declaration each. main.cpp turns the command line into the calls.
 */
#ifndef MONPCTL_COMMANDS_H
#define MONPCTL_COMMANDS_H

#include <optional>
#include <string>
#include <vector>

namespace monpctl {

/*
 * Exit statuses.
 */
enum Exit {
    EXIT_DONE = 0,   /* done; of status: running */
    EXIT_FAILED = 1, /* not done, or a check found what would end a monitor; of status: dead, its lock file was left */
    EXIT_USAGE = 2,  /* the command line is wrong */
    EXIT_DOWN = 3, /* of status and start: the service is not up; of stop: something survived; of reload: no monitor */
    EXIT_UNKNOWN = 4 /* of status: cannot be told */
};

/*
 * Prints every problem of the policy of one type, or of all types if it is empty.
 *   explain  every setting that a monitor would run with, too
 *   options  of the monitor's command line; they need a type
 * Result: 0, or 1 when a monitor would end on one of the problems.
 */
struct CheckOptions {
    std::string type;
    bool explain = false;
    std::vector<std::string> options;
};
int check(const CheckOptions& given);

/*
 * Print the events file or the log, of one type, or of all monitors if it is empty, and go on as they grow.
 *   json   events as they stand in the file
 *   level  word of the least severe level to print; empty: all
 * Result: 0; with `follow` they do not return.
 */
struct EventsOptions {
    std::string type;
    bool follow = false;
    bool json = false;
};
int events(const EventsOptions& given);

struct LogOptions {
    std::string type;
    bool follow = false;
    std::string level;
};
int log(const LogOptions& given);

/*
 * Prints what the monitors do, as a table or as JSON; of one type, or all monitors and those that have died.
 * Result: EXIT_DONE, EXIT_FAILED, EXIT_DOWN or EXIT_UNKNOWN; of several the worst, EXIT_UNKNOWN being worse than
 * EXIT_FAILED and that worse than EXIT_DOWN.
 */
struct StatusOptions {
    std::string type;
    bool json = false;
};
int status(const StatusOptions& given);

/*
 * Starts a monitor, or has a waiting one start its service, and waits until the service is up or will not be.
 *   wait     seconds at most; without a value as many as the policy grants the service, and some
 *   options  of the monitor's command line
 * Result: EXIT_DONE, EXIT_FAILED for a policy or options that no monitor would run with, or EXIT_DOWN.
 */
struct StartOptions {
    std::string type;
    std::optional<int> wait;
    std::vector<std::string> options;
};
int start(const StartOptions& given);

/*
 * Ends a monitor and its service.
 *   wait  seconds at most; without a value as many as the policy grants the service, and some
 *   yes   do not ask when that may halt or reboot the node
 * Result: EXIT_DONE, also if there was none, EXIT_FAILED when it was refused, or EXIT_DOWN.
 */
struct StopOptions {
    std::string type;
    std::optional<int> wait;
    bool yes = false;
};
int stop(const StopOptions& given);

/*
 * Has a monitor read its policy again, if that is one it can run with.
 * Result: EXIT_DONE, EXIT_FAILED when it was refused or the monitor has ended on it, or EXIT_DOWN.
 */
struct ReloadOptions {
    std::string type;
};
int reload(const ReloadOptions& given);

} // namespace monpctl

#endif
