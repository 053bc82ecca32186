#include "commands/state_look.h"

#include <algorithm>
#include <fmt/format.h>

namespace monpctl {

namespace {

constexpr std::string_view GREEN = "\033[32m";
constexpr std::string_view YELLOW = "\033[33m";
constexpr std::string_view RED = "\033[31m";
constexpr std::string_view PLAIN = "\033[0m";

struct Look {
    State state;
    Exit result;
    std::string_view colour; /* empty: none */
};

constexpr Look LOOKS[] = {
    { State::running, EXIT_DONE, GREEN },  { State::starting, EXIT_DOWN, YELLOW },
    { State::waiting, EXIT_DOWN, YELLOW }, { State::recovering, EXIT_DOWN, YELLOW },
    { State::ending, EXIT_DOWN, YELLOW },  { State::stopped, EXIT_DOWN, "" },
    { State::gave_up, EXIT_FAILED, RED },  { State::dead, EXIT_FAILED, RED },
    { State::unknown, EXIT_UNKNOWN, RED },
};

const Look& look_of(State state)
{
    return *std::ranges::find(LOOKS, state, &Look::state);
}

} // namespace

Exit exit_status(const TypeStatus& status)
{
    const bool disabled = status.state == State::stopped && status.settings.held_back;

    return disabled ? EXIT_DONE : look_of(status.state).result;
}

std::string coloured(State state, std::string_view text)
{
    const auto colour = look_of(state).colour;

    return colour.empty() ? std::string(text) : fmt::format("{}{}{}", colour, text, PLAIN);
}

} // namespace monpctl
