/*
 * The command "check".
 */
#include "commands/commands.h"
#include "common/installation.h"
#include "common/refusal.h"
#include "common/text.h"
#include "policy/settings.h"

#include <algorithm>
#include <filesystem>
#include <iostream>

namespace fs = std::filesystem;

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
 * Tells if two types have the same program. A running service is told by the path of its executable, behind all links.
 * Hard links are paths of their own, but who replaces the file by writing into it replaces both.
 */
void compare_programs(const Settings& one, const Settings& other, std::vector<Problem>& problems)
{
    const auto path = std::find_if(one.explained.begin(), one.explained.end(),
                                   [&](const auto& setting) { return setting.name == one.type + "/path"; });
    const std::string program = " the program of the type " + other.type;
    std::error_code error;

    if (path == one.explained.end() || one.service.empty() || other.service.empty()) {
        return;
    }
    if (fs::weakly_canonical(one.service, error) == fs::weakly_canonical(other.service, error)) {
        problems.push_back({ path->source, Severity::warning,
                             one.service + " is" + program + ", too; each monitor would adopt the other's service" });
    } else if (fs::equivalent(one.service, other.service, error)) {
        problems.push_back({ path->source, Severity::note, one.service + " is a hard link to" + program });
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
        throw Refusal(policy_directory() + " has no section of a service");
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
    for (auto one = all.begin(); one != all.end(); ++one) {
        std::for_each(all.begin(), one, [&](const Settings& other) { compare_programs(*one, other, problems); });
    }
    sort_problems(problems);
    for (const auto& problem : problems) {
        std::cout << printable(problem.where + ": " + problem.sentence) << '\n';
    }
    return usable ? 0 : 1;
}

} // namespace monpctl
