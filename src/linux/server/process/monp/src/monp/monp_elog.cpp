/*
 * The error-log collection: what the collection thread does, from start to end.
 */
#include "monp.h"
#include "monp_command.h"
#include "monp_log.h"

#include <cstdio>

/*
 * Joins the texts. An archive path that does not fit takes the program away with it: an archive must not land elsewhere.
 */
static void monp_elog_texts(PMONP_COLLECTOR_INFO pcollector)
{
    monp_programpath(gmonppol.elog.scr, &pcollector->prog);
    MONP_INFO("path=%s bin=%s", pcollector->prog.szpath, pcollector->prog.szbin);

    if (monp_join(pcollector->sztype, sizeof(pcollector->sztype), "type pair", "%s-%s", gmonppol.type,
                  gmonpmonpol.type) != MONP_RET_SUCCESS) {
        snprintf(pcollector->sztype, sizeof(pcollector->sztype), "%s", gmonpmonpol.type);
    }
    if (monp_join(pcollector->szarc, sizeof(pcollector->szarc), "archive path", "%s%s", gmonpallpol.instpath,
                  gmonppol.elog.arc) != MONP_RET_SUCCESS) {
        pcollector->prog.szpath[0] = '\0';
    }
}

static void monp_elog_arguments(PMONP_COLLECTOR_INFO pcollector)
{
    int nnum = 0;
    int nret = 0;
    int nrotate = gmonppol.elog.rotate;

    monp_addarg(pcollector->pargv, &nnum, pcollector->prog.szbin);
    monp_addarg(pcollector->pargv, &nnum, "-t");
    monp_addarg(pcollector->pargv, &nnum, pcollector->sztype);
    if ((gmonppol.elog.pattern & MONP_ELOG_PATTERN_LOG) != 0) {
        monp_addarg(pcollector->pargv, &nnum, "-l");
    }
    if ((gmonppol.elog.pattern & MONP_ELOG_PATTERN_MDMP) != 0) {
        monp_addarg(pcollector->pargv, &nnum, "-d");
    }
    monp_addarg(pcollector->pargv, &nnum, "-o");
    monp_addarg(pcollector->pargv, &nnum, pcollector->szarc);

    nret = cs_itoasc(nrotate, sizeof(pcollector->szrotate), pcollector->szrotate, gpmonplog);
    if (nret != CS_RET_SUCCESS) {
        MONP_INFO("cs_itoasc() failed. (ret=%d rotate=%d)", nret, nrotate);
    } else {
        monp_addarg(pcollector->pargv, &nnum, "-r");
        monp_addarg(pcollector->pargv, &nnum, pcollector->szrotate);
    }
    monp_addarg(pcollector->pargv, &nnum, nullptr);
}

void monp_elog_command(PMONP_COLLECTOR_INFO pcollector)
{
    monp_elog_texts(pcollector);
    monp_elog_arguments(pcollector);
}

int monp_elog_collect(void*)
{
    static std::atomic<int> bexec{ 0 };
    int nfuncret = MONP_RET_SUCCESS;
    int nstat = 0;
    int bexecnow = 0;
    MONP_COLLECTOR_INFO collector = {};

    MONP_INFO("start - (type=%s)", gmonpmonpol.type);

    if (!bexec.compare_exchange_strong(bexecnow, -1)) {
        MONP_INFO("now elog collecting. (type=%s exec=%d)", gmonpmonpol.type, bexecnow);
        goto monp_exit_func;
    }

    monp_elog_command(&collector);
    nfuncret = monp_create_process(collector.prog.szpath, collector.pargv, 0, 0, nullptr, &nstat, CS_FLAG_ON);
    if (nfuncret != MONP_RET_SUCCESS) {
        MONP_ERROR("monp_create_process() failed. (type=%s ret=%d path=%s)", gmonpmonpol.type, nfuncret,
                   collector.prog.szpath);
    }
    bexec = 0;

monp_exit_func:
    MONP_INFO("end - (type=%s ret=%d stat=%d)", gmonpmonpol.type, nfuncret, nstat);
    return nfuncret;
}
