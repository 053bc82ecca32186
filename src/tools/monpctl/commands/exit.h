/*
 * The exit statuses of the tool.
 */
#ifndef MONPCTL_COMMANDS_EXIT_H
#define MONPCTL_COMMANDS_EXIT_H

namespace monpctl {

enum Exit {
    EXIT_DONE = 0,   /* done; of status: running */
    EXIT_FAILED = 1, /* not done; of check: a monitor would end on its policy; of status: dead, or gave up */
    EXIT_USAGE = 2,  /* the command line is wrong */
    EXIT_DOWN = 3, /* of status and start: the service is not up; of stop: a process survived; of reload: no monitor */
    EXIT_UNKNOWN = 4 /* of status: the state cannot be told */
};

/*
 * The worse of two results, from the best: EXIT_DONE, EXIT_DOWN, EXIT_FAILED, EXIT_UNKNOWN, EXIT_USAGE. A higher number
 * is not always worse.
 */
Exit worse(Exit one, Exit other);

} // namespace monpctl

#endif
