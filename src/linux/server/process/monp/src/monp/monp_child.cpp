/*
 * The life of one started process, for both start operations: fork, wait with escalation, end status.
 */
#include "monp_child.h"

#include "monp_command.h"
#include "monp_log.h"
#include "monp_signal.h"
#include "monp_view.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

void monp_child_init(PMONP_CHILD_INFO pchild, int nwait, int nsig)
{
    *pchild = {};
    pchild->nwait = nwait;
    pchild->nsig = nsig;
    pchild->nwsig = nsig;
}

int monp_child_access(const char* ppath)
{
    int nfuncret = MONP_RET_SUCCESS;

    if (access(ppath, X_OK) != 0) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("access() failed. (type=%s errno=%d)", gview.pmonpol->type, errno);
    }
    return nfuncret;
}

int monp_child_fork(const char* ppath, char** parg, PMONP_CHILD_INFO pchild)
{
    int nfuncret = MONP_RET_SUCCESS;
    pid_t npid = fork();

    if (npid < 0) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("fork() failed. (type=%s errno=%d)", gview.pmonpol->type, errno);
        goto monp_exit_func;
    }
    if (npid == 0) {
        execv(ppath, parg);
        /* The log library promises to be safe here; nothing else that may take a lock is. */
        MONP_ERROR("execv() failed. (type=%s path=%s errno=%d)", gview.pmonpol->type, ppath, errno);
        _exit(MONP_RET_FAIL_UNKNOWN);
    }
    pchild->npid = npid;
    pchild->bfork = -1;

monp_exit_func:
    return nfuncret;
}

void monp_child_unblockend(void)
{
    sigset_t set;

    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void monp_child_signal(const MONP_CHILD_INFO* pchild, int nsig)
{
    if (pchild->nsig > 0) {
        kill(pchild->npid, nsig);
        MONP_INFO("throw exit signal. (type=%s pid=%d sig=%d)", gview.pmonpol->type, pchild->npid, nsig);
    }
}

int monp_release_launcher(void)
{
    int bsent = 0;
    pid_t npid = 0;

    if (gmonpppid > 0 && gview.ppol->parent_initto > 0) {
        /* Both threads come by here; the exchange lets one of them through. */
        npid = gmonpppid.exchange(0);
        bsent = npid > 0 ? -1 : 0;
        /* It is our parent as long as it lives; after that its pid may be anybody's, and SIGUSR1 kills by default. */
        if (npid > 0 && npid == getppid()) {
            kill(npid, SIGUSR1);
        }
    }
    return bsent;
}

/*
 * One pass under an end request: the exit signal first, then nwait pauses, then SIGKILL.
 * Result: -1 when the wait is given up, else 0.
 */
static int monp_child_end(PMONP_CHILD_INFO pchild)
{
    int bgiveup = 0;

    if (pchild->ntimer <= 0) {
        monp_child_signal(pchild, pchild->nwsig);
    }
    if (pchild->nwait <= 0) {
        pchild->ntimer = INT_MAX;
        monp_pausewhole(nullptr);
    } else if (pchild->bkill != 0) {
        bgiveup = -1;
    } else if (pchild->ntimer >= pchild->nwait) {
        /* One more poll, without a pause, before SIGKILL goes out. */
        pchild->nwsig = SIGKILL;
        pchild->ntimer = 0;
        pchild->bkill = -1;
    } else {
        pchild->ntimer++;
        monp_pausewhole(nullptr);
    }
    return bgiveup;
}

/*
 * Looks once whether the process has ended.
 * Result: -1 when it has, or cannot be awaited, else 0.
 */
static int monp_child_poll(PMONP_CHILD_INFO pchild)
{
    if (pchild->bfork != 0) {
        pchild->nret = waitpid(pchild->npid, &pchild->nstat, WNOHANG);
    } else {
        pchild->nret = kill(pchild->npid, 0);
    }
    pchild->nerrno = errno;
    return pchild->nret != 0 ? -1 : 0;
}

void monp_child_wait(PMONP_CHILD_INFO pchild)
{
    int bended = 0;

    while (bended == 0) {
        if (monp_testflag(gbmonpinited) != 0) {
            monp_release_launcher();
        }
        if (monp_testflag(gbmonpend) == 0) {
            monp_pausewhole(&gbmonpend);
        } else if (monp_child_end(pchild) != 0) {
            break;
        }
        bended = monp_child_poll(pchild);
    }
}

int monp_child_decode(const MONP_CHILD_INFO* pchild, int* pstat)
{
    int bnormal = 0;
    int nstat = pchild->nstat;

    if (WIFEXITED(nstat)) {
        bnormal = -1;
        *pstat = WEXITSTATUS(nstat);
        MONP_INFO("process exited. (type=%s pid=%d stat=%d)", gview.pmonpol->type, pchild->npid, *pstat);
    } else if (WIFSIGNALED(nstat)) {
        if (WTERMSIG(nstat) != SIGUSR1) {
            MONP_ERROR("process exited for term signal. (type=%s pid=%d stat=%d sig=%d)", gview.pmonpol->type,
                       pchild->npid, nstat, WTERMSIG(nstat));
            *pstat = MONP_EXEC_SIGNALED;
        }
        if (WCOREDUMP(nstat)) {
            MONP_ERROR("process exited for core was outed. (type=%s pid=%d stat=%d sig=%d)", gview.pmonpol->type,
                       pchild->npid, nstat, WTERMSIG(nstat));
            *pstat = MONP_EXEC_CORE;
        }
    } else if (WIFSTOPPED(nstat)) {
        MONP_ERROR("process exited for stop signal. (type=%s pid=%d stat=%d sig=%d)", gview.pmonpol->type, pchild->npid,
                   nstat, WSTOPSIG(nstat));
        *pstat = MONP_EXEC_STOPPED;
    } else {
        MONP_ERROR("process exited, but status is unknown. (type=%s pid=%d stat=%d)", gview.pmonpol->type, pchild->npid,
                   nstat);
        *pstat = MONP_EXEC_UNKNOWN;
    }
    return bnormal;
}

/* Reads a record that the collection thread has no copy of; its wait has no limit and never comes here. */
int monp_child_forcedstat(void)
{
    return monp_isnodedown(gmonpparam.action) != 0 ? MONP_EXEC_PROCKILL : 0;
}
