/*
 * The commands of monpctl, one declaration each. main.cpp turns the command line into the calls.
 */
#ifndef MONPCTL_COMMANDS_H
#define MONPCTL_COMMANDS_H

#include <stdexcept>
#include <string>
#include <vector>

namespace monpctl {

/*
 * What the command line asks for cannot be done; the text is one sentence for the operator.
 */
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
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

} // namespace monpctl

#endif
