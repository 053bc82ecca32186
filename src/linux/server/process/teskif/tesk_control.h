/*
 * Control characters in UTF-8 text, the one definition for all that is shown or written of a value that others chose.
 */
#ifndef TESK_CONTROL_H
#define TESK_CONTROL_H

#include <cstddef>
#include <string_view>

namespace tesk {

struct Control {
    size_t length = 0;  /* bytes of the character; 0: the text does not begin with a control character */
    char32_t value = 0; /* its number in Unicode */
};

/*
 * Finds the control character at the start of a text: U+0000 to U+001F and U+007F; U+0080 to U+009F, which terminals
 * obey; U+2028 and U+2029, which end a line for many programs. For any thread and signal handler.
 */
constexpr Control control_at(std::string_view text)
{
    const auto byte = [text](size_t at) { return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U; };
    Control found;

    if (!text.empty() && (byte(0) < 0x20 || byte(0) == 0x7f)) {
        found = { 1, byte(0) };
    } else if (byte(0) == 0xc2 && byte(1) >= 0x80 && byte(1) < 0xa0) {
        found = { 2, byte(1) };
    } else if (byte(0) == 0xe2 && byte(1) == 0x80 && (byte(2) == 0xa8 || byte(2) == 0xa9)) {
        found = { 3, 0x2000U | (byte(2) & 0x3fU) };
    }
    return found;
}

} // namespace tesk

#endif
