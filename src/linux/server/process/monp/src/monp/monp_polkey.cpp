/*
 * Reads policy keys row by row, with the failure line and the default of each.
 */
#include "monp_polkey.h"

#include "monp_log.h"
#include "teskxml.h"

#include <cstdio>
#include <cstring>

/* Long enough for every key: section and type have at most 31 characters each. */
static constexpr size_t MONP_KEY_LEN = 512;

static void monp_setdefault(const MONP_POLKEY* prow, char* pfield)
{
    switch (prow->nfail) {
    case MONP_KEYFAIL_DEFAULT:
        if (prow->nkind == TESKXML_INT) {
            memcpy(pfield, &prow->ndefault, sizeof(prow->ndefault));
        } else {
            snprintf(pfield, static_cast<size_t>(prow->ncapacity), "%s", prow->pdefault);
        }
        break;
    case MONP_KEYFAIL_FIRST:
        pfield[0] = prow->pdefault[0];
        break;
    case MONP_KEYFAIL_END:
    case MONP_KEYFAIL_KEEP:
        break;
    }
}

static int monp_readrow(const MONP_POLKEY* prow, const char* ptype, const char* plogtype, char* pfield)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nret = 0;
    int ncapacity = prow->ncapacity;
    char szkey[MONP_KEY_LEN] = {};

    /* A key with one "%s", or none, leaves the rest of the arguments alone. */
    snprintf(szkey, sizeof(szkey), prow->pkey, ptype, gmonpparam.type);

    nret = xmllib_get_value(szkey, prow->nkind, pfield, &ncapacity);
    if (nret != 0) {
        MONP_LINE(prow->nlevel, "xmllib_get_value() failed. (type=%s ret=%#x key=%s)", plogtype,
                  static_cast<unsigned>(nret), szkey);
        monp_setdefault(prow, pfield);
        if (prow->nfail == MONP_KEYFAIL_END) {
            nfuncret = MONP_RET_FAIL_UNKNOWN;
            goto monp_exit_func;
        }
    }
    if (prow->pcheck != nullptr) {
        nfuncret = prow->pcheck(pfield);
    }

monp_exit_func:
    return nfuncret;
}

int monp_polkey_read(const MONP_POLKEY* pkeys, size_t nkeys, const char* ptype, const char* plogtype, void* precord)
{
    int nfuncret = MONP_RET_SUCCESS;
    size_t ninx = 0;
    char* pfield = nullptr;

    for (ninx = 0; ninx < nkeys && nfuncret == MONP_RET_SUCCESS; ninx++) {
        pfield = static_cast<char*>(precord) + pkeys[ninx].noffset;
        if (pkeys[ninx].pwanted == nullptr || pkeys[ninx].pwanted(precord, pfield) != 0) {
            nfuncret = monp_readrow(&pkeys[ninx], ptype, plogtype, pfield);
        }
    }
    return nfuncret;
}
