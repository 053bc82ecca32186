/*
 * Text of files and callers, on its way to a terminal or a log.
 */
#ifndef TESK_TEXT_H
#define TESK_TEXT_H

#include <cstddef>

namespace tesk {

/*
 * Finds a control character at the start of a text: U+0000 to U+001F, U+007F to U+009F, which a terminal obeys, and
 * U+2028 and U+2029, which end a line for many programs.
 *   text  in UTF-8, of size bytes
 * Result: the bytes of the character, 1 to 3; 0 if there is none.
 */
constexpr size_t control_length(const char* text, size_t size)
{
    const auto byte = [text](size_t at) { return static_cast<unsigned char>(text[at]); };
    size_t length = 0;

    if (size >= 1 && (byte(0) < ' ' || byte(0) == 0x7f)) {
        length = 1;
    } else if (size >= 2 && byte(0) == 0xc2 && byte(1) >= 0x80 && byte(1) < 0xa0) {
        length = 2;
    } else if (size >= 3 && byte(0) == 0xe2 && byte(1) == 0x80 && (byte(2) == 0xa8 || byte(2) == 0xa9)) {
        length = 3;
    }
    return length;
}

/*
 * Replaces each byte of each control character by "?".
 *   text  in UTF-8, of size bytes; those behind a NUL are looked at too
 */
constexpr void hide_controls(char* text, size_t size)
{
    for (size_t at = 0; at < size; at++) {
        for (size_t length = control_length(text + at, size - at); length > 0; length--) {
            text[at + length - 1] = '?';
        }
    }
}

} // namespace tesk

#endif
