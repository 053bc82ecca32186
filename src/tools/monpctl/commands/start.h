/*
 * The start of one type, for the commands "start" and "restart".
 */
#ifndef MONPCTL_COMMANDS_START_H
#define MONPCTL_COMMANDS_START_H

#include "commands/exit.h"

#include <optional>
#include <string>
#include <vector>

namespace monpctl {

struct StartRequest {
    std::string type = {};
    std::optional<int> wait = {};          /* seconds; without a value as many as the policy grants, and some */
    bool second_copy = false;              /* beside a running service that no monitor can take over */
    std::vector<std::string> options = {}; /* of the monitor's command line */
};

/*
 * Sets this process up so that it can start monitors; before the first start_one.
 */
void prepare_starts();

/*
 * Starts a type and waits for the result, which it prints. Only root may.
 * Result: as of the command "start".
 */
Exit start_one(const StartRequest& request);

} // namespace monpctl

#endif
