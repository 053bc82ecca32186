/*
 * "Did you mean": the word that a misspelt one may have been.
 */
#ifndef MONPCTL_COMMON_SUGGESTION_H
#define MONPCTL_COMMON_SUGGESTION_H

#include <span>
#include <string>
#include <string_view>

namespace monpctl {

/*
 * The most similar of some words. A wrong, missing or additional character counts one, two swapped neighbours too.
 * Result: empty if none is similar, which is more than a third of the word, or more than two, being different.
 */
std::string most_similar(std::string_view word, std::span<const std::string> candidates);

/*
 * "; did you mean WORD?", or nothing.
 */
std::string did_you_mean(std::string_view word, std::span<const std::string> candidates);

} // namespace monpctl

#endif
