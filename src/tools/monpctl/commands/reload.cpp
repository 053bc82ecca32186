/*
 * The command "reload".
 */
#include "commands/commands.h"
#include "commands/console.h"
#include "commands/type_choice.h"
#include "machine/log_history.h"
#include "machine/observer.h"
#include "machine/pidfd_handle.h"

#include <csignal>

namespace monpctl {

namespace {

/* A waiting monitor has read its policy within this time, or ended on it. */
constexpr auto RELOAD_LIMIT = std::chrono::milliseconds(2500);

/*
 * The effect of a reload that succeeds on a monitor that waits.
 */
std::string outlook(const TypeStatus& status)
{
    if (status.monitor->no_start) {
        return "the policy is read; the service is not started, as the monitor was started with -n";
    }
    if (status.settings.held_back) {
        return "the policy is read; it holds the service back";
    }
    return "the policy is read, and the service is being started";
}

Exit reload_monitor(const TypeStatus& status)
{
    const Time begun = std::chrono::system_clock::now();
    const PidfdHandle monitor(status.monitor->process);
    const auto errors = status.settings.errors(true);

    if (!errors.empty()) {
        show_problems(errors);
        complain(status.type, "not reloaded, as the monitor would end on its policy when it waits");
        return EXIT_FAILED;
    }
    if (!status.monitor->set_up) {
        complain(status.type, "not reloaded, as the monitor is still setting itself up; it has just read its policy");
        return EXIT_FAILED;
    }
    if (!monitor.signal(SIGHUP) || (status.state == State::waiting && monitor.ended(RELOAD_LIMIT))) {
        complain(status.type, "the monitor has ended");
        show_lines(telling_lines(begun, { status.monitor->process.pid }));
        return EXIT_FAILED;
    }
    say(status.type, status.state == State::waiting
                         ? outlook(status)
                         : "the policy is read when the monitor next waits, which is after a failed start; until then "
                           "the service runs as it is");
    say(status.type, "a reload does not change the service's program, arguments and environment, the recovery action, "
                     "the restart limit, the wait time, the lock file and the log; for these, restart");
    return EXIT_DONE;
}

Exit reload_one(const std::string& type)
{
    Exit result = EXIT_DONE;

    for (const auto& status : Observer().look({ type })) {
        if (!status.monitor) {
            complain(type, "no monitor runs");
            return EXIT_DOWN;
        }
        result = worse(result, reload_monitor(status));
    }
    return result;
}

} // namespace

Exit reload(const ReloadOptions& given)
{
    require_root();
    return for_each_type(chosen_types(given.choice, Taken::known_or_running), reload_one);
}

} // namespace monpctl
