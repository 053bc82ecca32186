#include "commands/type_choice.h"

#include "commands/console.h"
#include "common/installation.h"
#include "common/refusal.h"
#include "machine/observer.h"
#include "policy/service_types.h"

#include <algorithm>

namespace monpctl {

std::vector<std::string> chosen_types(const TypeChoice& choice, Taken taken)
{
    std::vector<std::string> types;

    if (choice.all) {
        require_installation();
        types = entered_types();
        if (types.empty()) {
            throw Fault("the policy has no entry of a service");
        }
        return types;
    }
    if (choice.types.empty()) {
        throw Refusal("a service type is missing; --all means every type that the policy has an entry for");
    }
    for (const auto& type : choice.types) {
        if (taken == Taken::known) {
            require_known(type);
        } else {
            require_known_or_running(type);
        }
        if (std::ranges::find(types, type) == types.end()) {
            types.push_back(type);
        }
    }
    return types;
}

void print_failure(const std::string& type, const std::exception& error)
{
    complain(type, error.what());
}

} // namespace monpctl
