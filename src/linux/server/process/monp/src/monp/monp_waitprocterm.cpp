/*
 * Waiting for a process to be gone. It need not be a child, so it is probed, not awaited.
 */
#include "monp.h"
#include "monp_log.h"
#include "monp_signal.h"

#include <cerrno>
#include <csignal>

/*
 * A pid of 0 or less would make the probe mean process groups, which never go away.
 */
static int monp_exists(pid_t npid)
{
    int nret = -1;

    if (npid <= 0) {
        errno = ESRCH;
        goto monp_exit_func;
    }
    nret = kill(npid, 0);

monp_exit_func:
    return nret == 0 ? -1 : 0;
}

int monp_waitprocterm(pid_t npid, int ntimeout)
{
    int nfuncret = MONP_RET_SUCCESS;
    int ntimer = 0;

    MONP_TRACE("start - (type=%s pid=%d timeout=%d)", gmonpmonpol.type, npid, ntimeout);

    while (monp_exists(npid) != 0) {
        if (ntimeout > 0 && ntimer >= ntimeout) {
            nfuncret = MONP_RET_FAIL_TIMEOUT;
            MONP_INFO("wait timeout. (type=%s pid=%d timeout=%d timer=%d)", gmonpmonpol.type, npid, ntimeout, ntimer);
            goto monp_exit_func;
        }
        monp_pausewhole(nullptr);
        ntimer++;
    }
    MONP_INFO("process ended. (type=%s pid=%d errno=%d)", gmonpmonpol.type, npid, errno);

monp_exit_func:
    MONP_TRACE("end - (type=%s ret=%d pid=%d timer=%d)", gmonpmonpol.type, nfuncret, npid, ntimer);
    return nfuncret;
}
