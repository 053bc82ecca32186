/*
 * The command "check".
 */
#include "commands/commands.h"
#include "common/installation.h"
#include "common/refusal.h"
#include "common/text.h"
#include "machine/log_history.h"
#include "policy/service_types.h"
#include "policy/settings.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <iostream>
#include <nlohmann/json.hpp>

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
        std::cout << fmt::format("  {:{}} = {}  [{}]\n", setting.name, width, printable(setting.value),
                                 source_text(setting));
    }
}

/*
 * Reports two types that have the same program. The monitor knows a running service by the path of its executable,
 * behind all links. Hard links are different paths, but whoever replaces the file by writing into it replaces both.
 */
void compare_programs(const Settings& one, const Settings& other, std::vector<Problem>& problems)
{
    const auto path = std::ranges::find(one.explained, one.type + "/path", &Setting::name);
    std::error_code error;

    if (path == one.explained.end() || one.service.empty() || other.service.empty()) {
        return;
    }
    if (fs::weakly_canonical(one.service, error) == fs::weakly_canonical(other.service, error)) {
        problems.push_back({ .place = path->place,
                             .severity = Severity::warning,
                             .sentence = fmt::format("{} is also the program of the type {}; each monitor would adopt "
                                                     "the other's service",
                                                     one.service, other.type) });
    } else if (fs::equivalent(one.service, other.service, error)) {
        problems.push_back(
            { .place = path->place,
              .severity = Severity::note,
              .sentence = fmt::format("{} is a hard link to the program of the type {}", one.service, other.type) });
    }
}

/*
 * The problems of all the settings read. Those of the whole installation are among each of them, and told once; those
 * of the entries of other types only if all types were asked for.
 */
std::vector<Problem> problems_of(const std::vector<Settings>& all, bool every_type)
{
    std::vector<Problem> problems;

    for (auto one = all.begin(); one != all.end(); ++one) {
        std::ranges::copy_if(one->problems, std::back_inserter(problems),
                             [&](const Problem& problem) { return every_type || problem.other_type.empty(); });
        std::for_each(all.begin(), one, [&](const Settings& other) { compare_programs(*one, other, problems); });
    }
    if (const std::string trouble = log_trouble(log_file()); !trouble.empty()) {
        Problem& problem = problems.emplace_back();
        problem.place.file = log_directory();
        problem.severity = Severity::warning;
        problem.sentence = trouble + "; the monitor runs without a log";
    }
    for (auto& problem : problems) {
        problem.other_type.clear(); /* each type reads the entries of the others: these are equal, too */
    }
    sort_problems(problems);
    return problems;
}

nlohmann::json problem_json(const Problem& problem)
{
    const auto given = [](bool is, nlohmann::json value) { return is ? std::move(value) : nlohmann::json(); };

    return { { "severity", word(problem.severity) },
             { "file", given(!problem.place.file.empty(), problem.place.file) },
             { "line", given(problem.place.line > 0, problem.place.line) },
             { "sentence", problem.sentence } };
}

nlohmann::json settings_json(const Settings& settings)
{
    nlohmann::json list = nlohmann::json::array();

    for (const auto& setting : settings.explained) {
        list.push_back({ { "name", setting.name }, { "value", setting.value }, { "source", source_text(setting) } });
    }
    return list;
}

void print_json(const std::vector<Settings>& all, const std::vector<Problem>& problems, bool explained)
{
    nlohmann::json result = { { "problems", nlohmann::json::array() }, { "types", nlohmann::json::array() } };

    std::ranges::transform(problems, std::back_inserter(result["problems"]), problem_json);
    for (const auto& settings : all) {
        nlohmann::json type = { { "type", settings.type }, { "usable", settings.usable() } };
        if (explained) {
            type["settings"] = settings_json(settings);
        }
        result["types"].push_back(type);
    }
    /* A path may hold any bytes. */
    std::cout << result.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

void print_text(const std::vector<Settings>& all, const std::vector<Problem>& problems, bool explained)
{
    if (explained) {
        std::ranges::for_each(all, explain);
    }
    for (const auto& problem : problems) {
        std::cout << printable(text_of(problem)) << '\n';
    }
}

} // namespace

Exit check(const CheckOptions& given)
{
    std::vector<Settings> all;

    if (given.types.size() != 1 && !given.options.empty()) {
        throw Refusal("options of a monitor need one type");
    }
    std::ranges::for_each(given.types, require_known);
    require_installation();
    const auto types = given.types.empty() ? known_types() : given.types;
    if (types.empty()) {
        throw Fault(policy_directory() + " has no section of a service");
    }
    std::ranges::transform(types, std::back_inserter(all),
                           [&](const std::string& type) { return read_settings(type, given.options); });
    const auto problems = problems_of(all, given.types.empty());
    if (given.json) {
        print_json(all, problems, given.explain);
    } else {
        print_text(all, problems, given.explain);
    }
    return std::ranges::all_of(all, &Settings::usable) ? EXIT_DONE : EXIT_FAILED;
}

} // namespace monpctl
