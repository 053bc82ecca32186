/*
 * The walk over what is loaded, which no operation of the shared library needs.
 */
#include "teskxml_tools.h"

#include "teskxml_open.h"
#include "teskxml_set.h"

using namespace teskxml;

int teskxml_walk(TESKXML_VISIT visit, void* context)
{
    const int result = check_open();

    if (result != TESKXML_RET_SUCCESS) {
        return result;
    }
    if (visit == nullptr) {
        return fail(TESKXML_RET_FAIL_ARGUMENT, NOWHERE, "the operation to call is missing");
    }
    for (const DocumentPtr& document : loaded()) {
        for (Number number = 0; number < document->nodes().size(); number++) {
            const Node& node = document->node(number);
            if (!node.branch &&
                visit(document->key(number), document->value(number), document->path(), node.line, context) != 0) {
                return TESKXML_RET_SUCCESS;
            }
        }
    }
    return TESKXML_RET_SUCCESS;
}
