/*
 * The configuration load: the policy library is open for the length of this call only, and each step of the set-up is
 * undone exactly when it was reached.
 */
#include "monp.h"
#include "monp_log.h"

/*
 * Fills the records from the loaded sections.
 *   pown  name of the monitor's own section
 */
static int monp_readrecords(char* pown)
{
    int nfuncret = MONP_RET_FAIL_UNKNOWN;
    int nret = 0;

    nret = monp_xml_getallpolicy();
    if (nret != MONP_RET_SUCCESS) {
        MONP_ERROR("monp_xml_getallpolicy() failed. (ret=%d type=%s)", nret, "all");
        goto monp_exit_func;
    }
    nret = monp_xml_getmypolicy(pown, &gmonppol);
    if (nret != MONP_RET_SUCCESS) {
        MONP_ERROR("monp_xml_getmypolicy() failed. (ret=%d type=%s)", nret, pown);
        goto monp_exit_func;
    }
    nret = monp_xml_getmonpolicy(gmonpparam.type, &gmonpmonpol);
    if (nret != MONP_RET_SUCCESS) {
        MONP_ERROR("monp_xml_getmonpolicy() failed. (ret=%d type=%s)", nret, gmonpparam.type);
        goto monp_exit_func;
    }

    MONP_INFO("type    -> %s", gmonpparam.type);
    MONP_INFO("action  -> %d", gmonpparam.action);
    MONP_INFO("param   -> %s", gmonpparam.param);
    MONP_INFO("restart -> %d", gmonpparam.restime);
    MONP_INFO("wait    -> %d", gmonpparam.wait);
    nfuncret = MONP_RET_SUCCESS;

monp_exit_func:
    return nfuncret;
}

int monp_getconfig(void)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nret = 0;
    char szall[] = "all";
    char szpm[] = "pm";
    char szmonp[] = "monp";
    char* psections[] = { szall, szpm, szmonp, gmonpparam.type };

    MONP_INFO("start - (type=%s)", gmonpparam.type);

    nret = monp_xml_initialize();
    if (nret != MONP_RET_SUCCESS) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("monp_xml_initialize() failed. (type=%s ret=%d)", gmonpparam.type, nret);
        goto monp_exit_func;
    }

    for (char* psection : psections) {
        nret = monp_xml_loadpolicy(psection);
        if (nret != MONP_RET_SUCCESS) {
            nfuncret = MONP_RET_FAIL_UNKNOWN;
            MONP_ERROR("monp_xml_loadpolicy() failed. (ret=%d type=%s)", nret, psection);
            /* Without the first section there is nothing to unload. */
            if (psection == szall) {
                goto monp_exit_term;
            }
            goto monp_exit_unload;
        }
    }

    /* The cluster runs without a default configuration, too: its one key has a default. */
    nret = monp_xml_loadconfig(nullptr, nullptr);
    if (nret != MONP_RET_SUCCESS) {
        MONP_ERROR("monp_xml_loadconfig() failed. (ret=%d)", nret);
    }

    nfuncret = monp_readrecords(szmonp);

    nret = monp_xml_unloadconfig(nullptr);
    if (nret != MONP_RET_SUCCESS) {
        MONP_WARNING("monp_xml_unloadconfig() failed. (ret=%d)", nret);
    }

monp_exit_unload:
    nret = monp_xml_unloadpolicy(nullptr);
    if (nret != MONP_RET_SUCCESS) {
        MONP_WARNING("monp_xml_unloadpolicy() failed. (type=%s ret=%d)", gmonpparam.type, nret);
    }

monp_exit_term:
    nret = monp_xml_terminate();
    if (nret != MONP_RET_SUCCESS) {
        MONP_WARNING("monp_xml_terminate() failed. (type=%s ret=%d)", gmonpparam.type, nret);
    }

monp_exit_func:
    MONP_INFO("end - (type=%s ret=%d)", gmonpparam.type, nfuncret);
    return nfuncret;
}
