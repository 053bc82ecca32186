#include "commands/exit.h"

#include <algorithm>
#include <array>

namespace monpctl {

Exit worse(Exit one, Exit other)
{
    constexpr std::array ORDER = { EXIT_DONE, EXIT_DOWN, EXIT_FAILED, EXIT_UNKNOWN, EXIT_USAGE };
    const auto place = [&](Exit result) { return std::ranges::find(ORDER, result); };

    return place(one) < place(other) ? other : one;
}

} // namespace monpctl
