#include "common/suggestion.h"

#include <algorithm>
#include <vector>

namespace monpctl {

namespace {

/* Longer words are not compared: the work grows with the square of the length. */
constexpr size_t LONGEST = 256;

/*
 * The number of edits that turn one word into the other, kept in rows of a table of the beginnings of both.
 */
size_t distance(std::string_view one, std::string_view other)
{
    std::vector<size_t> before_last;
    std::vector<size_t> last(other.size() + 1);
    std::vector<size_t> row(other.size() + 1);

    for (size_t j = 0; j <= other.size(); j++) {
        last[j] = j;
    }
    for (size_t i = 1; i <= one.size(); i++) {
        row[0] = i;
        for (size_t j = 1; j <= other.size(); j++) {
            const size_t changed = last[j - 1] + (one[i - 1] == other[j - 1] ? 0 : 1);
            row[j] = std::min({ changed, last[j] + 1, row[j - 1] + 1 });
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1]) {
                row[j] = std::min(row[j], before_last[j - 2] + 1);
            }
        }
        before_last = last;
        last = row;
    }
    return last.back();
}

} // namespace

std::string most_similar(std::string_view word, std::span<const std::string> candidates)
{
    std::string best;
    size_t least = std::min<size_t>(2, (word.size() + 2) / 3) + 1;

    if (word.size() > LONGEST) {
        return best;
    }
    for (const auto& candidate : candidates) {
        const size_t edits = candidate.size() > LONGEST ? least : distance(word, candidate);
        if (edits < least) {
            least = edits;
            best = candidate;
        }
    }
    return best;
}

std::string did_you_mean(std::string_view word, std::span<const std::string> candidates)
{
    const std::string found = most_similar(word, candidates);

    return found.empty() ? "" : "; did you mean " + found + '?';
}

} // namespace monpctl
