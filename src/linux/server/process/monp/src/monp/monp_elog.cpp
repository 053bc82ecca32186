/*
 * The error-log collection: what the collection thread does, from start to end, and how it is started.
 */
#include "monp_elog.h"

#include "monp.h"
#include "monp_command.h"
#include "monp_log.h"
#include "monp_path.h"
#include "monp_view.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

/*
 * Joins the texts. An archive path that does not fit takes the program away with it: an archive must not land
 * elsewhere.
 */
static void monp_elog_texts(PMONP_COLLECTOR_INFO pcollector)
{
    monp_programpath(gview.ppol->elog.scr, &pcollector->prog);
    MONP_INFO("path=%s bin=%s", pcollector->prog.szpath, pcollector->prog.szbin);

    if (monp_join(pcollector->sztype, sizeof(pcollector->sztype), "type pair", "%s-%s", gview.ppol->type,
                  gview.pmonpol->type) != MONP_RET_SUCCESS) {
        snprintf(pcollector->sztype, sizeof(pcollector->sztype), "%s", gview.pmonpol->type);
    }
    if (monp_join(pcollector->szarc, sizeof(pcollector->szarc), "archive path", "%s%s", gview.pallpol->instpath,
                  gview.ppol->elog.arc) != MONP_RET_SUCCESS) {
        pcollector->prog.szpath[0] = '\0';
    }
}

static void monp_elog_arguments(PMONP_COLLECTOR_INFO pcollector)
{
    int nnum = 0;
    int nret = 0;
    int nrotate = gview.ppol->elog.rotate;

    monp_addarg(pcollector->pargv, &nnum, pcollector->prog.szbin);
    monp_addarg(pcollector->pargv, &nnum, "-t");
    monp_addarg(pcollector->pargv, &nnum, pcollector->sztype);
    if ((gview.ppol->elog.pattern & MONP_ELOG_PATTERN_LOG) != 0) {
        monp_addarg(pcollector->pargv, &nnum, "-l");
    }
    if ((gview.ppol->elog.pattern & MONP_ELOG_PATTERN_MDMP) != 0) {
        monp_addarg(pcollector->pargv, &nnum, "-d");
    }
    monp_addarg(pcollector->pargv, &nnum, "-o");
    monp_addarg(pcollector->pargv, &nnum, pcollector->szarc);

    nret = cs_itoasc(nrotate, sizeof(pcollector->szrotate), pcollector->szrotate, monp_log_take());
    monp_log_leave();
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
    int nfuncret = MONP_RET_SUCCESS;
    int nstat = 0;
    int bexecnow = 0;
    MONP_COLLECTOR_INFO collector = {};

    MONP_INFO("start - (type=%s)", gview.pmonpol->type);

    if (!gmonpstate.bexec.compare_exchange_strong(bexecnow, -1)) {
        MONP_INFO("now elog collecting. (type=%s exec=%d)", gview.pmonpol->type, bexecnow);
        goto monp_exit_func;
    }

    monp_elog_command(&collector);
    nfuncret = monp_create_process(collector.prog.szpath, collector.pargv, 0, 0, nullptr, &nstat, CS_FLAG_ON);
    if (nfuncret != MONP_RET_SUCCESS) {
        MONP_ERROR("monp_create_process() failed. (type=%s ret=%d path=%s)", gview.pmonpol->type, nfuncret,
                   collector.prog.szpath);
    }
    gmonpstate.bexec = 0;

monp_exit_func:
    MONP_INFO("end - (type=%s ret=%d stat=%d)", gview.pmonpol->type, nfuncret, nstat);
    return nfuncret;
}

/* The records at the moment of a collection's start. */
typedef struct {
    MONP_ALLPOLICY_INFO allpol;
    MONP_MYPOLICY_INFO pol;
    MONP_CPROCPOLICY_INFO monpol;
} MONP_COPY_INFO, *PMONP_COPY_INFO;

/*
 * The thread's entry. The copies are its own from here on.
 */
static void* monp_elog_thread(void* pparm)
{
    PMONP_COPY_INFO pcopy = static_cast<PMONP_COPY_INFO>(pparm);

    gview = { &pcopy->allpol, &pcopy->pol, &pcopy->monpol };
    monp_elog_collect(nullptr);
    free(pcopy);
    return nullptr;
}

/*
 * The main thread, the only one that writes the records, copies them before the thread is there, and the creation of a
 * thread orders all that came before it. So no lock is needed, nobody waits, and neither a text nor a pair of settings
 * can be half of one configuration and half of the next.
 */
void monp_elog_start(void)
{
    int nret = 0;
    pthread_t ntid = {};
    PMONP_COPY_INFO pcopy = static_cast<PMONP_COPY_INFO>(calloc(1, sizeof(MONP_COPY_INFO)));

    if (pcopy == nullptr) {
        MONP_ERROR("calloc() failed. (type=%s errno=%d)", gmonpmonpol.type, errno);
        goto monp_exit_func;
    }
    *pcopy = { gmonpallpol, gmonppol, gmonpmonpol };
    nret = pthread_create(&ntid, &gmonpthattr_elog, monp_elog_thread, pcopy);
    if (nret != 0) {
        MONP_INFO("pthread_create() failed. (type=%s ret=%d)", gmonpmonpol.type, nret);
        free(pcopy);
    }

monp_exit_func:
    return;
}
