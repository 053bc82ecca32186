/*
 * From the content of a file to its keys and values.
 */
#ifndef TESKXML_PARSE_H
#define TESKXML_PARSE_H

#include "teskxml_doc.h"

namespace teskxml {

/*
 * Parses a content into a document. Nothing but the content is read. A document that failed may hold a part of it and
 * must be released.
 *   document  an empty one that was made for this content
 *   section   the section that all keys must belong to; null: any key below "/root"
 *   content   of the file
 *   scratch   has all that the parser asks for
 * Result: TESKXML_RET_SUCCESS, SYNTAX, FORBIDDEN, SCOPE, DUPLICATE, LIMIT, or MEMORY.
 */
int parse(Document& document, const char* section, std::string_view content, Scratch& scratch);

} // namespace teskxml

#endif
