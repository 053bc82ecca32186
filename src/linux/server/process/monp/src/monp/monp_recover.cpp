/*
 * The recovery table, and the drastic actions: stop of the cluster daemons, halt and reboot of the node.
 */
#include "monp.h"
#include "monp_command.h"
#include "monp_log.h"
#include "monp_run.h"

#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <sys/wait.h>

/*
 * The restart row is also the service start itself: the loop finds it here before the first start.
 */
constexpr MONP_RECOVER_ITEMS gmonprecover[] = {
    { .action = MONP_ACT_NONE, .pfunc = { .precover = nullptr } },
    { .action = MONP_ACT_RESTART, .pfunc = { .pstart = monp_create_process_svc } },
    { .action = MONP_ACT_STOP_CLSDAEMON, .pfunc = { .precover = monp_stop_cluster } },
    { .action = MONP_ACT_OS_HALT, .pfunc = { .precover = monp_os_halt } },
    { .action = MONP_ACT_OS_REBOOT, .pfunc = { .precover = monp_os_reboot } },
    { .action = 0, .pfunc = { .precover = nullptr } },
};

static constexpr MONP_DRASTIC_ITEMS gdrastic[] = {
    { .action = MONP_ACT_STOP_CLSDAEMON,
      .bnodedown = 0,
      .psection = "cl",
      .poption = "-t",
      .nactevent = MONP_EVTID_ACT_STOP_DAEMON,
      .nfailevent = MONP_EVTID_FAIL_STOP_DAEMON,
      .pfailed = "stop of cluster failed. (type=%s ret=%d path=%s stat=%#x)",
      .pfallback = nullptr },
    { .action = MONP_ACT_OS_HALT,
      .bnodedown = -1,
      .psection = "down",
      .poption = nullptr,
      .nactevent = MONP_EVTID_ACT_HALT_SYSTEM,
      .nfailevent = MONP_EVTID_FAIL_HALT_SYSTEM,
      .pfailed = "system halt failed. (type=%s ret=%d path=%s stat=%#x)",
      .pfallback = "/sbin/shutdown -h now" },
    { .action = MONP_ACT_OS_REBOOT,
      .bnodedown = -1,
      .psection = "down",
      .poption = "-r",
      .nactevent = MONP_EVTID_ACT_REBOOT_SYSTEM,
      .nfailevent = MONP_EVTID_FAIL_REBOOT_SYSTEM,
      .pfailed = "system reboot failed. (type=%s ret=%d path=%s stat=%#x)",
      .pfallback = "/sbin/shutdown -r now" },
};

constinit const std::span<const MONP_DRASTIC_ITEMS> gmonpdrastic = gdrastic;

static constexpr int MONP_ACT_NUM = static_cast<int>(std::size(gmonprecover)) - 1; /* without the row at the end */

/*
 * Whether the actions count up from 1 and the end row is the last: a search ends there, and messages give the range.
 */
static constexpr int monp_recoverfits(void)
{
    int bfits = gmonprecover[MONP_ACT_NUM].action == 0 ? -1 : 0;
    int ninx = 0;

    for (ninx = 0; ninx < MONP_ACT_NUM; ninx++) {
        if (gmonprecover[ninx].action != ninx + 1) {
            bfits = 0;
        }
    }
    return bfits;
}
static_assert(monp_recoverfits() != 0, "a row for each action from 1 on, then the row that ends the table");

/*
 * Whether each drastic row is whole, and stands behind the row of a lower action.
 */
static constexpr int monp_drasticfits(void)
{
    int bfits = -1;
    int nlast = MONP_ACT_RESTART;

    for (const MONP_DRASTIC_ITEMS& row : gdrastic) {
        if (row.action <= nlast || row.action > MONP_ACT_NUM || row.psection == nullptr || row.pfailed == nullptr ||
            row.nactevent == 0 || row.nfailevent == 0) {
            bfits = 0;
        }
        nlast = row.action;
    }
    return bfits;
}
static_assert(monp_drasticfits() != 0, "whole rows, in the order of the actions");
static_assert(std::size(gdrastic) == MONP_ACT_NUM - MONP_ACT_RESTART, "a row for each action that runs a command");

int monp_findrow(int naction)
{
    int ninx = 0;

    while (gmonprecover[ninx].action != 0 && gmonprecover[ninx].action != naction) {
        ninx++;
    }
    return ninx;
}

int monp_lastaction(void)
{
    return MONP_ACT_NUM;
}

const MONP_DRASTIC_ITEMS* monp_finddrastic(int naction)
{
    const MONP_DRASTIC_ITEMS* pfound = nullptr;

    for (const MONP_DRASTIC_ITEMS& row : gdrastic) {
        if (row.action == naction) {
            pfound = &row;
        }
    }
    return pfound;
}

int monp_isnodedown(int naction)
{
    const MONP_DRASTIC_ITEMS* prow = monp_finddrastic(naction);

    return prow != nullptr ? prow->bnodedown : 0;
}

/*
 * A command of the policy and how it went.
 */
typedef struct {
    MONP_PROGRAM_INFO prog;
    int nret;  /* result of its start */
    int nstat; /* its end status; -1: it never ran */
} MONP_COMMAND_INFO, *PMONP_COMMAND_INFO;

void monp_drastic_command(const MONP_DRASTIC_ITEMS* prow, const char* ppath, PMONP_PROGRAM_INFO pprog, char** pargv)
{
    int nnum = 0;

    monp_programpath(ppath, pprog);
    MONP_INFO("path=%s bin=%s", pprog->szpath, pprog->szbin);

    monp_addarg(pargv, &nnum, pprog->szbin);
    if (prow->poption != nullptr) {
        monp_addarg(pargv, &nnum, prow->poption);
    }
    monp_addarg(pargv, &nnum, "--type");
    monp_addarg(pargv, &nnum, gmonppol.type);
    monp_addarg(pargv, &nnum, "--nochk");
    monp_addarg(pargv, &nnum, nullptr);
}

/*
 * Runs the command of an action and waits for its end.
 * Result: MONP_RET_SUCCESS, however the command went, or MONP_RET_FAIL_UNKNOWN when its policy could not be read.
 */
static int monp_runcommand(const MONP_DRASTIC_ITEMS* prow, PMONP_COMMAND_INFO pcommand)
{
    int nfuncret = MONP_RET_SUCCESS;
    MONP_CPROCPOLICY_INFO policy = {};
    char* pargv[MONP_OPT_NUM] = {};

    *pcommand = {};
    pcommand->nstat = MONP_EXEC_PROCKILL;

    /* The name is not written to. */
    nfuncret = monp_xml_getcprocpolicy(const_cast<char*>(prow->psection), &policy);
    if (nfuncret != MONP_RET_SUCCESS) {
        MONP_ERROR("monp_xml_getcprocpolicy() failed. (type=%s ret=%d ldtype=%s)", gmonpmonpol.type, nfuncret,
                   prow->psection);
        goto monp_exit_func;
    }
    monp_drastic_command(prow, policy.path, &pcommand->prog, pargv);
    pcommand->nret = monp_create_process(pcommand->prog.szpath, pargv, 0, 0, nullptr, &pcommand->nstat, CS_FLAG_ON);
    if (pcommand->nret != MONP_RET_SUCCESS) {
        MONP_ERROR("monp_create_process() failed. (type=%s ret=%d path=%s)", gmonpmonpol.type, pcommand->nret,
                   pcommand->prog.szpath);
    }

monp_exit_func:
    return nfuncret;
}

/*
 * The fall-back of halt and reboot: runs a shutdown command line.
 * Result: MONP_RET_SUCCESS or MONP_RET_FAIL_UNKNOWN.
 */
static int monp_shutdown(const char* pcmdline)
{
    int nfuncret = MONP_RET_FAIL_UNKNOWN;
    int nret = 0;
    int nstat = 0;

    MONP_INFO("retry, path=%s", pcmdline);
    /* A command that merely fails leaves errno alone; the line must not show an older one. */
    errno = 0;
    nret = system(pcmdline);
    nstat = WEXITSTATUS(nret);
    if (WTERMSIG(nret) != 0) {
        /* The shell ended by a signal, or there was none: -1 has these bits, too. */
        MONP_ERROR("system(%s) failed. (ret:%d,errno:%d)", pcmdline, nret, errno);
    } else if (nstat != 0) {
        MONP_ERROR("cmd(%s) failed (ret=%d errno=%d).", pcmdline, nstat, errno);
    } else {
        MONP_INFO("cmd(%s) success.", pcmdline);
        nfuncret = MONP_RET_SUCCESS;
    }
    return nfuncret;
}

/*
 * Carries out a drastic action.
 * Result: MONP_RET_SUCCESS or MONP_RET_FAIL_UNKNOWN.
 */
static int monp_drastic(int naction)
{
    int nfuncret = MONP_RET_SUCCESS;
    MONP_COMMAND_INFO command;
    const MONP_DRASTIC_ITEMS* prow = monp_finddrastic(naction);

    MONP_EVENT(prow->nactevent, gmonpmonpol.type);

    nfuncret = monp_runcommand(prow, &command);
    if (nfuncret != MONP_RET_SUCCESS || (command.nret == MONP_RET_SUCCESS && command.nstat == 0)) {
        goto monp_exit_func;
    }
    nfuncret = MONP_RET_FAIL_UNKNOWN;
    /* Where nothing is tried next, the failed start has been reported already. */
    if (prow->pfallback == nullptr && command.nret != MONP_RET_SUCCESS) {
        goto monp_exit_func;
    }
    MONP_ERROR(prow->pfailed, gmonpmonpol.type, command.nret, command.prog.szpath,
               static_cast<unsigned>(command.nstat));
    if (prow->pfallback != nullptr) {
        nfuncret = monp_shutdown(prow->pfallback);
    }

monp_exit_func:
    if (nfuncret != MONP_RET_SUCCESS) {
        MONP_EVENT(prow->nfailevent, command.nstat);
    }
    return nfuncret;
}

int monp_stop_cluster(void)
{
    int nfuncret = MONP_RET_SUCCESS;

    MONP_TRACE("start - (type=%s)", gmonpmonpol.type);
    nfuncret = monp_drastic(MONP_ACT_STOP_CLSDAEMON);

monp_exit_func:
    __attribute__((unused));
    MONP_TRACE("end - (type=%s ret=%d)", gmonpmonpol.type, nfuncret);
    return nfuncret;
}

int monp_os_halt(void)
{
    int nfuncret = MONP_RET_SUCCESS;

    MONP_TRACE("start - (type=%s)", gmonpmonpol.type);
    nfuncret = monp_drastic(MONP_ACT_OS_HALT);

monp_exit_func:
    __attribute__((unused));
    MONP_TRACE("end - (type=%s ret=%d)", gmonpmonpol.type, nfuncret);
    return nfuncret;
}

int monp_os_reboot(void)
{
    int nfuncret = MONP_RET_SUCCESS;

    MONP_TRACE("start - (type=%s)", gmonpmonpol.type);
    nfuncret = monp_drastic(MONP_ACT_OS_REBOOT);

monp_exit_func:
    __attribute__((unused));
    MONP_TRACE("end - (type=%s ret=%d)", gmonpmonpol.type, nfuncret);
    return nfuncret;
}
