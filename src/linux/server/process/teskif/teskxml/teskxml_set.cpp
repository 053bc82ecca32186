/*
 * The set of loaded files. It is searched from its start to its end, as it is a handful.
 */
#include "teskxml_set.h"

#include "teskxml_error.h"
#include "teskxml_file.h"
#include "teskxml_parse.h"

#include <cstdlib>
#include <cstring>

typedef struct {
    PTESKXML_DOC pfirst; /* in the order of loading */
    size_t loaded;
    uintptr_t handle; /* last one given out; never reused, so that a stale one is noticed */
} TESKXML_SET;

static TESKXML_SET gset;

const TESKXML_DOC* teskxml_set_first()
{
    return gset.pfirst;
}

PTESKXML_DOC* teskxml_set_find(int nkind, const char* ppath)
{
    PTESKXML_DOC* ppdoc = &gset.pfirst;

    while (*ppdoc != nullptr && ((*ppdoc)->kind != nkind || strcmp((*ppdoc)->pfile, ppath) != 0)) {
        ppdoc = &(*ppdoc)->pnext;
    }
    return ppdoc;
}

PTESKXML_DOC* teskxml_set_findhandle(uintptr_t nhandle)
{
    PTESKXML_DOC* ppdoc = &gset.pfirst;

    while (*ppdoc != nullptr && ((*ppdoc)->kind != TESKXML_DOC_PATHCONFIG || (*ppdoc)->handle != nhandle)) {
        ppdoc = &(*ppdoc)->pnext;
    }
    return ppdoc;
}

int teskxml_set_release(PTESKXML_DOC* ppdoc, const char* pwhat)
{
    int nfuncret = TESKXML_RET_SUCCESS;
    PTESKXML_DOC pdoc = *ppdoc;

    if (pdoc == nullptr) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_NOTLOADED, nullptr, 0, 0, "%s is not loaded", pwhat);
    } else if (--pdoc->users == 0) {
        *ppdoc = pdoc->pnext;
        gset.loaded--;
        free(pdoc);
    }
    return nfuncret;
}

static int teskxml_checkclash(const TESKXML_DOC* pdoc)
{
    int nfuncret = TESKXML_RET_SUCCESS;
    uint32_t nclash = 0;
    uint32_t nother = 0;

    for (PTESKXML_DOC pother = gset.pfirst; pother != nullptr; pother = pother->pnext) {
        if (teskxml_doc_clash(pdoc, pother, &nclash, &nother)) {
            nfuncret = teskxml_fail(TESKXML_RET_FAIL_DUPLICATE, pdoc->pfile, pdoc->pnode[nclash].line,
                                    pdoc->pnode[nclash].column, "the key %s is given twice, first in line %d of %s",
                                    teskxml_doc_key(pdoc, nclash), pother->pnode[nother].line, pother->pfile);
            break;
        }
    }
    return nfuncret;
}

/* Reads a file and adds it to the set; *ppdoc is set only then. */
static int teskxml_loadnew(int nkind, const char* ppath, size_t ntop, const char* psection, PTESKXML_DOC* ppdoc)
{
    int nfuncret = TESKXML_RET_SUCCESS;
    PTESKXML_DOC pdoc = nullptr;
    char* pdata = nullptr;
    size_t nsize = 0;

    if (gset.loaded >= TESKXML_MAX_LOADED) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_LIMIT, ppath, 0, 0, "%d files are loaded already", TESKXML_MAX_LOADED);
        goto monp_exit_func;
    }
    nfuncret = teskxml_file_read(ppath, ntop, &pdata, &nsize);
    if (nfuncret != TESKXML_RET_SUCCESS) {
        goto monp_exit_func;
    }
    pdoc = teskxml_doc_create(nkind, ppath, pdata, nsize);
    if (pdoc == nullptr) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_MEMORY, ppath, 0, 0, "out of memory");
        goto monp_exit_data;
    }
    nfuncret = teskxml_parse(pdoc, psection, pdata, nsize);
    if (nfuncret == TESKXML_RET_SUCCESS) {
        nfuncret = teskxml_checkclash(pdoc);
    }
    if (nfuncret != TESKXML_RET_SUCCESS) {
        goto monp_exit_doc;
    }
    gset.loaded++;
    pdoc->handle = ++gset.handle;
    *ppdoc = pdoc;
    pdoc = nullptr;

monp_exit_doc:
    free(pdoc);
monp_exit_data:
    free(pdata);
monp_exit_func:
    return nfuncret;
}

int teskxml_set_load(int nkind, const char* ppath, size_t ntop, const char* psection, uintptr_t* phandle)
{
    int nfuncret = TESKXML_RET_SUCCESS;
    PTESKXML_DOC* ppdoc = teskxml_set_find(nkind, ppath);

    if (*ppdoc != nullptr) {
        (*ppdoc)->users++;
    } else {
        nfuncret = teskxml_loadnew(nkind, ppath, ntop, psection, ppdoc);
    }
    if (nfuncret == TESKXML_RET_SUCCESS) {
        // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): a load that succeeded has put it there
        *phandle = (*ppdoc)->handle;
    }
    return nfuncret;
}

/* An element for further elements does not end the search, as files share such elements. */
int teskxml_set_lookup(const char* pkey, const TESKXML_DOC** ppdoc, uint32_t* pnode)
{
    int nfuncret = TESKXML_RET_FAIL_NOKEY;
    uint32_t nnode = TESKXML_NONE;
    size_t nlen = strlen(pkey);

    for (PTESKXML_DOC pdoc = gset.pfirst; pdoc != nullptr && nfuncret != TESKXML_RET_SUCCESS; pdoc = pdoc->pnext) {
        nnode = teskxml_doc_find(pdoc, pkey, nlen);
        if (nnode != TESKXML_NONE) {
            nfuncret = pdoc->pnode[nnode].branch ? TESKXML_RET_FAIL_NOVALUE : TESKXML_RET_SUCCESS;
            *ppdoc = pdoc;
            *pnode = nnode;
        }
    }
    if (nfuncret == TESKXML_RET_FAIL_NOVALUE) {
        teskxml_fail(nfuncret, (*ppdoc)->pfile, (*ppdoc)->pnode[*pnode].line, (*ppdoc)->pnode[*pnode].column, "%s: %s",
                     pkey, teskxml_codetext(nfuncret));
    } else if (nfuncret == TESKXML_RET_FAIL_NOKEY) {
        teskxml_fail(nfuncret, nullptr, 0, 0, "%s: %s", pkey, teskxml_codetext(nfuncret));
    }
    return nfuncret;
}

void teskxml_set_clear()
{
    PTESKXML_DOC pdoc = nullptr;

    while (gset.pfirst != nullptr) {
        pdoc = gset.pfirst;
        gset.pfirst = pdoc->pnext;
        free(pdoc);
    }
    gset.loaded = 0;
}
