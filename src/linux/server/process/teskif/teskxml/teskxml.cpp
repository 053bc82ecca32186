/*
 * The operations of the library: what the caller gave is looked at here, and names become paths.
 */
#include "teskxml.h"

#include "tesk_home.h"
#include "teskxml_error.h"
#include "teskxml_open.h"
#include "teskxml_set.h"
#include "teskxml_value.h"

#include <cstdio>
#include <cstring>

typedef struct {
    bool open;
    char szhome[TESKXML_MAX_PATH + 1]; /* without a "/" at its end; empty: "/" itself */
} TESKXML_STATE;

static TESKXML_STATE gteskxml;

int teskxml_checkopen()
{
    return gteskxml.open ? TESKXML_RET_SUCCESS
                         : teskxml_fail(TESKXML_RET_FAIL_NOTOPEN, nullptr, 0, 0, "the library is not open");
}

static int teskxml_missing(const char* pargument)
{
    return teskxml_fail(TESKXML_RET_FAIL_ARGUMENT, nullptr, 0, 0, "%s is missing or unusable", pargument);
}

static int teskxml_checkname(const char* pname)
{
    static constexpr char gallowed[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
    int nfuncret = TESKXML_RET_SUCCESS;
    size_t nlen = 0;

    if (pname == nullptr) {
        nfuncret = teskxml_missing("the section's name");
        goto monp_exit_func;
    }
    nlen = strnlen(pname, TESKXML_MAX_NAME + 1);
    if (nlen == 0 || nlen > TESKXML_MAX_NAME || strspn(pname, gallowed) != nlen) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_NAME, nullptr, 0, 0,
                                "\"%s\" is no section's name: 1 to %d of A-Z, a-z, 0-9, \"_\" and \"-\"",
                                teskxml_shown(pname).text, TESKXML_MAX_NAME);
    }

monp_exit_func:
    return nfuncret;
}

/* Gives the path of a file in a directory below the home directory. */
static int teskxml_homepath(char* ppath, const char* pdir, const char* pname)
{
    int nfuncret = TESKXML_RET_SUCCESS;
    int nlen = snprintf(ppath, TESKXML_MAX_PATH + 1, "%s%s%s.xml", gteskxml.szhome, pdir, pname);

    if (nlen < 0 || nlen > TESKXML_MAX_PATH) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_HOME, nullptr, 0, 0, "the home directory's path is too long");
    }
    return nfuncret;
}

/* Bytes of a path that name the home directory if it lies in there, else 0 for "/". */
static size_t teskxml_toplength(const char* ppath)
{
    size_t nhome = strlen(gteskxml.szhome);

    return strncmp(ppath, gteskxml.szhome, nhome) == 0 && ppath[nhome] == '/' ? nhome : 0;
}

/* Takes the home directory over, without "/" at its end, "//" and ".": behind these a symbolic link would be followed
   and pass for the directory that it leads to. */
static int teskxml_takehome(const char* phome)
{
    int nfuncret = TESKXML_RET_SUCCESS;
    const char* pname = phome;
    size_t nlen = 0;
    size_t nhome = 0;
    bool bgood = phome[0] == '/';

    for (; bgood && *pname != '\0'; pname += nlen) {
        pname += strspn(pname, "/");
        nlen = strcspn(pname, "/");
        if (nlen == 0 || (nlen == 1 && pname[0] == '.')) {
            continue;
        }
        bgood = (nlen != 2 || memcmp(pname, "..", nlen) != 0) && nhome + 1 + nlen <= TESKXML_MAX_PATH;
        if (bgood) {
            gteskxml.szhome[nhome] = '/';
            memcpy(gteskxml.szhome + nhome + 1, pname, nlen);
            nhome += 1 + nlen;
        }
    }
    gteskxml.szhome[nhome] = '\0';
    if (!bgood) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_HOME, nullptr, 0, 0,
                                "the home directory \"%s\" is no absolute path without \"..\" of at most %d bytes",
                                teskxml_shown(phome).text, TESKXML_MAX_PATH);
    }
    return nfuncret;
}

int xmllib_init(const char* ident)
{
    int nfuncret = TESKXML_RET_SUCCESS;

    if (ident == nullptr || ident[0] == '\0') {
        nfuncret = teskxml_missing("the caller's name");
        goto monp_exit_func;
    }
    if (gteskxml.open) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_ALREADYOPEN, nullptr, 0, 0, "the library is open already");
        goto monp_exit_func;
    }
    nfuncret = teskxml_takehome(tesk_home());
    gteskxml.open = nfuncret == TESKXML_RET_SUCCESS;

monp_exit_func:
    return nfuncret;
}

int xmllib_term(void)
{
    int nfuncret = teskxml_checkopen();

    if (nfuncret == TESKXML_RET_SUCCESS) {
        teskxml_set_clear();
        gteskxml.open = false;
    }
    return nfuncret;
}

int xmllib_load_config(void)
{
    int nfuncret = teskxml_checkopen();
    char szpath[TESKXML_MAX_PATH + 1] = "";
    uintptr_t nhandle = 0;

    if (nfuncret == TESKXML_RET_SUCCESS) {
        nfuncret = teskxml_homepath(szpath, "/etc/", "config");
    }
    if (nfuncret == TESKXML_RET_SUCCESS) {
        nfuncret = teskxml_set_load(TESKXML_DOC_CONFIG, szpath, strlen(gteskxml.szhome), nullptr, &nhandle);
    }
    return nfuncret;
}

int xmllib_unload_config(void)
{
    int nfuncret = teskxml_checkopen();
    char szpath[TESKXML_MAX_PATH + 1] = "";

    if (nfuncret == TESKXML_RET_SUCCESS) {
        nfuncret = teskxml_homepath(szpath, "/etc/", "config");
    }
    if (nfuncret == TESKXML_RET_SUCCESS) {
        nfuncret = teskxml_set_release(teskxml_set_find(TESKXML_DOC_CONFIG, szpath), "the configuration");
    }
    return nfuncret;
}

int xmllib_load_pathconfig(const char* path, void** handle)
{
    int nfuncret = teskxml_checkopen();
    uintptr_t nhandle = 0;

    if (nfuncret != TESKXML_RET_SUCCESS) {
        goto monp_exit_func;
    }
    if (path == nullptr || handle == nullptr) {
        nfuncret = teskxml_missing("the configuration's path or the handle for it");
        goto monp_exit_func;
    }
    if (path[0] != '/' || strnlen(path, TESKXML_MAX_PATH + 1) > TESKXML_MAX_PATH) {
        nfuncret =
            teskxml_fail(TESKXML_RET_FAIL_ARGUMENT, nullptr, 0, 0, "\"%s\" is no absolute path of at most %d bytes",
                         teskxml_shown(path).text, TESKXML_MAX_PATH);
        goto monp_exit_func;
    }
    nfuncret = teskxml_set_load(TESKXML_DOC_PATHCONFIG, path, teskxml_toplength(path), nullptr, &nhandle);
    if (nfuncret == TESKXML_RET_SUCCESS) {
        *handle = reinterpret_cast<void*>(nhandle);
    }

monp_exit_func:
    return nfuncret;
}

int xmllib_unload_pathconfig(void* handle)
{
    int nfuncret = teskxml_checkopen();

    if (nfuncret == TESKXML_RET_SUCCESS) {
        nfuncret = teskxml_set_release(teskxml_set_findhandle(reinterpret_cast<uintptr_t>(handle)),
                                       "a configuration of this handle");
    }
    return nfuncret;
}

/* Checks the name of a section and gives the path of its file. */
static int teskxml_sectionpath(const char* pname, char* ppath)
{
    int nfuncret = teskxml_checkopen();

    if (nfuncret == TESKXML_RET_SUCCESS) {
        nfuncret = teskxml_checkname(pname);
    }
    if (nfuncret == TESKXML_RET_SUCCESS) {
        nfuncret = teskxml_homepath(ppath, "/etc/policy/", pname);
    }
    return nfuncret;
}

int xmllib_load_policy(const char* name)
{
    char szpath[TESKXML_MAX_PATH + 1] = "";
    int nfuncret = teskxml_sectionpath(name, szpath);
    uintptr_t nhandle = 0;

    if (nfuncret == TESKXML_RET_SUCCESS) {
        nfuncret = teskxml_set_load(TESKXML_DOC_SECTION, szpath, strlen(gteskxml.szhome), name, &nhandle);
    }
    return nfuncret;
}

int xmllib_unload_policy(const char* name)
{
    char szpath[TESKXML_MAX_PATH + 1] = "";
    int nfuncret = teskxml_sectionpath(name, szpath);

    if (nfuncret == TESKXML_RET_SUCCESS) {
        nfuncret = teskxml_set_release(teskxml_set_find(TESKXML_DOC_SECTION, szpath), name);
    }
    return nfuncret;
}

// NOLINTNEXTLINE(readability-non-const-parameter): the signature is the closed library's
int xmllib_get_value(const char* key, int kind, void* destination, int* capacity)
{
    int nfuncret = teskxml_checkopen();
    const TESKXML_DOC* pdoc = nullptr;
    uint32_t nnode = TESKXML_NONE;

    if (nfuncret != TESKXML_RET_SUCCESS) {
        goto monp_exit_func;
    }
    if (key == nullptr || destination == nullptr || capacity == nullptr || *capacity <= 0) {
        nfuncret = teskxml_missing("the key, the destination or its capacity");
        goto monp_exit_func;
    }
    if (kind != TESKXML_TEXT && kind != TESKXML_INT) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_KIND, nullptr, 0, 0, "%d is no kind of a value", kind);
        goto monp_exit_func;
    }
    nfuncret = teskxml_set_lookup(key, &pdoc, &nnode);
    if (nfuncret != TESKXML_RET_SUCCESS) {
        goto monp_exit_func;
    }
    nfuncret = kind == TESKXML_TEXT ? teskxml_value_text(pdoc, nnode, destination, static_cast<size_t>(*capacity))
                                    : teskxml_value_int(pdoc, nnode, destination, static_cast<size_t>(*capacity));

monp_exit_func:
    return nfuncret;
}
