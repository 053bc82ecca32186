/*
 * Values as the kinds that a caller can ask for.
 */
#ifndef TESKXML_VALUE_H
#define TESKXML_VALUE_H

#include "teskxml_set.h"

namespace teskxml {

/*
 * Copies a value as text with its NUL, or as a number.
 *   value     an element that has a value
 *   target    out: capacity bytes, 1 or more, or an int; untouched unless the result is 0
 * Result: TESKXML_RET_SUCCESS or TESKXML_RET_FAIL_CAPACITY; of a number also NOTNUMBER or RANGE.
 */
int copy_text(const Found& value, void* target, size_t capacity);
int copy_number(const Found& value, void* target, size_t capacity);

} // namespace teskxml

#endif
