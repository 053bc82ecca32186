#include "machine/type_status.h"

#include <array>

namespace monpctl {

std::string_view word(State state)
{
    constexpr std::array<std::string_view, 9> WORDS = { "starting", "running", "waiting", "recovering", "ending",
                                                        "gave up",  "unknown", "dead",    "stopped" };
    static_assert(WORDS.size() == static_cast<size_t>(State::stopped) + 1);

    return WORDS[static_cast<size_t>(state)];
}

} // namespace monpctl
