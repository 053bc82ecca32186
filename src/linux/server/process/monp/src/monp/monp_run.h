/*
 * The run of the monitor: the state that main keeps, and the steps that it takes in order.
 */
#ifndef MONP_RUN_H
#define MONP_RUN_H

#include "monp.h"
#include "monp_path.h"

/*
 * State of main for the whole run.
 */
typedef struct {
    int nfuncret;              /* exit status: set by what goes wrong, never cleared by what goes right later */
    int ninx;                  /* current row of gmonprecover; the restart row whenever a start is due */
    int nrestart;              /* restarts counted so far */
    pid_t npid;                /* the last start's process */
    int nstat;                 /* and its end status */
    MONP_PROGRAM_INFO prog;    /* the service */
    char* pargv[MONP_OPT_NUM]; /* its argument vector */
} MONP_RUN_INFO, *PMONP_RUN_INFO;

/*
 * Looks an action up in the recovery table.
 * Result: index of the first row that has it; of the row that ends the table, when none has.
 */
int monp_findrow(int naction);

/*
 * The number of the last action. Every number from MONP_ACT_NONE to this one has a row in the recovery table, and no
 * other number has. For messages. Any thread.
 */
int monp_lastaction(void);

/*
 * Opens /dev/null as each of the standard descriptors that the launcher has closed. Before any other file is opened.
 */
void monp_startup_descriptors(void);

/*
 * Checks for root, reads the command line and loads the configuration; what ends the monitor here is also written to
 * standard error. After a failed load no lock file is left to be removed, for the path may still be another type's.
 * Result: the exit status so far, MONP_RET_SUCCESS to go on.
 */
int monp_startup_settings(int argc, char** argv);

/*
 * Turns the configured lock file into the service type's own, or into none for a type without one or a path that does
 * not fit.
 */
void monp_startup_lockfile(void);

/*
 * Changes to the installation's bin directory; a failure is logged.
 */
void monp_startup_directory(void);

/*
 * Opens the log again, with the level and size of the policy.
 */
void monp_startup_log(void);

/*
 * Sets the environment that every started program inherits; failures are logged.
 */
void monp_startup_environment(void);

/*
 * Forms the service's path and argument vector. A path or name that does not fit stays empty, so that each start is
 * refused by its access check and reported, and the monitor waits.
 */
void monp_startup_program(PMONP_RUN_INFO prun);

/*
 * Whether a dummy configuration, or a use flag of 0, holds the service back.
 * Result: -1 or 0.
 */
int monp_isdummy(void);
int monp_isdisabled(void);

/*
 * Supervises until the monitor is to end, by request or by the recovery action. nfuncret is the exit status then.
 */
void monp_loop(PMONP_RUN_INFO prun);

/*
 * Removes the lock file, if there is one to remove; a missing one is reported.
 */
void monp_removelockfile(void);

#endif
