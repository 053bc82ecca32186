/*
 * The policies of companion processes: the monitored service, and the commands of the recovery actions.
 */
#include "monp.h"
#include "monp_log.h"
#include "monp_polkey.h"

#include <cstddef>
#include <cstring>

static constexpr MONP_POLKEY gcprockeys[] = {
    { .pkey = "/root/%s/type",
      .nkind = TESKXML_TEXT,
      MONP_FIELD(MONP_CPROCPOLICY_INFO, type),
      .nfail = MONP_KEYFAIL_END },
    { .pkey = "/root/%s/path",
      .nkind = TESKXML_TEXT,
      MONP_FIELD(MONP_CPROCPOLICY_INFO, path),
      .nfail = MONP_KEYFAIL_END },
};
static_assert(monp_polkey_fill(gcprockeys, 0, offsetof(MONP_CPROCPOLICY_INFO, useflag)) != 0,
              "a whole row for each field in front of the use flag, in their order");

constinit const std::span<const MONP_POLKEY> gmonpcprockeys = gcprockeys;

/*
 * Without the key, the last type counts as disabled, the others as in use.
 */
static constexpr MONP_USEKEY gusekeys[] = {
    { .ptype = "sorvin",
      .key = { .pkey = "/root/sorvin/use",
               .nkind = TESKXML_INT,
               MONP_FIELD(MONP_CPROCPOLICY_INFO, useflag),
               .nfail = MONP_KEYFAIL_DEFAULT,
               .ndefault = 1 } },
    { .ptype = "tamzile",
      .key = { .pkey = "/root/tamzile/use",
               .nkind = TESKXML_INT,
               MONP_FIELD(MONP_CPROCPOLICY_INFO, useflag),
               .nfail = MONP_KEYFAIL_DEFAULT,
               .ndefault = 1 } },
    { .ptype = "lenk",
      .key = { .pkey = "/root/lenk/use",
               .nkind = TESKXML_INT,
               MONP_FIELD(MONP_CPROCPOLICY_INFO, useflag),
               .nfail = MONP_KEYFAIL_DEFAULT,
               .ndefault = 0 } },
};

static constexpr int monp_usekeysfit(void)
{
    int bfit = -1;

    for (const MONP_USEKEY& row : gusekeys) {
        if (row.ptype == nullptr || monp_polkey_fits(&row.key) == 0 ||
            row.key.noffset != offsetof(MONP_CPROCPOLICY_INFO, useflag)) {
            bfit = 0;
        }
    }
    return bfit;
}
static_assert(monp_usekeysfit() != 0, "a type, and a whole key row for the use flag");

constinit const std::span<const MONP_USEKEY> gmonpusekeys = gusekeys;

int monp_xml_getmonpolicy(char* ptype, PMONP_CPROCPOLICY_INFO ppol)
{
    int nfuncret = MONP_RET_SUCCESS;

    MONP_TRACE("start - (type=%s gtype=%s pol=%p)", gmonpparam.type, ptype, static_cast<void*>(ppol));

    nfuncret = monp_polkey_read(gmonpcprockeys.data(), gmonpcprockeys.size(), ptype, gmonpparam.type, ppol);
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

    nfuncret = monp_polkey_read(gmonpcprockeys.data(), gmonpcprockeys.size(), ptype, gmonpmonpol.type, ppol);

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
