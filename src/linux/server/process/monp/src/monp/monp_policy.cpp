/*
 * The settings shared by all services and the monitor's own, with the defaults of their keys.
 */
#include "monp.h"
#include "monp_log.h"
#include "monp_polkey.h"

#include <cstddef>
#include <cstring>

/*
 * Every path is formed by writing another one behind the installation path, so that one ends in "/".
 */
static int monp_appendslash(void* pfield)
{
    int nfuncret = MONP_RET_SUCCESS;
    char* ppath = static_cast<char*>(pfield);
    size_t nlen = strlen(ppath);

    if (nlen + 1 >= CS_PRG_CAPTION_LEN) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("/root/all/path does not fit. (type=%s len=%d max=%d)", gmonpparam.type, static_cast<int>(nlen),
                   CS_PRG_CAPTION_LEN - 2);
        goto monp_exit_func;
    }
    ppath[nlen] = '/';
    ppath[nlen + 1] = '\0';

monp_exit_func:
    return nfuncret;
}

static int monp_checkinitto(void* pfield)
{
    int* pinitto = static_cast<int*>(pfield);

    if (*pinitto < 1) {
        MONP_ERROR("invalid initto(%d,use:%d)", *pinitto, MONP_DEF_INITTO);
        *pinitto = MONP_DEF_INITTO;
    }
    return MONP_RET_SUCCESS;
}

static int monp_isunsetint(const void*, const void* pfield)
{
    return *static_cast<const int*>(pfield) == -1 ? -1 : 0;
}

static int monp_isunsettext(const void*, const void* pfield)
{
    return *static_cast<const char*>(pfield) == '\0' ? -1 : 0;
}

/*
 * Start-up derives the service's own lock file in place of the configured path, and a reload must not undo that. Only
 * until a load has come past the parent time-out, which stands behind the lock file, is that 0.
 */
static int monp_isfirstload(const void* precord, const void*)
{
    return static_cast<const MONP_MYPOLICY_INFO*>(precord)->parent_initto == 0 ? -1 : 0;
}

static constexpr MONP_POLKEY gallkeys[] = {
    { .pkey = "/root/all/path",
      .nkind = TESKXML_TEXT,
      MONP_FIELD(MONP_ALLPOLICY_INFO, instpath),
      .nfail = MONP_KEYFAIL_END,
      .pcheck = monp_appendslash },
    { .pkey = "/root/all/core",
      .nkind = TESKXML_INT,
      MONP_FIELD(MONP_ALLPOLICY_INFO, core),
      .nfail = MONP_KEYFAIL_END },
    { .pkey = "/root/all/stacksize",
      .nkind = TESKXML_INT,
      MONP_FIELD(MONP_ALLPOLICY_INFO, stacksize),
      .nfail = MONP_KEYFAIL_DEFAULT,
      .ndefault = 0 },
    { .pkey = "/root/all/env/alloc",
      .nkind = TESKXML_TEXT,
      MONP_FIELD(MONP_ALLPOLICY_INFO, env_malchk),
      .nfail = MONP_KEYFAIL_FIRST,
      .pdefault = "0",
      .nlevel = TESKLOG_WARNING },
    { .pkey = "/root/all/env/path",
      .nkind = TESKXML_TEXT,
      MONP_FIELD(MONP_ALLPOLICY_INFO, env_path),
      .nfail = MONP_KEYFAIL_KEEP,
      .nlevel = TESKLOG_WARNING },
    { .pkey = "/root/all/env/lang",
      .nkind = TESKXML_TEXT,
      MONP_FIELD(MONP_ALLPOLICY_INFO, env_lang),
      .nfail = MONP_KEYFAIL_KEEP,
      .nlevel = TESKLOG_WARNING },
    { .pkey = "/root/dummyconf",
      .nkind = TESKXML_INT,
      MONP_FIELD(MONP_ALLPOLICY_INFO, dummyconf),
      .nfail = MONP_KEYFAIL_DEFAULT,
      .ndefault = 0 },
};
static_assert(monp_polkey_fill(gallkeys, 0, sizeof(MONP_ALLPOLICY_INFO)) != 0,
              "a whole row for each field, in their order");

constinit const std::span<const MONP_POLKEY> gmonpallkeys = gallkeys;

/*
 * What the command line may have given; it wins, even where the policy lacks the key.
 */
static constexpr MONP_POLKEY gservicekeys[] = {
    { .pkey = "/root/%s/service/%s/action",
      .nkind = TESKXML_INT,
      MONP_FIELD(MONP_PARAM_INFO, action),
      .nfail = MONP_KEYFAIL_END,
      .pwanted = monp_isunsetint },
    { .pkey = "/root/%s/service/%s/param",
      .nkind = TESKXML_TEXT,
      MONP_FIELD(MONP_PARAM_INFO, param),
      .nfail = MONP_KEYFAIL_END,
      .pwanted = monp_isunsettext },
    { .pkey = "/root/%s/service/%s/restarttime",
      .nkind = TESKXML_INT,
      MONP_FIELD(MONP_PARAM_INFO, restime),
      .nfail = MONP_KEYFAIL_END,
      .pwanted = monp_isunsetint },
    { .pkey = "/root/%s/service/%s/waittime",
      .nkind = TESKXML_INT,
      MONP_FIELD(MONP_PARAM_INFO, wait),
      .nfail = MONP_KEYFAIL_END,
      .pwanted = monp_isunsetint },
};
static_assert(monp_polkey_fill(gservicekeys, offsetof(MONP_PARAM_INFO, action), sizeof(MONP_PARAM_INFO)) != 0,
              "a whole row for each field behind the type, in their order");

constinit const std::span<const MONP_POLKEY> gmonpservicekeys = gservicekeys;

static constexpr MONP_POLKEY gmykeys[] = {
    { .pkey = "/root/%s/type", .nkind = TESKXML_TEXT, MONP_FIELD(MONP_MYPOLICY_INFO, type), .nfail = MONP_KEYFAIL_END },
    { .pkey = "/root/%s/path", .nkind = TESKXML_TEXT, MONP_FIELD(MONP_MYPOLICY_INFO, path), .nfail = MONP_KEYFAIL_END },
    { .pkey = "/root/%s/log/level",
      .nkind = TESKXML_INT,
      MONP_FIELD(MONP_MYPOLICY_INFO, loglevel),
      .nfail = MONP_KEYFAIL_END },
    { .pkey = "/root/%s/log/size",
      .nkind = TESKXML_INT,
      MONP_FIELD(MONP_MYPOLICY_INFO, logsize),
      .nfail = MONP_KEYFAIL_END },
    { .pkey = "/root/%s/elog/path",
      .nkind = TESKXML_TEXT,
      MONP_FIELD(MONP_MYPOLICY_INFO, elog.scr),
      .nfail = MONP_KEYFAIL_END },
    { .pkey = "/root/%s/elog/arcpath",
      .nkind = TESKXML_TEXT,
      MONP_FIELD(MONP_MYPOLICY_INFO, elog.arc),
      .nfail = MONP_KEYFAIL_END },
    { .pkey = "/root/%s/elog/rotate",
      .nkind = TESKXML_INT,
      MONP_FIELD(MONP_MYPOLICY_INFO, elog.rotate),
      .nfail = MONP_KEYFAIL_DEFAULT,
      .ndefault = MONP_DEF_ELOG_ROTATE },
    { .pkey = "/root/%s/elog/pattern",
      .nkind = TESKXML_INT,
      MONP_FIELD(MONP_MYPOLICY_INFO, elog.pattern),
      .nfail = MONP_KEYFAIL_DEFAULT,
      .ndefault = MONP_DEF_ELOG_PATTERN },
    { .pkey = "/root/pm/lockf",
      .nkind = TESKXML_TEXT,
      MONP_FIELD(MONP_MYPOLICY_INFO, lkfpath),
      .nfail = MONP_KEYFAIL_DEFAULT,
      .pdefault = "",
      .pwanted = monp_isfirstload },
    { .pkey = "/root/monp/md/dirpath",
      .nkind = TESKXML_TEXT,
      MONP_FIELD(MONP_MYPOLICY_INFO, mddirpath),
      .nfail = MONP_KEYFAIL_DEFAULT,
      .pdefault = "work/service" },
    { .pkey = "/root/monp/md/filename",
      .nkind = TESKXML_TEXT,
      MONP_FIELD(MONP_MYPOLICY_INFO, mdfilename),
      .nfail = MONP_KEYFAIL_DEFAULT,
      .pdefault = "init_md" },
    { .pkey = "/root/%s/service/%s/parent_timeout",
      .nkind = TESKXML_INT,
      MONP_FIELD(MONP_MYPOLICY_INFO, parent_initto),
      .nfail = MONP_KEYFAIL_DEFAULT,
      .ndefault = MONP_DEF_INITTO,
      .pcheck = monp_checkinitto },
    { .pkey = "/root/%s/service/%s/child_timeout",
      .nkind = TESKXML_INT,
      MONP_FIELD(MONP_MYPOLICY_INFO, child_initto),
      .nfail = MONP_KEYFAIL_DEFAULT,
      .ndefault = MONP_DEF_CHILD_INITTO,
      .pcheck = monp_checkinitto },
};
static_assert(monp_polkey_fill(gmykeys, 0, offsetof(MONP_MYPOLICY_INFO, dummy)) != 0,
              "a whole row for each field that is read, in their order");

constinit const std::span<const MONP_POLKEY> gmonpmykeys = gmykeys;

int monp_xml_getallpolicy(void)
{
    int nfuncret = MONP_RET_SUCCESS;

    MONP_TRACE("start - (type=%s)", gmonpparam.type);

    nfuncret = monp_polkey_read(gmonpallkeys.data(), gmonpallkeys.size(), "all", gmonpparam.type, &gmonpallpol);

monp_exit_func:
    __attribute__((unused));
    MONP_TRACE("end - (type=%s ret=%d)", gmonpparam.type, nfuncret);
    return nfuncret;
}

int monp_xml_getmypolicy(char* ptype, PMONP_MYPOLICY_INFO ppol)
{
    int nfuncret = MONP_RET_SUCCESS;

    MONP_TRACE("start - (type=%s gtype=%s pol=%p)", gmonpparam.type, ptype, static_cast<void*>(ppol));

    nfuncret = monp_polkey_read(gmonpservicekeys.data(), gmonpservicekeys.size(), ptype, gmonpparam.type, &gmonpparam);
    if (nfuncret != MONP_RET_SUCCESS) {
        goto monp_exit_func;
    }
    nfuncret = monp_polkey_read(gmonpmykeys.data(), gmonpmykeys.size(), ptype, gmonpparam.type, ppol);

monp_exit_func:
    MONP_TRACE("end - (type=%s ret=%d)", gmonpparam.type, nfuncret);
    return nfuncret;
}
