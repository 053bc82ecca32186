/*
 * The walk over what is loaded, which no operation of the shared library needs.
 */
#include "teskxml_tools.h"

#include "teskxml_error.h"
#include "teskxml_open.h"
#include "teskxml_set.h"

int teskxml_walk(TESKXML_VISIT visit, void* context)
{
    int nfuncret = teskxml_checkopen();
    int nstop = 0;

    if (nfuncret == TESKXML_RET_SUCCESS && visit == nullptr) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_ARGUMENT, nullptr, 0, 0, "the operation to call is missing");
    }
    if (nfuncret != TESKXML_RET_SUCCESS) {
        return nfuncret;
    }
    for (const TESKXML_DOC* pdoc = teskxml_set_first(); pdoc != nullptr; pdoc = pdoc->pnext) {
        for (uint32_t nnode = 0; nnode < pdoc->nodes && nstop == 0; nnode++) {
            if (!pdoc->pnode[nnode].branch) {
                nstop = visit(teskxml_doc_key(pdoc, nnode), teskxml_doc_value(pdoc, nnode), pdoc->pfile,
                              pdoc->pnode[nnode].line, context);
            }
        }
    }
    return TESKXML_RET_SUCCESS;
}
