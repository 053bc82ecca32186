/*
 * The recovery table, and the drastic actions: stop of the cluster daemons, halt and reboot of the node.
 */
#include "monp.h"
#include "monp_log.h"
#include "monp_run.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>

/*
 * The restart row is also the service start itself: the loop finds it here before the first start.
 */
constinit const MONP_RECOVER_ITEMS gmonprecover[6] = {
    { MONP_ACT_NONE, { .precover = nullptr } },
    { MONP_ACT_RESTART, { .pstart = monp_create_process_svc } },
    { MONP_ACT_STOP_CLSDAEMON, { .precover = monp_stop_cluster } },
    { MONP_ACT_OS_HALT, { .precover = monp_os_halt } },
    { MONP_ACT_OS_REBOOT, { .precover = monp_os_reboot } },
    { 0, { .precover = nullptr } },
};

int monp_findrow(int naction)
{
    int ninx = 0;

    while (gmonprecover[ninx].action != 0 && gmonprecover[ninx].action != naction) {
        ninx++;
    }
    return ninx;
}

/*
 * A command of the policy and how it went.
 */
typedef struct {
    MONP_PROGRAM_INFO prog;
    int nret;  /* result of its start */
    int nstat; /* its end status; -1: it never ran */
} MONP_COMMAND_INFO, *PMONP_COMMAND_INFO;

/*
 * Runs the command of a policy section as "name [option] --type TYPE --nochk" and waits for its end.
 *   psection  name of the section
 *   poption   the command's own option; null: none
 *   pcommand  out
 * Result: MONP_RET_SUCCESS, however the command went, or MONP_RET_FAIL_UNKNOWN when its policy could not be read.
 */
static int monp_runcommand(char* psection, const char* poption, PMONP_COMMAND_INFO pcommand)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nnum = 0;
    MONP_CPROCPOLICY_INFO policy = {};
    char* pargv[MONP_OPT_NUM] = {};

    *pcommand = {};
    pcommand->nstat = MONP_EXEC_PROCKILL;

    nfuncret = monp_xml_getcprocpolicy(psection, &policy);
    if (nfuncret != MONP_RET_SUCCESS) {
        MONP_ERROR("monp_xml_getcprocpolicy() failed. (type=%s ret=%d ldtype=%s)", gmonpmonpol.type, nfuncret,
                   psection);
        goto monp_exit_func;
    }
    monp_programpath(policy.path, &pcommand->prog);
    MONP_INFO("path=%s bin=%s", pcommand->prog.szpath, pcommand->prog.szbin);

    monp_addarg(pargv, &nnum, pcommand->prog.szbin);
    if (poption != nullptr) {
        monp_addarg(pargv, &nnum, poption);
    }
    monp_addarg(pargv, &nnum, "--type");
    monp_addarg(pargv, &nnum, gmonppol.type);
    monp_addarg(pargv, &nnum, "--nochk");
    monp_addarg(pargv, &nnum, nullptr);

    pcommand->nret = monp_create_process(pcommand->prog.szpath, pargv, 0, 0, nullptr, &pcommand->nstat, CS_FLAG_ON);
    if (pcommand->nret != MONP_RET_SUCCESS) {
        MONP_ERROR("monp_create_process() failed. (type=%s ret=%d path=%s)", gmonpmonpol.type, pcommand->nret,
                   pcommand->prog.szpath);
    }

monp_exit_func:
    return nfuncret;
}

static int monp_hasfailed(const MONP_COMMAND_INFO* pcommand)
{
    return pcommand->nret != MONP_RET_SUCCESS || pcommand->nstat != 0 ? -1 : 0;
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

int monp_stop_cluster(void)
{
    int nfuncret = MONP_RET_SUCCESS;
    char szsection[] = "cl";
    MONP_COMMAND_INFO command;

    MONP_TRACE("start - (type=%s)", gmonpmonpol.type);
    MONP_EVENT(MONP_EVTID_ACT_STOP_DAEMON, gmonpmonpol.type);

    nfuncret = monp_runcommand(szsection, "-t", &command);
    if (nfuncret != MONP_RET_SUCCESS || monp_hasfailed(&command) == 0) {
        goto monp_exit_func;
    }
    nfuncret = MONP_RET_FAIL_UNKNOWN;
    if (command.nret == MONP_RET_SUCCESS) {
        MONP_ERROR("stop of cluster failed. (type=%s ret=%d path=%s stat=%#x)", gmonpmonpol.type, command.nret,
                   command.prog.szpath, static_cast<unsigned>(command.nstat));
    }

monp_exit_func:
    if (nfuncret != MONP_RET_SUCCESS) {
        MONP_EVENT(MONP_EVTID_FAIL_STOP_DAEMON, command.nstat);
    }
    MONP_TRACE("end - (type=%s ret=%d)", gmonpmonpol.type, nfuncret);
    return nfuncret;
}

int monp_os_halt(void)
{
    int nfuncret = MONP_RET_SUCCESS;
    char szsection[] = "down";
    MONP_COMMAND_INFO command;

    MONP_TRACE("start - (type=%s)", gmonpmonpol.type);
    MONP_EVENT(MONP_EVTID_ACT_HALT_SYSTEM, gmonpmonpol.type);

    nfuncret = monp_runcommand(szsection, nullptr, &command);
    if (nfuncret != MONP_RET_SUCCESS || monp_hasfailed(&command) == 0) {
        goto monp_exit_func;
    }
    MONP_ERROR("system halt failed. (type=%s ret=%d path=%s stat=%#x)", gmonpmonpol.type, command.nret,
               command.prog.szpath, static_cast<unsigned>(command.nstat));
    nfuncret = monp_shutdown("/sbin/shutdown -h now");

monp_exit_func:
    if (nfuncret != MONP_RET_SUCCESS) {
        MONP_EVENT(MONP_EVTID_FAIL_HALT_SYSTEM, command.nstat);
    }
    MONP_TRACE("end - (type=%s ret=%d)", gmonpmonpol.type, nfuncret);
    return nfuncret;
}

int monp_os_reboot(void)
{
    int nfuncret = MONP_RET_SUCCESS;
    char szsection[] = "down";
    MONP_COMMAND_INFO command;

    MONP_TRACE("start - (type=%s)", gmonpmonpol.type);
    MONP_EVENT(MONP_EVTID_ACT_REBOOT_SYSTEM, gmonpmonpol.type);

    nfuncret = monp_runcommand(szsection, "-r", &command);
    if (nfuncret != MONP_RET_SUCCESS || monp_hasfailed(&command) == 0) {
        goto monp_exit_func;
    }
    MONP_ERROR("system reboot failed. (type=%s ret=%d path=%s stat=%#x)", gmonpmonpol.type, command.nret,
               command.prog.szpath, static_cast<unsigned>(command.nstat));
    nfuncret = monp_shutdown("/sbin/shutdown -r now");

monp_exit_func:
    if (nfuncret != MONP_RET_SUCCESS) {
        MONP_EVENT(MONP_EVTID_FAIL_REBOOT_SYSTEM, command.nstat);
    }
    MONP_TRACE("end - (type=%s ret=%d)", gmonpmonpol.type, nfuncret);
    return nfuncret;
}
