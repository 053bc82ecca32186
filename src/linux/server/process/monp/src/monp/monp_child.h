/*
 * What the two start operations share: starting a child, waiting for a process with the end request in view, and
 * telling how it ended.
 */
#ifndef MONP_CHILD_H
#define MONP_CHILD_H

#include "monp.h"

/*
 * A started or adopted process and the state of the wait for it.
 */
typedef struct {
    pid_t npid; /* 0 while there is none */
    int bfork;  /* -1: our child, which is awaited; 0: adopted, which can only be probed */
    int nwait;  /* seconds from an end request to SIGKILL; 0 or less: no limit */
    int nsig;   /* exit signal; 0 or less: never any signal */
    int ntimer; /* pauses since the end request was first acted on */
    int nwsig;  /* the signal that goes out next */
    int bkill;  /* the escalation has been decided */
    pid_t nret; /* result of the last poll, 0 while still there; below 0 a child's wait failed */
    int nerrno; /* errno of a failed poll */
    int nstat;  /* raw wait status; 0 until a poll has filled it */
} MONP_CHILD_INFO, *PMONP_CHILD_INFO;

/*
 * Begins the record of a process that is to be started.
 */
void monp_child_init(PMONP_CHILD_INFO pchild, int nwait, int nsig);

/*
 * Checks that a program may be executed; a refusal is logged.
 * Result: MONP_RET_SUCCESS or MONP_RET_FAIL_UNKNOWN.
 */
int monp_child_access(const char* ppath);

/*
 * Forks and executes. In the child nothing but execv happens, as the other thread may have held any lock when it was
 * forked; if that fails, one line and _exit with status 4.
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_UNKNOWN when the fork failed, which is logged.
 */
int monp_child_fork(const char* ppath, char** parg, PMONP_CHILD_INFO pchild);

/*
 * Lets an end request reach the calling thread.
 */
void monp_child_unblockend(void);

/*
 * Waits until the process has ended or, after SIGKILL, was given up. Polls once a second; see monp_create_process.
 */
void monp_child_wait(PMONP_CHILD_INFO pchild);

/*
 * Sends a signal to the process and logs it; nothing when it may never be signalled.
 */
void monp_child_signal(const MONP_CHILD_INFO* pchild, int nsig);

/*
 * Turns the raw wait status of a reaped child into the end status, and logs it. An end by SIGUSR1 without a core dump
 * leaves *pstat as it is.
 * Result: -1 after a normal exit, else 0.
 */
int monp_child_decode(const MONP_CHILD_INFO* pchild, int* pstat);

/*
 * End status after a forced end: a node that is to go down must not take it for an orderly one.
 */
int monp_child_forcedstat(void);

/*
 * Sends the launcher's process its SIGUSR1, once in the monitor's life. A process that has ended meanwhile, or whose
 * pid is somebody else's by now, is not signalled, but counts as released.
 * Result: -1 when it was released now, else 0.
 */
int monp_release_launcher(void);

#endif
