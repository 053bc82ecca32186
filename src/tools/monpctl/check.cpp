/*
 * The command "check".
 */
#include "commands.h"
#include "settings.h"

#include <algorithm>
#include <iostream>

namespace monpctl {

namespace {

void explain(const Settings& settings)
{
    size_t width = 0;

    for (const auto& setting : settings.explained) {
        width = std::max(width, setting.name.size());
    }
    std::cout << "A monitor of the type " << settings.type << ":\n";
    for (const auto& setting : settings.explained) {
        std::cout << "  " << setting.name << std::string(width - setting.name.size(), ' ') << " = " << setting.value
                  << "  [" << setting.source << "]\n";
    }
}

} // namespace

int check(const CheckOptions& given)
{
    std::vector<Problem> problems;
    bool usable = true;

    if (given.type.empty() && !given.options.empty()) {
        throw Refusal("options of a monitor need a type");
    }
    if (!given.type.empty()) {
        require_known(given.type);
    }
    for (const auto& type : given.type.empty() ? known_types() : std::vector{ given.type }) {
        const Settings settings = read_settings(type, given.options);
        problems.insert(problems.end(), settings.problems.begin(), settings.problems.end());
        usable = usable && settings.usable();
        if (given.explain) {
            explain(settings);
        }
    }
    sort_problems(problems);
    for (const auto& problem : problems) {
        std::cout << problem.where << ": " << problem.sentence << '\n';
    }
    return usable ? 0 : 1;
}

} // namespace monpctl
