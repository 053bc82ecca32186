#include "policy/entries.h"

#include "policy/policy.h"

#include <algorithm>
#include <string_view>

namespace monpctl {

std::vector<std::string> policy_entries()
{
    constexpr std::string_view PREFIX = "/root/monp/service/";
    Settings unused;
    Policy policy(unused, "monp");
    std::map<std::string, int> lines; /* the first line of each entry */
    std::vector<std::string> types;

    if (!policy.load("monp", Severity::note, "")) {
        return {};
    }
    for (const auto& [key, found] : policy.values()) {
        const auto end = key.starts_with(PREFIX) ? key.find('/', PREFIX.size()) : key.npos;
        if (end != key.npos) {
            const auto entry = lines.try_emplace(key.substr(PREFIX.size(), end - PREFIX.size()), found.line).first;
            entry->second = std::min(entry->second, found.line);
        }
    }
    for (const auto& [type, line] : lines) {
        types.push_back(type);
    }
    std::ranges::stable_sort(types, {}, [&](const std::string& type) { return lines[type]; });
    return types;
}

} // namespace monpctl
