/*
 * From the text of an element to the destination of the caller, which is written to only when all of it is right.
 */
#include "teskxml_value.h"

#include "teskxml_error.h"

#include <climits>
#include <cstring>

/* Tells about a value that cannot be read as asked for. */
static int teskxml_badvalue(int ncode, const TESKXML_DOC* pdoc, uint32_t nnode)
{
    return teskxml_fail(ncode, pdoc->pfile, pdoc->pnode[nnode].line, pdoc->pnode[nnode].column, "%s is \"%s\": %s",
                        teskxml_doc_key(pdoc, nnode), teskxml_shown(teskxml_doc_value(pdoc, nnode)).text,
                        teskxml_codetext(ncode));
}

int teskxml_value_text(const TESKXML_DOC* pdoc, uint32_t nnode, void* pdest, size_t ncapacity)
{
    int nfuncret = TESKXML_RET_SUCCESS;
    size_t nlen = pdoc->pnode[nnode].valuelen;

    if (nlen >= ncapacity) {
        nfuncret = teskxml_badvalue(TESKXML_RET_FAIL_CAPACITY, pdoc, nnode);
    } else {
        memcpy(pdest, teskxml_doc_value(pdoc, nnode), nlen + 1);
    }
    return nfuncret;
}

/* Unlike strtol, takes nothing but a sign and figures. */
static int teskxml_tonumber(const char* ptext, int* pnumber)
{
    static constexpr long long nbeyond = 1LL - INT_MIN; /* out of range with either sign */
    int nfuncret = TESKXML_RET_SUCCESS;
    bool bnegative = *ptext == '-';
    long long nnumber = 0;
    const char* pfirst = *ptext == '-' || *ptext == '+' ? ptext + 1 : ptext;

    for (ptext = pfirst; *ptext >= '0' && *ptext <= '9'; ptext++) {
        nnumber = nnumber < nbeyond ? nnumber * 10 + (*ptext - '0') : nbeyond;
    }
    if (ptext == pfirst || *ptext != '\0') {
        nfuncret = TESKXML_RET_FAIL_NOTNUMBER;
        goto monp_exit_func;
    }
    nnumber = bnegative ? -nnumber : nnumber;
    if (nnumber < INT_MIN || nnumber > INT_MAX) {
        nfuncret = TESKXML_RET_FAIL_RANGE;
        goto monp_exit_func;
    }
    *pnumber = static_cast<int>(nnumber);

monp_exit_func:
    return nfuncret;
}

int teskxml_value_int(const TESKXML_DOC* pdoc, uint32_t nnode, void* pdest, size_t ncapacity)
{
    int nfuncret = TESKXML_RET_FAIL_CAPACITY;
    int nnumber = 0;

    if (ncapacity >= sizeof(nnumber)) {
        nfuncret = teskxml_tonumber(teskxml_doc_value(pdoc, nnode), &nnumber);
    }
    if (nfuncret == TESKXML_RET_SUCCESS) {
        memcpy(pdest, &nnumber, sizeof(nnumber));
    } else {
        teskxml_badvalue(nfuncret, pdoc, nnode);
    }
    return nfuncret;
}
