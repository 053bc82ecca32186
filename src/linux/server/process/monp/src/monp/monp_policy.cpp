/*
 * The settings shared by all services and the monitor's own, with the defaults of their keys.
 */
#include "monp.h"
#include "monp_log.h"
#include "monp_polkey.h"
#include "teskxml.h"

#include <cstring>
#include <iterator>

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

constinit const MONP_POLKEY gmonpallkeys[7] = {
    { "/root/all/path", TESKXML_TEXT, offsetof(MONP_ALLPOLICY_INFO, instpath), sizeof(MONP_ALLPOLICY_INFO::instpath),
      MONP_KEYFAIL_END, 0, "", TESKLOG_ERROR, nullptr, monp_appendslash },
    { "/root/all/core", TESKXML_INT, offsetof(MONP_ALLPOLICY_INFO, core), sizeof(int), MONP_KEYFAIL_END },
    { "/root/all/stacksize", TESKXML_INT, offsetof(MONP_ALLPOLICY_INFO, stacksize), sizeof(int), MONP_KEYFAIL_DEFAULT,
      0 },
    { "/root/all/env/alloc", TESKXML_TEXT, offsetof(MONP_ALLPOLICY_INFO, env_malchk),
      sizeof(MONP_ALLPOLICY_INFO::env_malchk), MONP_KEYFAIL_FIRST, 0, "0", TESKLOG_WARNING },
    { "/root/all/env/path", TESKXML_TEXT, offsetof(MONP_ALLPOLICY_INFO, env_path),
      sizeof(MONP_ALLPOLICY_INFO::env_path), MONP_KEYFAIL_KEEP, 0, "", TESKLOG_WARNING },
    { "/root/all/env/lang", TESKXML_TEXT, offsetof(MONP_ALLPOLICY_INFO, env_lang),
      sizeof(MONP_ALLPOLICY_INFO::env_lang), MONP_KEYFAIL_KEEP, 0, "", TESKLOG_WARNING },
    { "/root/dummyconf", TESKXML_INT, offsetof(MONP_ALLPOLICY_INFO, dummyconf), sizeof(int), MONP_KEYFAIL_DEFAULT, 0 },
};

/*
 * What the command line may have given; it wins, even where the policy lacks the key.
 */
constinit const MONP_POLKEY gmonpservicekeys[4] = {
    { "/root/%s/service/%s/action", TESKXML_INT, offsetof(MONP_PARAM_INFO, action), sizeof(int), MONP_KEYFAIL_END, 0,
      "", TESKLOG_ERROR, monp_isunsetint },
    { "/root/%s/service/%s/param", TESKXML_TEXT, offsetof(MONP_PARAM_INFO, param), sizeof(MONP_PARAM_INFO::param),
      MONP_KEYFAIL_END, 0, "", TESKLOG_ERROR, monp_isunsettext },
    { "/root/%s/service/%s/restarttime", TESKXML_INT, offsetof(MONP_PARAM_INFO, restime), sizeof(int), MONP_KEYFAIL_END,
      0, "", TESKLOG_ERROR, monp_isunsetint },
    { "/root/%s/service/%s/waittime", TESKXML_INT, offsetof(MONP_PARAM_INFO, wait), sizeof(int), MONP_KEYFAIL_END, 0,
      "", TESKLOG_ERROR, monp_isunsetint },
};

constinit const MONP_POLKEY gmonpmykeys[13] = {
    { "/root/%s/type", TESKXML_TEXT, offsetof(MONP_MYPOLICY_INFO, type), sizeof(MONP_MYPOLICY_INFO::type),
      MONP_KEYFAIL_END },
    { "/root/%s/path", TESKXML_TEXT, offsetof(MONP_MYPOLICY_INFO, path), sizeof(MONP_MYPOLICY_INFO::path),
      MONP_KEYFAIL_END },
    { "/root/%s/log/level", TESKXML_INT, offsetof(MONP_MYPOLICY_INFO, loglevel), sizeof(int), MONP_KEYFAIL_END },
    { "/root/%s/log/size", TESKXML_INT, offsetof(MONP_MYPOLICY_INFO, logsize), sizeof(int), MONP_KEYFAIL_END },
    { "/root/%s/elog/path", TESKXML_TEXT, offsetof(MONP_MYPOLICY_INFO, elog.scr), sizeof(MONP_ELOG_INFO::scr),
      MONP_KEYFAIL_END },
    { "/root/%s/elog/arcpath", TESKXML_TEXT, offsetof(MONP_MYPOLICY_INFO, elog.arc), sizeof(MONP_ELOG_INFO::arc),
      MONP_KEYFAIL_END },
    { "/root/%s/elog/rotate", TESKXML_INT, offsetof(MONP_MYPOLICY_INFO, elog.rotate), sizeof(int), MONP_KEYFAIL_DEFAULT,
      MONP_DEF_ELOG_ROTATE },
    { "/root/%s/elog/pattern", TESKXML_INT, offsetof(MONP_MYPOLICY_INFO, elog.pattern), sizeof(int),
      MONP_KEYFAIL_DEFAULT, MONP_DEF_ELOG_PATTERN },
    { "/root/pm/lockf", TESKXML_TEXT, offsetof(MONP_MYPOLICY_INFO, lkfpath), sizeof(MONP_MYPOLICY_INFO::lkfpath),
      MONP_KEYFAIL_DEFAULT, 0, "", TESKLOG_ERROR, monp_isfirstload },
    { "/root/monp/md/dirpath", TESKXML_TEXT, offsetof(MONP_MYPOLICY_INFO, mddirpath),
      sizeof(MONP_MYPOLICY_INFO::mddirpath), MONP_KEYFAIL_DEFAULT, 0, "work/service" },
    { "/root/monp/md/filename", TESKXML_TEXT, offsetof(MONP_MYPOLICY_INFO, mdfilename),
      sizeof(MONP_MYPOLICY_INFO::mdfilename), MONP_KEYFAIL_DEFAULT, 0, "init_md" },
    { "/root/%s/service/%s/parent_timeout", TESKXML_INT, offsetof(MONP_MYPOLICY_INFO, parent_initto), sizeof(int),
      MONP_KEYFAIL_DEFAULT, MONP_DEF_INITTO, "", TESKLOG_ERROR, nullptr, monp_checkinitto },
    { "/root/%s/service/%s/child_timeout", TESKXML_INT, offsetof(MONP_MYPOLICY_INFO, child_initto), sizeof(int),
      MONP_KEYFAIL_DEFAULT, MONP_DEF_CHILD_INITTO, "", TESKLOG_ERROR, nullptr, monp_checkinitto },
};

int monp_xml_getallpolicy(void)
{
    int nfuncret = MONP_RET_SUCCESS;

    MONP_TRACE("start - (type=%s)", gmonpparam.type);

    nfuncret = monp_polkey_read(gmonpallkeys, std::size(gmonpallkeys), "all", gmonpparam.type, &gmonpallpol);

monp_exit_func:
    __attribute__((unused));
    MONP_TRACE("end - (type=%s ret=%d)", gmonpparam.type, nfuncret);
    return nfuncret;
}

int monp_xml_getmypolicy(char* ptype, PMONP_MYPOLICY_INFO ppol)
{
    int nfuncret = MONP_RET_SUCCESS;

    MONP_TRACE("start - (type=%s gtype=%s pol=%p)", gmonpparam.type, ptype, static_cast<void*>(ppol));

    nfuncret = monp_polkey_read(gmonpservicekeys, std::size(gmonpservicekeys), ptype, gmonpparam.type, &gmonpparam);
    if (nfuncret != MONP_RET_SUCCESS) {
        goto monp_exit_func;
    }
    nfuncret = monp_polkey_read(gmonpmykeys, std::size(gmonpmykeys), ptype, gmonpparam.type, ppol);

monp_exit_func:
    MONP_TRACE("end - (type=%s ret=%d)", gmonpparam.type, nfuncret);
    return nfuncret;
}
