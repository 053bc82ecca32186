/*
 * The common start operation: a program is started, awaited and its end told.
 */
#include "monp.h"
#include "monp_child.h"
#include "monp_log.h"
#include "monp_view.h"

int monp_create_process(char* ppath, char** parg, int nwait, int nsig, pid_t* ppid, int* pstat, int bstd)
{
    int nfuncret = MONP_RET_SUCCESS;
    MONP_CHILD_INFO child;

    MONP_INFO("start - (type=%s path=%s argv=%p wait=%d pid=%p stat=%p std=%d", gview.pmonpol->type, ppath,
              static_cast<void*>(parg), nwait, static_cast<void*>(ppid), static_cast<void*>(pstat), bstd);

    monp_child_init(&child, nwait, nsig);
    *pstat = MONP_EXEC_PROCKILL;
    if (ppid != nullptr) {
        *ppid = 0;
    }

    nfuncret = monp_child_access(ppath);
    if (nfuncret != MONP_RET_SUCCESS) {
        goto monp_exit_func;
    }
    nfuncret = monp_child_fork(ppath, parg, &child);
    if (nfuncret != MONP_RET_SUCCESS) {
        goto monp_exit_func;
    }
    monp_child_unblockend();
    if (ppid != nullptr) {
        *ppid = child.npid;
    }

    monp_child_wait(&child);
    monp_make_mdfile();

    if (child.nret < 0) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_WARNING("waitpid() failed. (type=%s errno=%d)", gview.pmonpol->type, child.nerrno);
    } else if (child.bkill != 0) {
        *pstat = monp_child_forcedstat();
    } else {
        monp_child_decode(&child, pstat);
    }

monp_exit_func:
    MONP_INFO("end - (type=%s ret=%d pid=%d stat=%d)", gview.pmonpol->type, nfuncret, child.npid, *pstat);
    return nfuncret;
}
