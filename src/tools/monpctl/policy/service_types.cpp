#include "policy/service_types.h"

#include "common/installation.h"
#include "common/refusal.h"
#include "common/suggestion.h"
#include "policy/policy_reader.h"

#include "monp_command.h"
#include "teskxml_tools.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <limits>
#include <string_view>
#include <utility>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

constexpr std::array<std::string_view, 2> MONITOR_SECTIONS = { "all", "monp" };
constexpr std::string_view NAME_CHARACTERS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";

/*
 * The values of one section; none if it cannot be loaded.
 */
std::map<std::string, LoadedValue> values_of(const std::string& section)
{
    Findings unused;
    PolicyReader reader(unused, section);

    reader.load({ .name = section });
    return reader.values();
}

bool is_service_section(const std::string& name)
{
    const bool own = std::ranges::find(MONITOR_SECTIONS, name) != MONITOR_SECTIONS.end();
    const bool command = std::ranges::any_of(gmonpdrastic, [&](const auto& row) { return name == row.psection; });

    return !own && !command && (name != "pm" || values_of("pm").contains("/root/pm/path"));
}

bool is_section_file(const fs::path& file)
{
    const std::string name = file.stem();

    return file.extension() == ".xml" && name.size() <= TESKXML_MAX_NAME &&
           name.find_first_not_of(NAME_CHARACTERS) == std::string::npos;
}

} // namespace

std::vector<std::string> known_types()
{
    std::vector<std::string> types;
    std::error_code error;

    for (const auto& entry : fs::directory_iterator(policy_directory(), error)) {
        if (is_section_file(entry.path()) && is_service_section(entry.path().stem())) {
            types.push_back(entry.path().stem());
        }
    }
    std::ranges::sort(types);
    return types;
}

std::vector<std::string> entered_types()
{
    constexpr size_t NONE = std::numeric_limits<size_t>::max();
    const auto entries = values_of("monp");
    std::vector<std::pair<size_t, std::string>> found;
    std::vector<std::string> types;

    if (entries.empty()) {
        return known_types();
    }
    for (const auto& type : known_types()) {
        const std::string entry = fmt::format("/root/monp/service/{}/", type);
        size_t first = NONE;
        for (auto value = entries.lower_bound(entry); value != entries.end() && value->first.starts_with(entry);
             ++value) {
            first = std::min(first, value->second.number);
        }
        if (first != NONE) {
            found.emplace_back(first, type);
        }
    }
    std::ranges::sort(found);
    std::ranges::transform(found, std::back_inserter(types), &std::pair<size_t, std::string>::second);
    return types;
}

void require_known(const std::string& type)
{
    require_installation();
    const auto types = known_types();

    if (std::ranges::find(types, type) == types.end()) {
        throw Refusal(fmt::format("'{}' is not a service type{}: {} has {}", type, did_you_mean(type, types),
                                  policy_directory(),
                                  types.empty() ? "none" : fmt::format("{}", fmt::join(types, ", "))));
    }
}

std::vector<std::string> names_of(const std::string& type)
{
    const auto values = values_of(type);
    const auto found = values.find(fmt::format("/root/{}/type", type));
    std::vector<std::string> names = { type };

    if (found != values.end() && !found->second.value.empty() && found->second.value != type) {
        names.push_back(found->second.value);
    }
    return names;
}

} // namespace monpctl
