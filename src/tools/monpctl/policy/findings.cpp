#include "policy/findings.h"

#include <algorithm>
#include <fmt/format.h>

namespace monpctl {

namespace {

constexpr const char* COMMAND_LINE = "command line";

} // namespace

const char* word(Severity severity)
{
    static constexpr const char* WORDS[] = { "note", "warning", "error" };

    return WORDS[static_cast<size_t>(severity)];
}

std::string text_of(const Place& place)
{
    if (place.file.empty()) {
        return COMMAND_LINE;
    }
    return place.line > 0 ? place.file + ':' + std::to_string(place.line) : place.file;
}

std::string text_of(const Problem& problem)
{
    return fmt::format("{}: {}: {}", text_of(problem.place), word(problem.severity), problem.sentence);
}

void sort_problems(std::vector<Problem>& problems)
{
    std::ranges::stable_sort(problems, [](const Problem& one, const Problem& other) {
        return one.place != other.place ? one.place < other.place : one.sentence < other.sentence;
    });
    /* clang 14 cannot compile the result of std::ranges::unique(). */
    problems.erase(std::unique(problems.begin(), problems.end()), problems.end());
}

bool Setting::given() const
{
    return source == Source::file || source == Source::command_line;
}

std::string source_text(const Setting& setting)
{
    switch (setting.source) {
    case Source::file:
        return text_of(setting.place);
    case Source::command_line:
        return COMMAND_LINE;
    case Source::fallback:
        return "default";
    case Source::missing:
        return "missing";
    case Source::formed:
        break;
    }
    return "formed";
}

} // namespace monpctl
