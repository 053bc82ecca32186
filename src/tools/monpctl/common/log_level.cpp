#include "common/log_level.h"

#include <algorithm>
#include <array>

namespace monpctl {

static constexpr std::array<std::string_view, 6> WORDS = { "event", "error", "warning", "info", "trace", "detail" };

std::vector<std::string> log_level_words()
{
    return { WORDS.begin(), WORDS.end() };
}

std::optional<size_t> log_level_rank(std::string_view word)
{
    const auto* const found = std::ranges::find(WORDS, word);

    return found == WORDS.end() ? std::nullopt : std::optional(static_cast<size_t>(found - WORDS.begin()));
}

} // namespace monpctl
