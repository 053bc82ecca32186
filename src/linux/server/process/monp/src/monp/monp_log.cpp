/*
 * The life of the one log handle. The main thread opens and closes it; a collection thread may be writing meanwhile.
 */
#include "monp_log.h"

#include <unistd.h>

static constexpr useconds_t MONP_LOG_CLOSESTEP = 1000; /* microseconds between two looks at the lines being written */
static constexpr int MONP_LOG_CLOSESTEPS = 1000;       /* looks before the log is left open */

void monp_log_open(int nlevel, int nsize)
{
    void* plog = nullptr;

    log_init("monp", &plog, nlevel, nsize, 0);
    gpmonplog = plog;
}

void monp_log_close(void)
{
    int nstep = 0;
    void* plog = gpmonplog.exchange(nullptr);

    if (plog == nullptr) {
        goto monp_exit_func;
    }
    /* A call counts itself before it takes the handle. So once there are none, nobody has the old handle any more. */
    while (gmonpstate.nlogusers != 0 && nstep < MONP_LOG_CLOSESTEPS) {
        usleep(MONP_LOG_CLOSESTEP);
        nstep++;
    }
    if (gmonpstate.nlogusers == 0) {
        log_term(plog);
    }

monp_exit_func:
    return;
}

void* monp_log_take(void)
{
    gmonpstate.nlogusers++;
    return gpmonplog;
}

void monp_log_leave(void)
{
    gmonpstate.nlogusers--;
}
