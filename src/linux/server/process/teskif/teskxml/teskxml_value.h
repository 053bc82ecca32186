/*
 * Values as the kinds that a caller can ask for.
 */
#ifndef TESKXML_VALUE_H
#define TESKXML_VALUE_H

#include "teskxml_doc.h"

/*
 * Copies the value of an element as text with its NUL, or as a number.
 *   nnode      number of the element, one that has a value
 *   pdest      out: ncapacity bytes, or an int; untouched unless the result is 0
 *   ncapacity  bytes there, 1 or more
 * Result: TESKXML_RET_SUCCESS or TESKXML_RET_FAIL_CAPACITY; of a number also NOTNUMBER or RANGE.
 */
int teskxml_value_text(const TESKXML_DOC* pdoc, uint32_t nnode, void* pdest, size_t ncapacity);
int teskxml_value_int(const TESKXML_DOC* pdoc, uint32_t nnode, void* pdest, size_t ncapacity);

#endif
