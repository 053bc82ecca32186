/*
 * What is shown of a text.
 */
#include "common/text.h"

#include "tesk_text.h"

namespace monpctl {

std::string printable(std::string text)
{
    tesk::hide_controls(text.data(), text.size());
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
