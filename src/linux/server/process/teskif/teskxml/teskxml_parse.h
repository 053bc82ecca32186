/*
 * From the content of a file to its keys and values.
 */
#ifndef TESKXML_PARSE_H
#define TESKXML_PARSE_H

#include "teskxml_doc.h"

/*
 * Parses a content into a document. Nothing but the content is read. A document that failed may hold a part of it and
 * is good for free only.
 *   pdoc      an empty document that was made for this content
 *   psection  the section that all keys must belong to; null: any key below "/root"
 *   pdata     the content, nsize bytes
 * Result: TESKXML_RET_SUCCESS, SYNTAX, FORBIDDEN, SCOPE, DUPLICATE, LIMIT, or MEMORY.
 */
int teskxml_parse(PTESKXML_DOC pdoc, const char* psection, const char* pdata, size_t nsize);

#endif
