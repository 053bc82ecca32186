#include "policy/settings.h"

#include "monp.h"

#include <algorithm>
#include <iterator>

namespace monpctl {

std::vector<Problem> Settings::errors(bool reload) const
{
    std::vector<Problem> errors;

    std::ranges::copy_if(problems, std::back_inserter(errors), [reload](const Problem& problem) {
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

} // namespace monpctl
