/*
 * The elements of one file. Their size is bounded before the file is parsed: an element needs a "<" of its own, a key
 * has its limit, and the values never get longer than the file, as a reference is longer than what it stands for. So
 * one allocation suffices, and one free undoes everything. What the bound exceeds the need by is never touched.
 */
#include "teskxml_doc.h"

#include "teskxml_tools.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

/* Without a branch, so that the compiler makes it look at many bytes at once. Comments count too; it is a bound. */
static uint32_t teskxml_countelements(const char* pdata, size_t nsize)
{
    uint32_t ncount = 0;

    for (size_t ninx = 1; ninx < nsize; ninx++) {
        ncount += static_cast<uint32_t>(pdata[ninx - 1] == '<') & static_cast<uint32_t>(pdata[ninx] != '/');
    }
    return std::min<uint32_t>(ncount, TESKXML_MAX_KEYS);
}

/* Places of the index: half of them or more stay free, so that a search soon meets a free one. */
static size_t teskxml_countplaces(uint32_t nnodes)
{
    size_t nplaces = 2;

    while (nplaces < 2 * static_cast<size_t>(nnodes)) {
        nplaces *= 2;
    }
    return nplaces;
}

static_assert(sizeof(TESKXML_DOC) % alignof(TESKXML_NODE) == 0, "the elements follow the document");
static_assert(sizeof(TESKXML_NODE) % alignof(uint32_t) == 0, "the index follows the elements");

PTESKXML_DOC teskxml_doc_create(int nkind, const char* pfile, const char* pdata, size_t nsize)
{
    uint32_t nnodes = teskxml_countelements(pdata, nsize);
    size_t nplaces = teskxml_countplaces(nnodes);
    size_t nmaxtext = nnodes * static_cast<size_t>(TESKXML_MAX_KEY + 2) + nsize; /* with the NULs of key and value */
    size_t nfilelen = strlen(pfile) + 1;
    PTESKXML_DOC pdoc = static_cast<PTESKXML_DOC>(
        malloc(sizeof(TESKXML_DOC) + nnodes * sizeof(TESKXML_NODE) + nplaces * sizeof(uint32_t) + nfilelen + nmaxtext));

    if (pdoc != nullptr) {
        *pdoc = {};
        pdoc->kind = nkind;
        pdoc->users = 1;
        pdoc->lastparent = TESKXML_TOP;
        pdoc->pnode = reinterpret_cast<TESKXML_NODE*>(pdoc + 1);
        pdoc->maxnodes = nnodes;
        pdoc->pplace = reinterpret_cast<uint32_t*>(pdoc->pnode + nnodes);
        pdoc->placemask = static_cast<uint32_t>(nplaces - 1);
        memset(pdoc->pplace, 0xff, nplaces * sizeof(uint32_t));
        pdoc->pfile = static_cast<char*>(memcpy(pdoc->pplace + nplaces, pfile, nfilelen));
        pdoc->ptext = reinterpret_cast<char*>(pdoc->pplace + nplaces) + nfilelen;
        pdoc->maxtext = nmaxtext;
    }
    return pdoc;
}

/* By words, the last one overlapping, as a name taken byte by byte costs more than all the rest of a step. */
static inline uint32_t teskxml_hash(uint32_t nparent, const char* pname, size_t nlen)
{
    static constexpr uint64_t nfactor = 0x9e3779b97f4a7c15; /* odd, with bits all over */
    uint64_t nhash = static_cast<uint64_t>(nparent) << 32 | nlen;
    uint64_t nword = 0;
    size_t ninx = 0;

    for (; ninx + sizeof(nword) < nlen; ninx += sizeof(nword)) {
        memcpy(&nword, pname + ninx, sizeof(nword));
        nhash = (nhash ^ nword) * nfactor;
        nhash ^= nhash >> 32;
    }
    if (nlen >= sizeof(nword)) {
        memcpy(&nword, pname + nlen - sizeof(nword), sizeof(nword));
    } else {
        for (nword = 0; ninx < nlen; ninx++) {
            nword = nword << 8 | static_cast<unsigned char>(pname[ninx]);
        }
    }
    nhash = (nhash ^ nword) * nfactor;
    return static_cast<uint32_t>(nhash >> 32);
}

/* The place of a name below its parent in the index: the one that leads to its element, or the free one where it would
 * have to be. */
static uint32_t* teskxml_place(const TESKXML_DOC* pdoc, uint32_t nparent, const char* pname, size_t nlen)
{
    uint32_t* pplace = nullptr;
    const TESKXML_NODE* pnode = nullptr;
    bool bfound = false;

    for (uint32_t nplace = teskxml_hash(nparent, pname, nlen); !bfound; nplace++) {
        pplace = &pdoc->pplace[nplace & pdoc->placemask];
        bfound = *pplace == TESKXML_NONE;
        if (!bfound) {
            pnode = &pdoc->pnode[*pplace];
            bfound = pnode->parent == nparent && pnode->namelen == nlen &&
                     memcmp(teskxml_doc_name(pdoc, *pplace), pname, nlen) == 0;
        }
    }
    return pplace;
}

/* Writes the key of a new element behind all texts, where it stays if the element is added; result: its length. */
static size_t teskxml_makekey(PTESKXML_DOC pdoc, uint32_t nparent, const char* pname, size_t nlen)
{
    char* pkey = pdoc->ptext + pdoc->text;
    size_t nparentlen = 0;

    if (nparent != TESKXML_TOP) {
        nparentlen = pdoc->pnode[nparent].keylen;
        memcpy(pkey, teskxml_doc_key(pdoc, nparent), nparentlen);
    }
    pkey[nparentlen] = '/';
    memcpy(pkey + nparentlen + 1, pname, nlen + 1);
    return nparentlen + 1 + nlen;
}

bool teskxml_doc_add(PTESKXML_DOC pdoc, uint32_t nparent, const char* pname, size_t nlen, uint32_t* pnumber)
{
    bool badded = false;
    size_t nkeylen = 0;
    uint32_t* pplace = nullptr;
    TESKXML_NODE* pnode = nullptr;

    *pnumber = TESKXML_NONE;
    if (pdoc->nodes == pdoc->maxnodes || pdoc->maxtext - pdoc->text < TESKXML_MAX_KEY + 1) {
        goto monp_exit_func;
    }
    pplace = teskxml_place(pdoc, nparent, pname, nlen);
    badded = *pplace == TESKXML_NONE;
    if (badded) {
        nkeylen = teskxml_makekey(pdoc, nparent, pname, nlen);
        *pplace = pdoc->nodes++;
        pnode = &pdoc->pnode[*pplace];
        *pnode = {};
        pnode->parent = nparent;
        pnode->key = static_cast<uint32_t>(pdoc->text);
        pnode->keylen = static_cast<uint16_t>(nkeylen);
        pnode->namelen = static_cast<uint16_t>(nlen);
        pdoc->text += nkeylen + 1;
    }
    *pnumber = *pplace;

monp_exit_func:
    return badded;
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

const char* teskxml_doc_key(const TESKXML_DOC* pdoc, uint32_t nnode)
{
    return pdoc->ptext + pdoc->pnode[nnode].key;
}

const char* teskxml_doc_name(const TESKXML_DOC* pdoc, uint32_t nnode)
{
    return teskxml_doc_key(pdoc, nnode) + pdoc->pnode[nnode].keylen - pdoc->pnode[nnode].namelen;
}

const char* teskxml_doc_value(const TESKXML_DOC* pdoc, uint32_t nnode)
{
    const TESKXML_NODE* pnode = &pdoc->pnode[nnode];

    /* An empty value has no NUL of its own; the one of the key serves. */
    return pdoc->ptext + pnode->key + pnode->keylen + (pnode->valuelen > 0 ? 1 : 0);
}

/* Where the walk to a key can begin: the element that the last key lay in, if this key leads through that. */
static uint32_t teskxml_begin(const TESKXML_DOC* pdoc, const char* pkey, size_t nlen)
{
    const uint32_t nlast = pdoc->lastparent;
    size_t nlastlen = 0;
    bool bbelow = false;

    if (nlast != TESKXML_TOP) {
        nlastlen = pdoc->pnode[nlast].keylen;
        bbelow = nlastlen < nlen && pkey[nlastlen] == '/' && memcmp(teskxml_doc_key(pdoc, nlast), pkey, nlastlen) == 0;
    }
    return bbelow ? nlast : TESKXML_TOP;
}

uint32_t teskxml_doc_find(PTESKXML_DOC pdoc, const char* pkey, size_t nlen)
{
    uint32_t nnode = teskxml_begin(pdoc, pkey, nlen);
    const char* pend = pkey + nlen;
    size_t nnamelen = 0;

    pkey += nnode != TESKXML_TOP ? pdoc->pnode[nnode].keylen : 0;
    while (pkey < pend && *pkey == '/' && nnode != TESKXML_NONE) {
        pdoc->lastparent = nnode;
        pkey++;
        nnamelen = static_cast<size_t>(strchrnul(pkey, '/') - pkey);
        nnode = *teskxml_place(pdoc, nnode, pkey, nnamelen);
        pkey += nnamelen;
    }
    return pkey == pend && nnode != TESKXML_TOP ? nnode : TESKXML_NONE;
}

bool teskxml_doc_clash(const TESKXML_DOC* pdoc, PTESKXML_DOC potherdoc, uint32_t* pclash, uint32_t* pother)
{
    bool bclash = false;
    const TESKXML_NODE* pnode = nullptr;

    for (uint32_t nnode = 0; nnode < pdoc->nodes && !bclash; nnode++) {
        pnode = &pdoc->pnode[nnode];
        *pclash = nnode;
        *pother = teskxml_doc_find(potherdoc, teskxml_doc_key(pdoc, nnode), pnode->keylen);
        bclash = *pother != TESKXML_NONE && !(pnode->branch && potherdoc->pnode[*pother].branch);
    }
    return bclash;
}
