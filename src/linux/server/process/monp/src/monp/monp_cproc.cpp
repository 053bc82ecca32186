/*
 * The policies of companion processes: the monitored service, and the commands of the recovery actions.
 */
#include "monp.h"
#include "monp_log.h"
#include "monp_polkey.h"
#include "teskxml.h"

#include <cstring>
#include <iterator>

constinit const MONP_POLKEY gmonpcprockeys[2] = {
    { "/root/%s/type", TESKXML_TEXT, offsetof(MONP_CPROCPOLICY_INFO, type), sizeof(MONP_CPROCPOLICY_INFO::type),
      MONP_KEYFAIL_END },
    { "/root/%s/path", TESKXML_TEXT, offsetof(MONP_CPROCPOLICY_INFO, path), sizeof(MONP_CPROCPOLICY_INFO::path),
      MONP_KEYFAIL_END },
};

/*
 * Without the key, the last type counts as disabled, the others as in use.
 */
constinit const MONP_USEKEY gmonpusekeys[3] = {
    { "sorvin",
      { "/root/sorvin/use", TESKXML_INT, offsetof(MONP_CPROCPOLICY_INFO, useflag), sizeof(int), MONP_KEYFAIL_DEFAULT,
        1 } },
    { "tamzile",
      { "/root/tamzile/use", TESKXML_INT, offsetof(MONP_CPROCPOLICY_INFO, useflag), sizeof(int), MONP_KEYFAIL_DEFAULT,
        1 } },
    { "lenk",
      { "/root/lenk/use", TESKXML_INT, offsetof(MONP_CPROCPOLICY_INFO, useflag), sizeof(int), MONP_KEYFAIL_DEFAULT,
        0 } },
};

int monp_xml_getmonpolicy(char* ptype, PMONP_CPROCPOLICY_INFO ppol)
{
    int nfuncret = MONP_RET_SUCCESS;

    MONP_TRACE("start - (type=%s gtype=%s pol=%p)", gmonpparam.type, ptype, static_cast<void*>(ppol));

    nfuncret = monp_polkey_read(gmonpcprockeys, std::size(gmonpcprockeys), ptype, gmonpparam.type, ppol);
    if (nfuncret != MONP_RET_SUCCESS) {
        goto monp_exit_func;
    }
    for (const MONP_USEKEY& row : gmonpusekeys) {
        if (strcmp(gmonpparam.type, row.ptype) == 0) {
            nfuncret = monp_polkey_read(&row.key, 1, ptype, gmonpparam.type, ppol);
        }
    }

monp_exit_func:
    MONP_TRACE("end - (type=%s ret=%d)", gmonpparam.type, nfuncret);
    return nfuncret;
}

int monp_xml_getcprocpolicy(char* ptype, PMONP_CPROCPOLICY_INFO ppol)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nret = 0;

    MONP_TRACE("start - (type=%s ldtype=%s pol=%p)", gmonpmonpol.type, ptype, static_cast<void*>(ppol));

    nret = monp_xml_initialize();
    if (nret != MONP_RET_SUCCESS) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("monp_xml_initialize() failed. (type=%s ret=%d)", gmonpmonpol.type, nret);
        goto monp_exit_func;
    }
    nret = monp_xml_loadpolicy(ptype);
    if (nret != MONP_RET_SUCCESS) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("monp_xml_loadpolicy() failed. (type=%s ret=%d ldtype=%s)", gmonpmonpol.type, nret, ptype);
        goto monp_exit_term;
    }

    nfuncret = monp_polkey_read(gmonpcprockeys, std::size(gmonpcprockeys), ptype, gmonpmonpol.type, ppol);

    nret = monp_xml_unloadpolicy(ptype);
    if (nret != MONP_RET_SUCCESS) {
        MONP_WARNING("monp_xml_unloadpolicy() failed. (type=%s ret=%d ultype=%s)", gmonpmonpol.type, nret, ptype);
    }

monp_exit_term:
    nret = monp_xml_terminate();
    if (nret != MONP_RET_SUCCESS) {
        MONP_WARNING("monp_xml_terminate() failed. (type=%s ret=%d ultype=%s)", gmonpmonpol.type, nret, ptype);
    }

monp_exit_func:
    MONP_TRACE("end - (type=%s ret=%d)", gmonpmonpol.type, nfuncret);
    return nfuncret;
}
