/*
 * One loaded file: its elements with their keys and values and an index to them, in one block of memory.
 */
#ifndef TESKXML_DOC_H
#define TESKXML_DOC_H

#include <cstddef>
#include <cstdint>

/*
 * Where a file's keys may lie, and by which operation it was loaded.
 */
enum __teskxml_dockind__ {
    TESKXML_DOC_CONFIG = 0,
    TESKXML_DOC_PATHCONFIG = 1,
    TESKXML_DOC_SECTION = 2 /* keys below "/root/<section>" only */
};

/*
 * An element. Elements are numbered from 0, the document element, in the order of their start tags.
 */
typedef struct {
    uint32_t parent; /* TESKXML_TOP for the document element */
    uint32_t key;    /* where the NUL-terminated key starts in the texts; the value follows it */
    int32_t line;    /* of its start tag, from 1 */
    int32_t column;  /* of its start tag, in bytes, from 1 */
    uint16_t keylen;
    uint16_t namelen; /* the end of the key */
    uint16_t valuelen;
    bool branch; /* no value: it has child elements, or its place is one where only these may be */
} TESKXML_NODE;

/*
 * A file. The arrays behind the pointers lie in the same block and are never moved.
 */
typedef struct TESKXML_DOC {
    struct TESKXML_DOC* pnext;
    int kind;          /* __teskxml_dockind__ */
    size_t users;      /* loads that were not undone */
    uintptr_t handle;  /* tells it from every other file loaded so far */
    const char* pfile; /* absolute path */
    TESKXML_NODE* pnode;
    uint32_t nodes;
    uint32_t maxnodes;
    /* the index: an element is in the place of its parent's and its name's hash, or behind it before a free one */
    uint32_t* pplace;
    uint32_t placemask;  /* places, a power of two, less 1 */
    uint32_t lastparent; /* the element in which the last key was looked for, as most keys lie beside the one before */
    char* ptext;
    size_t text; /* bytes in use */
    size_t maxtext;
} TESKXML_DOC, *PTESKXML_DOC;

static constexpr uint32_t TESKXML_NONE = UINT32_MAX;
static constexpr uint32_t TESKXML_TOP = UINT32_MAX - 1; /* above the document element */

/*
 * Makes an empty document with room for everything a content can hold, so that nothing has to grow later.
 *   nkind  of __teskxml_dockind__
 *   pfile  path of the file, copied
 *   pdata  its content; its elements are counted only
 *   nsize  bytes of it
 * Result: the document, to be released with free; null when memory is short.
 */
PTESKXML_DOC teskxml_doc_create(int nkind, const char* pfile, const char* pdata, size_t nsize);

/*
 * Adds an element behind all others; the first one is the document element.
 *   nparent  number of the element that it lies in; TESKXML_TOP for the document element
 *   pname    its name, NUL-terminated; with it the key is no longer than TESKXML_MAX_KEY
 *   nlen     bytes of the name
 *   pnumber  out: its number; if it was not added, that of the element that has its key already, or TESKXML_NONE when
 *            the document is full
 * Result: whether it was added. Its place is then 0, and it is no branch.
 */
bool teskxml_doc_add(PTESKXML_DOC pdoc, uint32_t nparent, const char* pname, size_t nlen, uint32_t* pnumber);

/*
 * Appends text to the value of the newest element.
 * Result: false when there is no room.
 */
bool teskxml_doc_addtext(PTESKXML_DOC pdoc, const char* ptext, size_t nlen);

/*
 * Completes the value of the newest element: drops the blanks behind it and adds the NUL.
 * Result: false when there is no room.
 */
bool teskxml_doc_endtext(PTESKXML_DOC pdoc);

/*
 * Key, such as "/root/all/path", name and value of an element, NUL-terminated. The value of a branch is empty.
 */
const char* teskxml_doc_key(const TESKXML_DOC* pdoc, uint32_t nnode);
const char* teskxml_doc_name(const TESKXML_DOC* pdoc, uint32_t nnode);
const char* teskxml_doc_value(const TESKXML_DOC* pdoc, uint32_t nnode);

/*
 * Finds an element by its key of nlen bytes: walks from name to name, each looked up among the elements of the one
 * before. The walk begins at the element that the last one came to, if the key leads through that.
 * Result: its number, or TESKXML_NONE.
 */
uint32_t teskxml_doc_find(PTESKXML_DOC pdoc, const char* pkey, size_t nlen);

/*
 * Finds a key that both documents hold, one of them as a value.
 *   pclash, pother  out: the first such element, in pdoc and in potherdoc; meaningless if there is none
 * Result: whether there is one.
 */
bool teskxml_doc_clash(const TESKXML_DOC* pdoc, PTESKXML_DOC potherdoc, uint32_t* pclash, uint32_t* pother);

/*
 * Whether a byte is one of those that are dropped around a value.
 */
static inline bool teskxml_isblank(char nchar)
{
    return nchar == ' ' || nchar == '\t' || nchar == '\n' || nchar == '\r';
}

#endif
