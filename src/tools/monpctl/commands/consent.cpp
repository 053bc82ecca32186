#include "commands/consent.h"

#include "commands/console.h"
#include "machine/exit_signal.h"

#include "monp.h"

#include <algorithm>
#include <csignal>
#include <fmt/format.h>
#include <iostream>
#include <unistd.h>

namespace monpctl {

namespace {

bool takes_node_down(int action)
{
    return action == MONP_ACT_OS_HALT || action == MONP_ACT_OS_REBOOT;
}

/*
 * What the exit signal does to the service, as a remark; empty if the service has a handler or waits for it.
 */
std::string signal_remark(const TypeStatus& status)
{
    switch (status.service ? exit_signal(*status.service, SIGUSR1) : ExitSignal::handled) {
    case ExitSignal::fatal:
        return "the service has no handler for its exit signal";
    case ExitSignal::ignored:
        return "the service ignores its exit signal";
    case ExitSignal::unknown:
        return "the service may have no handler for its exit signal";
    case ExitSignal::handled:
    case ExitSignal::awaited:
        break;
    }
    return "";
}

/*
 * Why the node may go down with a service; empty if it will not. A monitor that waits has no service to end.
 */
std::string danger(const TypeStatus& status)
{
    const std::string remark = signal_remark(status);

    if (status.state == State::waiting) {
        return "";
    }
    if (takes_node_down(status.action.action)) {
        return fmt::format(
            "this may {}, as the monitor does when the service dies of its exit signal, has to be killed, "
            "or ends with a status other than 0{}",
            action_text(status.action.action), remark.empty() ? "" : "; " + remark);
    }
    if (status.action.in_doubt) {
        return "this may halt or reboot the node: the log does not tell which recovery action the monitor has read, "
               "and "
               "the policy may have had another one then";
    }
    return "";
}

} // namespace

bool Consent::ask(const TypeStatus& status) const
{
    const std::string reason = yes_ ? "" : danger(status);
    std::string answer;

    if (reason.empty()) {
        return true;
    }
    warn(status.type, reason);
    if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) {
        complain(status.type, "not stopped; --yes stops it all the same");
        return false;
    }
    std::cerr << fmt::format("Stop {} all the same? [y/N] ", status.type) << std::flush;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

bool Consent::to_stop(const TypeStatus& status)
{
    const Process& monitor = status.monitor->process;
    const auto asked = std::ranges::find_if(answers_, [&](const auto& one) { return one.first.same(monitor); });

    return asked != answers_.end() ? asked->second : answers_.emplace_back(monitor, ask(status)).second;
}

void warn_of_recovery(const TypeStatus& status)
{
    const std::string remark = signal_remark(status);
    const int action = status.action.action;

    if (!remark.empty() && (action == MONP_ACT_RESTART || action == MONP_ACT_STOP_CLSDAEMON)) {
        warn(status.type,
             fmt::format("{}; if it dies of that or has to be killed, the monitor takes this for a failure, "
                         "and will {}",
                         remark, action_text(action)));
    }
}

} // namespace monpctl
