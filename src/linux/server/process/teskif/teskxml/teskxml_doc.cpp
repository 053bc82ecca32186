/*
 * The tree of one file. Its size is bounded before the file is parsed: an element needs a "<" of its own, and the texts
 * never get longer than the file, as each name comes with more than a NUL around it and a reference is longer than what
 * it stands for. So one allocation suffices, and one free undoes everything.
 */
#include "teskxml_doc.h"

#include "teskxml_tools.h"

#include <cstdlib>
#include <cstring>

static uint32_t teskxml_countelements(const char* pdata, size_t nsize)
{
    uint32_t ncount = 0;
    const char* pend = pdata + nsize;
    const char* pchar = pdata;

    while (ncount < TESKXML_MAX_KEYS &&
           (pchar = static_cast<const char*>(memchr(pchar, '<', static_cast<size_t>(pend - pchar)))) != nullptr) {
        pchar++;
        if (pchar < pend && *pchar != '/' && *pchar != '!' && *pchar != '?') {
            ncount++;
        }
    }
    return ncount;
}

PTESKXML_DOC teskxml_doc_create(int nkind, const char* pfile, const char* pdata, size_t nsize)
{
    uint32_t nnodes = teskxml_countelements(pdata, nsize);
    size_t nfilelen = strlen(pfile) + 1;
    size_t nbytes = sizeof(TESKXML_DOC) + nnodes * sizeof(TESKXML_NODE) + nsize + nfilelen;
    PTESKXML_DOC pdoc = static_cast<PTESKXML_DOC>(malloc(nbytes));

    static_assert(sizeof(TESKXML_DOC) % alignof(TESKXML_NODE) == 0, "the elements follow the document");
    if (pdoc != nullptr) {
        *pdoc = {};
        pdoc->kind = nkind;
        pdoc->users = 1;
        pdoc->pnode = reinterpret_cast<TESKXML_NODE*>(pdoc + 1);
        pdoc->maxnodes = nnodes;
        pdoc->ptext = reinterpret_cast<char*>(pdoc->pnode + nnodes);
        pdoc->maxtext = nsize;
        pdoc->pfile = static_cast<char*>(memcpy(pdoc->ptext + nsize, pfile, nfilelen));
    }
    return pdoc;
}

uint32_t teskxml_doc_add(PTESKXML_DOC pdoc, uint32_t nparent, const char* pname, size_t nlen, int nline, bool bbranch)
{
    uint32_t nnode = TESKXML_NONE;
    TESKXML_NODE* pnode = nullptr;
    TESKXML_NODE* pparent = nullptr;

    if (pdoc->nodes == pdoc->maxnodes || pdoc->maxtext - pdoc->text <= nlen) {
        goto monp_exit_func;
    }
    nnode = pdoc->nodes++;
    pnode = &pdoc->pnode[nnode];
    *pnode = {};
    pnode->parent = nparent;
    pnode->name = static_cast<uint32_t>(pdoc->text);
    pnode->namelen = static_cast<uint16_t>(nlen);
    pnode->keylen = static_cast<uint16_t>(1 + nlen);
    pnode->line = nline;
    pnode->branch = bbranch;
    if (nnode != 0) {
        pparent = &pdoc->pnode[nparent];
        pnode->keylen = static_cast<uint16_t>(pnode->keylen + pparent->keylen);
        pnode->prev = pparent->last;
        pparent->last = nnode;
        pparent->branch = true;
    }
    memcpy(pdoc->ptext + pdoc->text, pname, nlen);
    pdoc->ptext[pdoc->text + nlen] = '\0';
    pdoc->text += nlen + 1;

monp_exit_func:
    return nnode;
}

bool teskxml_doc_addtext(PTESKXML_DOC pdoc, const char* ptext, size_t nlen)
{
    TESKXML_NODE* pnode = &pdoc->pnode[pdoc->nodes - 1];
    bool bfits = pdoc->maxtext - pdoc->text >= nlen;

    if (bfits) {
        memcpy(pdoc->ptext + pdoc->text, ptext, nlen);
        pdoc->text += nlen;
        pnode->valuelen = static_cast<uint16_t>(pnode->valuelen + nlen);
    }
    return bfits;
}

bool teskxml_doc_endtext(PTESKXML_DOC pdoc)
{
    TESKXML_NODE* pnode = &pdoc->pnode[pdoc->nodes - 1];
    bool bfits = true;

    while (pnode->valuelen > 0 && teskxml_isblank(pdoc->ptext[pdoc->text - 1])) {
        pnode->valuelen--;
        pdoc->text--;
    }
    if (pnode->valuelen > 0) {
        bfits = pdoc->text < pdoc->maxtext;
        if (bfits) {
            pdoc->ptext[pdoc->text++] = '\0';
        }
    }
    return bfits;
}

const char* teskxml_doc_name(const TESKXML_DOC* pdoc, uint32_t nnode)
{
    return pdoc->ptext + pdoc->pnode[nnode].name;
}

const char* teskxml_doc_value(const TESKXML_DOC* pdoc, uint32_t nnode)
{
    const TESKXML_NODE* pnode = &pdoc->pnode[nnode];

    /* An empty value has no NUL of its own; the one of the name serves. */
    return pdoc->ptext + pnode->name + pnode->namelen + (pnode->valuelen > 0 ? 1 : 0);
}

void teskxml_doc_key(const TESKXML_DOC* pdoc, uint32_t nnode, char* pkey)
{
    const TESKXML_NODE* pnode = nullptr;
    size_t nend = pdoc->pnode[nnode].keylen;

    pkey[nend] = '\0';
    while (nend > 0) {
        pnode = &pdoc->pnode[nnode];
        nend -= pnode->namelen;
        memcpy(pkey + nend, pdoc->ptext + pnode->name, pnode->namelen);
        pkey[--nend] = '/';
        nnode = pnode->parent;
    }
}

/* Siblings mostly differ in length or first byte; that spares the call. */
static bool teskxml_isnamed(const TESKXML_DOC* pdoc, uint32_t nnode, const char* pname, size_t nlen)
{
    const char* pown = teskxml_doc_name(pdoc, nnode);

    return pdoc->pnode[nnode].namelen == nlen && pown[0] == pname[0] && memcmp(pown, pname, nlen) == 0;
}

/* Length of the name at the start of a key's rest; names are too short for a library call to pay. */
static size_t teskxml_namelength(const char* pname)
{
    size_t nlen = 0;

    while (pname[nlen] != '\0' && pname[nlen] != '/') {
        nlen++;
    }
    return nlen;
}

uint32_t teskxml_doc_child(const TESKXML_DOC* pdoc, uint32_t nparent, const char* pname, size_t nlen)
{
    uint32_t nnode = pdoc->pnode[nparent].last;

    while (nnode != 0 && !teskxml_isnamed(pdoc, nnode, pname, nlen)) {
        nnode = pdoc->pnode[nnode].prev;
    }
    return nnode != 0 ? nnode : TESKXML_NONE;
}

uint32_t teskxml_doc_find(const TESKXML_DOC* pdoc, const char* pkey)
{
    uint32_t nnode = TESKXML_NONE;
    size_t nlen = 0;

    if (*pkey == '/') {
        nlen = teskxml_namelength(pkey + 1);
        nnode = teskxml_isnamed(pdoc, 0, pkey + 1, nlen) ? 0 : TESKXML_NONE;
        pkey += 1 + nlen;
    }
    while (nnode != TESKXML_NONE && *pkey == '/') {
        nlen = teskxml_namelength(pkey + 1);
        nnode = teskxml_doc_child(pdoc, nnode, pkey + 1, nlen);
        pkey += 1 + nlen;
    }
    return nnode;
}

/* Compares the children of two elements of one key. Goes down as far as the documents are deep. */
static bool teskxml_clashbelow(const TESKXML_DOC* pdoc, uint32_t nparent, const TESKXML_DOC* potherdoc,
                               uint32_t notherparent, uint32_t* pclash, uint32_t* pother)
{
    bool bclash = false;
    uint32_t nnode = pdoc->pnode[nparent].last;
    uint32_t nother = TESKXML_NONE;

    for (; nnode != 0 && !bclash; nnode = pdoc->pnode[nnode].prev) {
        nother = teskxml_doc_child(potherdoc, notherparent, teskxml_doc_name(pdoc, nnode), pdoc->pnode[nnode].namelen);
        if (nother == TESKXML_NONE) {
            continue;
        }
        if (pdoc->pnode[nnode].branch && potherdoc->pnode[nother].branch) {
            bclash = teskxml_clashbelow(pdoc, nnode, potherdoc, nother, pclash, pother);
        } else {
            *pclash = nnode;
            *pother = nother;
            bclash = true;
        }
    }
    return bclash;
}

bool teskxml_doc_clash(const TESKXML_DOC* pdoc, const TESKXML_DOC* potherdoc, uint32_t* pclash, uint32_t* pother)
{
    return teskxml_clashbelow(pdoc, 0, potherdoc, 0, pclash, pother);
}
