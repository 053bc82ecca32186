/*
 * The supervision loop: start gate, waiting for a request, start of the service, recovery. Each step says which one is
 * next.
 */
#include "monp_run.h"

#include "monp_child.h"
#include "monp_elog.h"
#include "monp_log.h"
#include "monp_mdfile.h"
#include "monp_signal.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <iterator>

typedef enum { MONP_STEP_HEAD, MONP_STEP_WAIT, MONP_STEP_START, MONP_STEP_RECOVER, MONP_STEP_EXIT } MONP_STEP;

/* Types that a dummy configuration holds back, and types that have a use flag. */
static constexpr const char* gdummytypes[] = { "tamzile", "goru", "pelkant" };
static constexpr const char* gusetypes[] = { "tamzile", "sorvin", "lenk" };

static int monp_isoneof(const char* const* ptypes, size_t nnum)
{
    int bfound = 0;
    size_t ninx = 0;

    for (ninx = 0; ninx < nnum; ninx++) {
        if (strcmp(gmonpparam.type, ptypes[ninx]) == 0) {
            bfound = -1;
        }
    }
    return bfound;
}

int monp_isdummy(void)
{
    return gmonpallpol.dummyconf != 0 ? monp_isoneof(gdummytypes, std::size(gdummytypes)) : 0;
}

int monp_isdisabled(void)
{
    return gmonpmonpol.useflag == 0 ? monp_isoneof(gusetypes, std::size(gusetypes)) : 0;
}

static MONP_STEP monp_step_head(void)
{
    MONP_STEP nstep = MONP_STEP_WAIT;

    if (monp_testflag(gbmonpend) != 0) {
        nstep = MONP_STEP_EXIT;
    } else if (monp_isdummy() == 0 && monp_isdisabled() == 0 && monp_testflag(gbmonpinited) != 0 &&
               gbmonpnostart == 0) {
        nstep = MONP_STEP_START;
    }
    return nstep;
}

/*
 * Reads the configuration again.
 * Result: MONP_STEP_EXIT when that failed, MONP_STEP_START when nothing speaks against a start, else MONP_STEP_HEAD
 * after a pause.
 */
static MONP_STEP monp_reload(PMONP_RUN_INFO prun)
{
    MONP_STEP nstep = MONP_STEP_HEAD;
    int nret = 0;

    gbreload = 0;
    MONP_INFO("reload configuration. (type=%s)", gmonpparam.type);
    if (monp_usesmarker() != 0) {
        /* A signal caught before must not make the file after it was removed, as at the start of a run. */
        monp_drainsignals();
        monp_delete_mdfile();
        gmdfilemaked = 0;
    }

    nret = monp_getconfig();
    if (nret != MONP_RET_SUCCESS) {
        nstep = MONP_STEP_EXIT;
        prun->nfuncret = MONP_RET_FAIL_INIT;
        MONP_ERROR("monp_getconfig() failed. (type=%s ret=%d)", gmonpparam.type, nret);
        fprintf(stderr, "%s : monp_getconfig() failed. (ret=%d line=%d)\n", "monp", nret, __LINE__);
        goto monp_exit_func;
    }
    if (monp_isdummy() != 0) {
        MONP_INFO("dummyconf detected.");
    } else if (monp_isdisabled() != 0) {
        MONP_INFO("service is disabled. (type=%s)", gmonpparam.type);
    } else if (gbmonpnostart != 0) {
        MONP_INFO("service is not started. (type=%s)", gmonpparam.type);
    } else {
        nstep = MONP_STEP_START;
        goto monp_exit_func;
    }
    monp_pause();

monp_exit_func:
    return nstep;
}

static MONP_STEP monp_step_wait(PMONP_RUN_INFO prun)
{
    MONP_STEP nstep = MONP_STEP_HEAD;

    if (monp_usesmarker() != 0 && gmdfilemaked == 0) {
        monp_make_mdfile();
    }
    if (monp_release_launcher() != 0) {
        MONP_INFO("waiting for a service start request. (type=%s)", gmonpparam.type);
    }
    if (monp_testflag(gbreload) == 0) {
        monp_pause();
    } else {
        nstep = monp_reload(prun);
    }
    return nstep;
}

/*
 * The service ended because the monitor was asked to end.
 */
static MONP_STEP monp_requestedend(const MONP_RUN_INFO* prun)
{
    MONP_STEP nstep = MONP_STEP_RECOVER;

    if (prun->nstat == MONP_EXEC_PROCKILL) {
        MONP_ERROR("process %s killed. recover is %d. (stat=%d path=%s)", gmonpmonpol.type, gmonpparam.action,
                   prun->nstat, prun->prog.szpath);
        goto monp_exit_func;
    }
    MONP_INFO("monitor term. (type=%s stat=%d path=%s act=%d)", gmonpmonpol.type, prun->nstat, prun->prog.szpath,
              gmonpparam.action);
    if (prun->nstat == 0 || gmonpparam.action == MONP_ACT_NONE || gmonpparam.action == MONP_ACT_RESTART) {
        nstep = MONP_STEP_EXIT;
    }

monp_exit_func:
    return nstep;
}

/*
 * The service ended by itself.
 */
static void monp_unexpectedend(const MONP_RUN_INFO* prun)
{
    MONP_ERROR("process %s exited. recover is %d. (stat=%d path=%s)", gmonpmonpol.type, gmonpparam.action, prun->nstat,
               prun->prog.szpath);
    MONP_EVENT(MONP_EVTID_FAIL_MON, gmonpmonpol.type, prun->nstat);
    monp_elog_start();
}

static MONP_STEP monp_step_start(PMONP_RUN_INFO prun)
{
    MONP_STEP nstep = MONP_STEP_HEAD;
    int nret = 0;

    /* The start forgets end requests that came before this; a reload leaves time for one. */
    gmonpstate.bendtested = -1;
    if (monp_testflag(gbmonpend) != 0) {
        goto monp_exit_func;
    }
    nret = gmonprecover[prun->ninx].pfunc.pstart(prun->prog.szpath, prun->pargv, gmonpparam.wait, SIGUSR1, &prun->npid,
                                                 &prun->nstat, CS_FLAG_OFF);
    if (nret != MONP_RET_SUCCESS) {
        prun->nfuncret = MONP_RET_FAIL_UNKNOWN;
        if (monp_usesmarker() != 0) {
            monp_make_mdfile();
        }
        MONP_ERROR("start of processing failed. (type=%s ret=%d path=%s)", gmonpmonpol.type, nret, prun->prog.szpath);
        MONP_EVENT(MONP_EVTID_FAIL_MON, gmonpmonpol.type, prun->nstat);
    }

    if (gmonpstate.breported == 0) {
        MONP_ERROR("initialize error. (type=%s stat=%d path=%s)", gmonpmonpol.type, prun->nstat, prun->prog.szpath);
        if (monp_usesmarker() != 0) {
            monp_make_mdfile();
        }
        MONP_EVENT(MONP_EVTID_FAIL_INIT, gmonpmonpol.type, prun->nstat);
    } else if (monp_testflag(gbmonpend) != 0) {
        gbmonpend = 0;
        nstep = monp_requestedend(prun);
    } else {
        monp_unexpectedend(prun);
        nstep = MONP_STEP_RECOVER;
    }

monp_exit_func:
    return nstep;
}

/*
 * Counts a restart and waits until the old process is gone.
 */
static MONP_STEP monp_restart(PMONP_RUN_INFO prun)
{
    MONP_STEP nstep = MONP_STEP_EXIT;

    if (gmonpparam.restime > 0) {
        prun->nrestart++;
        if (prun->nrestart > gmonpparam.restime) {
            MONP_INFO("recovery reached maximum. (type=%s time=%d max=%d)", gmonpmonpol.type, prun->nrestart,
                      gmonpparam.restime);
            goto monp_exit_func;
        }
    }
    monp_waitprocterm(prun->npid, 0);
    MONP_EVENT(MONP_EVTID_ACT_RESTART, gmonpmonpol.type, prun->nstat);
    nstep = MONP_STEP_HEAD;

monp_exit_func:
    return nstep;
}

static MONP_STEP monp_step_recover(PMONP_RUN_INFO prun)
{
    MONP_STEP nstep = MONP_STEP_EXIT;
    int nret = 0;
    const MONP_RECOVER_ITEMS* prow = nullptr;

    prun->ninx = monp_findrow(gmonpparam.action);
    prow = &gmonprecover[prun->ninx];
    if (prow->action == MONP_ACT_RESTART) {
        nstep = monp_restart(prun);
        goto monp_exit_func;
    }
    if (prow->action == 0) {
        prun->nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("unknown recovery. (type=%s pact=%d fact=%d)", gmonpmonpol.type, gmonpparam.action, prow->action);
        goto monp_exit_func;
    }
    if (prow->pfunc.precover == nullptr) {
        MONP_INFO("recovery is none. (type=%s pact=%d fact=%d)", gmonpmonpol.type, gmonpparam.action, prow->action);
        goto monp_exit_func;
    }
    nret = prow->pfunc.precover();
    if (nret != MONP_RET_SUCCESS) {
        prun->nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("recovery failed. (type=%s act=%d ret=%d)", gmonpmonpol.type, prow->action, nret);
    }

monp_exit_func:
    return nstep;
}

void monp_loop(PMONP_RUN_INFO prun)
{
    MONP_STEP nstep = MONP_STEP_HEAD;

    prun->ninx = monp_findrow(MONP_ACT_RESTART);
    while (nstep != MONP_STEP_EXIT) {
        switch (nstep) {
        case MONP_STEP_HEAD:
            nstep = monp_step_head();
            break;
        case MONP_STEP_WAIT:
            nstep = monp_step_wait(prun);
            break;
        case MONP_STEP_START:
            nstep = monp_step_start(prun);
            break;
        case MONP_STEP_RECOVER:
            nstep = monp_step_recover(prun);
            break;
        case MONP_STEP_EXIT:
            break;
        }
    }
}
