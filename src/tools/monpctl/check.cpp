/*
 * The command "check".
 */
#include "commands.h"
#include "settings.h"
#include "text.h"

#include <algorithm>
#include <iostream>
#include <map>

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
        std::cout << "  " << setting.name << std::string(width - setting.name.size(), ' ') << " = "
                  << printable(setting.value) << "  [" << setting.source << "]\n";
    }
}

/*
 * A running service is told by its program, so a program is one service's only.
 */
void compare_programs(const std::vector<Settings>& all, std::vector<Problem>& problems)
{
    std::map<std::string, std::string> types;

    for (const auto& settings : all) {
        const auto [first, added] = types.try_emplace(settings.service, settings.type);
        const auto path = std::find_if(settings.explained.begin(), settings.explained.end(),
                                       [&](const auto& setting) { return setting.name == settings.type + "/path"; });
        if (!added && path != settings.explained.end()) {
            problems.push_back({ path->source, Severity::warning,
                                 settings.service + " is the program of the type " + first->second +
                                     ", too; each monitor would adopt the other's service" });
        }
    }
}

} // namespace

int check(const CheckOptions& given)
{
    std::vector<Settings> all;
    std::vector<Problem> problems;
    bool usable = true;

    if (given.type.empty() && !given.options.empty()) {
        throw Refusal("options of a monitor need a type");
    }
    if (!given.type.empty()) {
        require_known(given.type);
    }
    const auto types = given.type.empty() ? known_types() : std::vector{ given.type };
    if (types.empty()) {
        throw Refusal(home() + "/etc/policy has no section of a service");
    }
    for (const auto& type : types) {
        all.push_back(read_settings(type, given.options));
        const Settings& settings = all.back();
        problems.insert(problems.end(), settings.problems.begin(), settings.problems.end());
        usable = usable && settings.usable();
        if (given.explain) {
            explain(settings);
        }
    }
    compare_programs(all, problems);
    sort_problems(problems);
    for (const auto& problem : problems) {
        std::cout << printable(problem.where + ": " + problem.sentence) << '\n';
    }
    return usable ? 0 : 1;
}

} // namespace monpctl
