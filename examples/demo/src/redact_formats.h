/*
 * Files in which no search finds a secret, as their text is packed or in two bytes a character.
 */
#ifndef SAMPLE_REDACT_FORMATS_H
#define SAMPLE_REDACT_FORMATS_H

#include <string_view>

namespace sample {

/*
 * Why a file cannot be searched, in two words; empty if it can.
 *   name     of the file: its end tells of compression that has no mark of its own
 *   is_dump  of memory: it may have texts in two bytes a character in between, and only its beginning is looked at
 */
std::string_view why_not_searchable(std::string_view name, std::string_view content, bool is_dump);

} // namespace sample

#endif
