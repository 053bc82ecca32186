/*
 * Texts from files on their way to a terminal.
 */
#ifndef MONPCTL_TEXT_H
#define MONPCTL_TEXT_H

#include <string>

namespace monpctl {

/*
 * A text with "?" for each character that a terminal would obey.
 */
std::string printable(std::string text);

/*
 * An argument vector, ended by a null pointer, as a shell would take it.
 */
std::string shell_words(const char* const* argv);

} // namespace monpctl

#endif
