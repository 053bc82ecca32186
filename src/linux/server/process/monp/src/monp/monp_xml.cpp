/*
 * The doors of the policy library: opening and closing it, and loading configurations and policy sections with the list
 * of what is loaded. Values are read elsewhere, from the library directly.
 */
#include "monp.h"
#include "monp_log.h"
#include "teskxml.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

int monp_xml_initialize(void)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nret = 0;

    MONP_DETAIL("start - (type=%s)", gmonpparam.type);

    nret = xmllib_init("monp");
    if (nret != 0) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("xmllib_init() failed. (type=%s ret=%#x)", gmonpparam.type, static_cast<unsigned>(nret));
    }

monp_exit_func:
    __attribute__((unused));
    MONP_DETAIL("end - (type=%s ret=%d)", gmonpparam.type, nfuncret);
    return nfuncret;
}

int monp_xml_terminate(void)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nret = 0;

    MONP_DETAIL("start - (type=%s)", gmonpparam.type);

    nret = xmllib_term();
    if (nret != 0) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("xmllib_term() failed. (type=%s ret=%#x)", gmonpparam.type, static_cast<unsigned>(nret));
    }

monp_exit_func:
    __attribute__((unused));
    MONP_DETAIL("end - (type=%s ret=%d)", gmonpparam.type, nfuncret);
    return nfuncret;
}

int monp_xml_loadconfig(char* ppath, void** phdl)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nret = 0;

    MONP_TRACE("start - (type=%s path=%s hdl=%p)", gmonpparam.type, ppath != nullptr ? ppath : "NULL",
               static_cast<void*>(phdl));

    if (ppath == nullptr) {
        nret = xmllib_load_config();
    } else if (phdl == nullptr) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("invalid handle. (type=%s hdl=%p)", gmonpparam.type, static_cast<void*>(phdl));
        goto monp_exit_func;
    } else {
        nret = xmllib_load_pathconfig(ppath, phdl);
    }
    if (nret != 0) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("xmllib_load_config() failed. (type=%s ret=%#x)", gmonpparam.type, static_cast<unsigned>(nret));
    }

monp_exit_func:
    MONP_TRACE("end - (type=%s ret=%d)", gmonpparam.type, nfuncret);
    return nfuncret;
}

int monp_xml_unloadconfig(void* phdl)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nret = 0;

    MONP_TRACE("start - (type=%s hdl=%p)", gmonpparam.type, phdl);

    nret = phdl != nullptr ? xmllib_unload_pathconfig(phdl) : xmllib_unload_config();
    if (nret != 0) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("xmllib_unload_config() failed. (type=%s ret=%#x)", gmonpparam.type, static_cast<unsigned>(nret));
    }

monp_exit_func:
    __attribute__((unused));
    MONP_TRACE("end - (type=%s ret=%d)", gmonpparam.type, nfuncret);
    return nfuncret;
}

/*
 * A zero-filled list of nnum entries; null, and one error line, when there is no memory.
 */
static char (*monp_newlist(int nnum))[CS_TYPE_LEN]
{
    void* plist = calloc(static_cast<size_t>(nnum), CS_TYPE_LEN);

    if (plist == nullptr) {
        MONP_ERROR("calloc() failed. (type=%s errno=%d)", gmonpparam.type, errno);
    }
    return static_cast<char(*)[CS_TYPE_LEN]>(plist);
}

static void monp_copyentries(char (*pdest)[CS_TYPE_LEN], const char (*psrc)[CS_TYPE_LEN], int nnum)
{
    if (nnum > 0) {
        memcpy(pdest, psrc, static_cast<size_t>(nnum) * CS_TYPE_LEN);
    }
}

/*
 * An empty list is always a null pointer.
 */
static void monp_freeifempty(void)
{
    if (gmonpldpolnum <= 0 && gpmonpldpol != nullptr) {
        free(gpmonpldpol);
        gpmonpldpol = nullptr;
    }
}

int monp_xml_loadpolicy(char* ptype)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nret = 0;
    int nold = gmonpldpolnum > 0 ? gmonpldpolnum : 0;
    char(*pnew)[CS_TYPE_LEN] = nullptr;

    MONP_TRACE("start - (type=%s ldtype=%s)", gmonpparam.type, ptype);

    /* A name that was cut in the list could never be unloaded again. */
    if (strlen(ptype) >= CS_TYPE_LEN) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("section name does not fit. (type=%s ldtype=%s max=%d)", gmonpparam.type, ptype, CS_TYPE_LEN - 1);
        goto monp_exit_func;
    }
    nret = xmllib_load_policy(ptype);
    if (nret != 0) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("xmllib_load_policy() failed. (type=%s ret=%#x)", gmonpparam.type, static_cast<unsigned>(nret));
        goto monp_exit_func;
    }

    pnew = monp_newlist(nold + 1);
    if (pnew == nullptr) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        goto monp_exit_func;
    }
    monp_copyentries(pnew, gpmonpldpol, nold);
    free(gpmonpldpol);
    gpmonpldpol = pnew;
    snprintf(gpmonpldpol[nold], CS_TYPE_LEN, "%s", ptype);
    gmonpldpolnum = nold + 1;

monp_exit_func:
    MONP_TRACE("end - (type=%s ret=%d)", gmonpparam.type, nfuncret);
    return nfuncret;
}

/*
 * Releases one section of the library.
 */
static int monp_unloadsection(const char* pname)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nret = xmllib_unload_policy(pname);

    if (nret != 0) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("xmllib_unload_policy() failed. (type=%s ret=%#x untype=%s)", gmonpparam.type,
                   static_cast<unsigned>(nret), pname);
    }
    return nfuncret;
}

/*
 * Takes the first entry of a name out of the list; a name that is not noted changes nothing. A list that gets empty is
 * left to monp_freeifempty.
 */
static int monp_forget(const char* pname)
{
    int nfuncret = MONP_RET_SUCCESS;
    int ninx = 0;
    char(*pnew)[CS_TYPE_LEN] = nullptr;

    while (ninx < gmonpldpolnum && strcmp(gpmonpldpol[ninx], pname) != 0) {
        ninx++;
    }
    if (ninx >= gmonpldpolnum) {
        goto monp_exit_func;
    }
    if (gmonpldpolnum - 1 <= 0) {
        gmonpldpolnum = 0;
        goto monp_exit_func;
    }

    pnew = monp_newlist(gmonpldpolnum - 1);
    if (pnew == nullptr) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        goto monp_exit_func;
    }
    monp_copyentries(pnew, gpmonpldpol, ninx);
    monp_copyentries(pnew + ninx, gpmonpldpol + ninx + 1, gmonpldpolnum - ninx - 1);
    free(gpmonpldpol);
    gpmonpldpol = pnew;
    gmonpldpolnum--;

monp_exit_func:
    return nfuncret;
}

/*
 * Releases every section noted. The names whose unloading failed move together at the head of the list.
 */
static int monp_unloadall(void)
{
    int nfuncret = MONP_RET_SUCCESS;
    int ninx = 0;
    int nremain = 0;

    for (ninx = 0; ninx < gmonpldpolnum; ninx++) {
        if (monp_unloadsection(gpmonpldpol[ninx]) != MONP_RET_SUCCESS) {
            nfuncret = MONP_RET_FAIL_UNKNOWN;
            memmove(gpmonpldpol[nremain], gpmonpldpol[ninx], CS_TYPE_LEN);
            nremain++;
        }
    }
    gmonpldpolnum = nremain;
    return nfuncret;
}

int monp_xml_unloadpolicy(char* ptype)
{
    int nfuncret = MONP_RET_SUCCESS;

    MONP_TRACE("start - (type=%s udtype=%p)", gmonpparam.type, static_cast<void*>(ptype));

    if (ptype == nullptr) {
        nfuncret = monp_unloadall();
    } else {
        nfuncret = monp_unloadsection(ptype);
        if (nfuncret == MONP_RET_SUCCESS) {
            nfuncret = monp_forget(ptype);
        }
    }
    monp_freeifempty();

monp_exit_func:
    __attribute__((unused));
    MONP_TRACE("end - (type=%s ret=%d)", gmonpparam.type, nfuncret);
    return nfuncret;
}
