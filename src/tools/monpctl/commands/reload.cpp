/*
 * The command "reload".
 */
#include "commands/commands.h"
#include "commands/console.h"

#include <csignal>

namespace monpctl {

namespace {

/* In which a waiting monitor has read its policy, or ended on it. */
constexpr auto RELOAD_LIMIT = std::chrono::milliseconds(2500);

/*
 * What a monitor that waits makes of a reload that succeeds.
 */
std::string outlook(const TypeStatus& report)
{
    if (report.monitor->no_start) {
        return "the policy is read; the service is not started, as the monitor was started with -n";
    }
    if (report.settings.held_back) {
        return "the policy is read; it holds the service back";
    }
    return "the policy is read, and the service is being started, as nothing speaks against it";
}

int reload_one(const TypeStatus& report)
{
    const Time begun = std::chrono::system_clock::now();
    const PidfdHandle monitor(report.monitor->process);
    const auto errors = report.settings.errors(true);

    if (!errors.empty()) {
        show_problems(errors);
        complain(report.type, "not reloaded, as the monitor would end on its policy when it waits");
        return EXIT_FAILED;
    }
    if (!report.monitor->set_up) {
        complain(report.type, "not reloaded, as the monitor is still setting itself up; it has just read its policy");
        return EXIT_FAILED;
    }
    if (!monitor.signal(SIGHUP) || (report.state == State::waiting && monitor.ended(RELOAD_LIMIT))) {
        complain(report.type, "the monitor has ended");
        show_lines(telling_lines(begun, { report.monitor->process.pid }));
        return EXIT_FAILED;
    }
    say(report.type, report.state == State::waiting
                         ? outlook(report)
                         : "the policy is read when the monitor next waits, which is after a failed start; until then "
                           "the service runs as it is");
    say(report.type, "a reload does not change the service's program, arguments and environment, the recovery action, "
                     "the restart limit, the wait time, the lock file and the log; for these, stop and start");
    return EXIT_DONE;
}

} // namespace

int reload(const ReloadOptions& given)
{
    int result = EXIT_DONE;

    require_root();
    require_known_or_running(given.type);
    for (const auto& report : Observer().look({ given.type })) {
        if (!report.monitor) {
            complain(given.type, "no monitor runs");
            return EXIT_DOWN;
        }
        if (const int one = reload_one(report); one != EXIT_DONE) {
            result = one;
        }
    }
    return result;
}

} // namespace monpctl
