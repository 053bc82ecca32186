/*
 * Text of files and callers, on its way to a terminal or a log.
 */
#ifndef TESK_TEXT_H
#define TESK_TEXT_H

#include "tesk_control.h"

#include <cstddef>

namespace tesk {

/*
 * Replaces each byte of each control character by "?".
 *   text  in UTF-8, of size bytes; those behind a NUL are looked at too
 */
constexpr void hide_controls(char* text, size_t size)
{
    for (size_t at = 0; at < size; at++) {
        for (size_t length = control_at({ text + at, size - at }).length; length > 0; length--) {
            text[at + length - 1] = '?';
        }
    }
}

} // namespace tesk

#endif
