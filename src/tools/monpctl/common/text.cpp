/*
 * What is shown of a text.
 */
#include "common/text.h"

namespace monpctl {

std::string printable(std::string text)
{
    for (size_t i = 0; i < text.size(); i++) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < ' ' || byte == 0x7f) {
            text[i] = '?';
        } else if (byte == 0xc2 && i + 1 < text.size() && (static_cast<unsigned char>(text[i + 1]) & 0xe0U) == 0x80) {
            text[i] = text[i + 1] = '?'; /* U+0080 to U+009F */
        }
    }
    return text;
}

std::string shell_words(const char* const* argv)
{
    constexpr const char* PLAIN = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-+=:,./@%";
    std::string text;

    for (; *argv != nullptr; argv++) {
        std::string word = *argv;
        if (word.empty() || word.find_first_not_of(PLAIN) != std::string::npos) {
            for (size_t i = word.find('\''); i != std::string::npos; i = word.find('\'', i + 4)) {
                word.replace(i, 1, "'\\''");
            }
            word.insert(0, 1, '\'').append(1, '\'');
        }
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

} // namespace monpctl
