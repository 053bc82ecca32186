/*
 * Which types there are, and what is common to all of their settings.
 */
#include "policy/settings.h"

#include "common/installation.h"
#include "common/refusal.h"
#include "policy/policy.h"

#include "monp_command.h"
#include "teskxml_tools.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

constexpr std::array MONITOR_SECTIONS = { "all", "monp" };

/*
 * Whether the section "pm" describes a service, too.
 */
bool pm_is_service()
{
    Settings unused;
    Policy policy(unused, "pm");

    return policy.load("pm", Severity::note, "") && policy.values().contains("/root/pm/path");
}

bool is_service_section(const std::string& name)
{
    const bool own = std::find(MONITOR_SECTIONS.begin(), MONITOR_SECTIONS.end(), name) != MONITOR_SECTIONS.end();
    const bool command = std::any_of(std::begin(gmonpdrastic), std::end(gmonpdrastic),
                                     [&](const auto& row) { return name == row.psection; });

    return !own && !command && (name != "pm" || pm_is_service());
}

} // namespace

std::vector<Problem> Settings::errors(bool reload) const
{
    std::vector<Problem> errors;

    std::copy_if(problems.begin(), problems.end(), std::back_inserter(errors), [reload](const Problem& problem) {
        return problem.severity == Severity::error && !(reload && problem.start_only);
    });
    return errors;
}

bool Settings::usable() const
{
    return errors().empty();
}

std::string action_text(int action)
{
    switch (action) {
    case MONP_ACT_NONE:
        return "do nothing";
    case MONP_ACT_RESTART:
        return "restart the service";
    case MONP_ACT_STOP_CLSDAEMON:
        return "stop the cluster daemons";
    case MONP_ACT_OS_HALT:
        return "halt the node";
    case MONP_ACT_OS_REBOOT:
        return "reboot the node";
    default:
        return "unknown";
    }
}

std::vector<std::string> known_types()
{
    std::vector<std::string> types;
    std::error_code error;

    for (const auto& entry : fs::directory_iterator(policy_directory(), error)) {
        const std::string name = entry.path().stem();
        const bool section =
            entry.path().extension() == ".xml" && name.size() <= TESKXML_MAX_NAME &&
            name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-") ==
                std::string::npos;
        if (section && is_service_section(name)) {
            types.push_back(name);
        }
    }
    std::sort(types.begin(), types.end());
    return types;
}

void require_known(const std::string& type)
{
    const auto types = known_types();

    if (std::find(types.begin(), types.end(), type) == types.end()) {
        std::string known;
        for (const auto& name : types) {
            known += (known.empty() ? "" : ", ") + name;
        }
        throw Refusal("'" + type + "' is no service type of " + home() + "/etc/policy, which has " +
                      (known.empty() ? "none" : known));
    }
}

std::vector<std::string> names_of(const std::string& type)
{
    std::vector<std::string> names = { type };
    Settings unused;
    Policy policy(unused, type);

    if (policy.load(type, Severity::note, "")) {
        const auto found = policy.values().find("/root/" + type + "/type");
        if (found != policy.values().end() && found->second.value != type) {
            names.push_back(found->second.value);
        }
    }
    return names;
}

void sort_problems(std::vector<Problem>& problems)
{
    const auto place = [](const Problem& problem) {
        const auto colon = problem.where.rfind(':');
        const bool line = colon != std::string::npos && colon + 1 < problem.where.size() &&
                          problem.where.find_first_not_of("0123456789", colon + 1) == std::string::npos;
        return line ? std::pair(problem.where.substr(0, colon), std::stol(problem.where.substr(colon + 1)))
                    : std::pair(problem.where, 0L);
    };

    std::stable_sort(problems.begin(), problems.end(), [&](const Problem& one, const Problem& other) {
        return place(one) != place(other) ? place(one) < place(other) : one.sentence < other.sentence;
    });
    problems.erase(std::unique(problems.begin(), problems.end()), problems.end());
}

} // namespace monpctl
