/*
 * The start of the service: adopt a running one or start it, wait for its report, then for its end.
 */
#include "monp.h"
#include "monp_child.h"
#include "monp_log.h"
#include "monp_signal.h"

#include <cerrno>
#include <csignal>
#include <sys/wait.h>

/*
 * Forgets the requests from before the start, but an end request that the loop could not see any more.
 */
static void monp_svc_forget(void)
{
    gmonpstate.breported = 0;
    gbmonpinited = 0;
    if (gmonpstate.bendtested == 0) {
        gbmonpend = 0;
    }
    gmonpstate.bendtested = 0;
}

/*
 * Finds the running service, or starts it.
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_UNKNOWN when the fork failed.
 */
static int monp_svc_start(char* ppath, char** parg, PMONP_CHILD_INFO pchild)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nret = monp_getservice(ppath, &pchild->npid);

    if (nret == MONP_RET_SUCCESS) {
        MONP_INFO("service process is already started. (type=%s)", gmonpmonpol.type);
        gbmonpinited = -1;
        monp_make_mdfile();
        goto monp_exit_func;
    }
    MONP_INFO("monp_getservice(%s) not found. (ret:%d)", ppath, nret);
    nfuncret = monp_child_fork(ppath, parg, pchild);

monp_exit_func:
    return nfuncret;
}

/*
 * Waits for the report of the service. The flag is tested before each pause, so one that comes during the last pause is
 * late.
 * Result: -1 when it came in time, else 0.
 */
static int monp_svc_waitreport(void)
{
    int i = 0;

    while (i < gmonppol.child_initto && monp_testflag(gbmonpinited) == 0) {
        monp_pausewhole(&gbmonpinited);
        i++;
    }
    return i < gmonppol.child_initto ? -1 : 0;
}

/*
 * Ends a service that did not report, and reaps it.
 */
static void monp_svc_abandon(PMONP_CHILD_INFO pchild)
{
    monp_release_launcher();
    monp_child_signal(pchild, pchild->nwsig);
    monp_pausewhole(nullptr);
    if (kill(pchild->npid, 0) == 0) {
        monp_child_signal(pchild, SIGKILL);
    }
    gbmonpinited = 0;
    pchild->nret = waitpid(pchild->npid, &pchild->nstat, 0);
    pchild->nerrno = errno;
}

/*
 * Tells how the service ended.
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_UNKNOWN when the wait for it failed.
 */
static int monp_svc_outcome(const MONP_CHILD_INFO* pchild, int* pstat)
{
    int nfuncret = MONP_RET_SUCCESS;

    if (pchild->bfork == 0) {
        if (monp_testflag(gbmonpend) != 0) {
            *pstat = 0;
        }
    } else if (pchild->nret < 0) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_WARNING("waitpid() failed. (type=%s errno=%d)", gmonpmonpol.type, pchild->nerrno);
        goto monp_exit_func;
    } else if (pchild->nret > 0 && monp_child_decode(pchild, pstat) != 0) {
        /* A normal exit tells its own status, even when it came just before SIGKILL. */
        goto monp_exit_func;
    }
    monp_make_mdfile();
    if (pchild->bkill != 0) {
        *pstat = monp_child_forcedstat();
    }

monp_exit_func:
    return nfuncret;
}

int monp_create_process_svc(char* ppath, char** parg, int nwait, int nsig, pid_t* ppid, int* pstat, int bstd)
{
    int nfuncret = MONP_RET_SUCCESS;
    MONP_CHILD_INFO child;

    MONP_INFO("start - (type=%s path=%s argv=%p wait=%d pid=%p stat=%p std=%d", gmonpmonpol.type, ppath,
              static_cast<void*>(parg), nwait, static_cast<void*>(ppid), static_cast<void*>(pstat), bstd);

    monp_child_init(&child, nwait, nsig);
    *pstat = MONP_EXEC_PROCKILL;
    monp_svc_forget();
    if (ppid != nullptr) {
        *ppid = 0;
    }

    nfuncret = monp_child_access(ppath);
    if (nfuncret != MONP_RET_SUCCESS) {
        goto monp_exit_func;
    }
    nfuncret = monp_svc_start(ppath, parg, &child);
    if (nfuncret != MONP_RET_SUCCESS) {
        goto monp_exit_func;
    }
    monp_child_unblockend();
    if (ppid != nullptr) {
        *ppid = child.npid;
    }

    gmonpstate.breported = monp_svc_waitreport();
    if (gmonpstate.breported != 0) {
        monp_child_wait(&child);
    } else {
        monp_svc_abandon(&child);
    }
    nfuncret = monp_svc_outcome(&child, pstat);

monp_exit_func:
    MONP_INFO("end - (type=%s ret=%d pid=%d stat=%d)", gmonpmonpol.type, nfuncret, child.npid, *pstat);
    /* A late report is not a request for another start. The lines of what is dropped here belong in front of those of
       the failure. In this order, for what comes in between keeps its flag and is a request of its own. */
    if (gmonpstate.breported == 0) {
        gbmonpinited = 0;
        monp_drainsignals();
    }
    return nfuncret;
}
