/*
 * The command "stop".
 */
#include "commands/commands.h"
#include "commands/console.h"
#include "common/installation.h"
#include "machine/exit_signal.h"

#include "monp.h"

#include <algorithm>
#include <csignal>
#include <iostream>
#include <map>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace monpctl {

namespace {

/* Added to what the policy grants the service, and the whole limit when the policy sets none. */
constexpr int SPARE_SECONDS = 10;
constexpr int UNLIMITED_SECONDS = 60;

/* Between two end requests, and until a killed service is gone. */
constexpr auto REQUEST_PAUSE = std::chrono::seconds(1);
constexpr auto KILL_LIMIT = std::chrono::seconds(3);

/* To which the start of a process is known, and always given too early. */
constexpr auto TICK = std::chrono::milliseconds(10);

/*
 * Whether a file or directory is not the one that a monitor has read: by the time of its last change in any way, as
 * copies and moves keep that of the content.
 */
bool changed_since(const Process& monitor, const std::string& path)
{
    using std::chrono::system_clock;
    struct stat status = {};

    if (stat(path.c_str(), &status) != 0) {
        return true;
    }
    const auto changed = std::chrono::seconds(status.st_ctim.tv_sec) + std::chrono::nanoseconds(status.st_ctim.tv_nsec);
    return Time(std::chrono::duration_cast<system_clock::duration>(changed)) > monitor.since() + TICK;
}

/*
 * Whether a monitor may have read another action than the policy has now. One given on its command line is its own.
 */
bool action_in_doubt(const Process& monitor, const Settings& settings)
{
    const std::string key = "monp/service/" + settings.type + "/action";
    const std::string directory = policy_directory();

    const bool given = std::any_of(settings.explained.begin(), settings.explained.end(),
                                   [&](const Setting& one) { return one.name == key && one.source == "command line"; });
    /* The directory has changed with a file that was put in the place of another. */
    return !given &&
           (!settings.usable() || changed_since(monitor, directory + "/monp.xml") || changed_since(monitor, directory));
}

bool dies_of_request(const TypeStatus& report)
{
    return report.service && exit_signal(*report.service, SIGUSR1) == ExitSignal::fatal;
}

/*
 * Why the node may go down with a service; empty if it will not. A monitor that waits has no service to end. The policy
 * is read anew: it may have been changed since that of another monitor was read.
 */
std::string danger(const TypeStatus& report)
{
    if (report.state == State::waiting) {
        return "";
    }
    const Settings settings = read_settings(report.type, report.monitor->options);
    const int action = report.action.in_doubt ? settings.action : report.action.action;
    const bool drastic = action == MONP_ACT_OS_HALT || action == MONP_ACT_OS_REBOOT;
    if (!drastic && report.action.in_doubt && action_in_doubt(report.monitor->process, settings)) {
        return "this may halt or reboot the node, as the policy was changed after the monitor had read its action";
    }
    if (!drastic) {
        return "";
    }
    const std::string handler = dies_of_request(report) ? " (it has no handler for it, so it will)" : "";
    return "this may " + action_text(action) + ", as the monitor does when the service dies of its exit signal" +
           handler + ", has to be killed, or ends with a status other than 0";
}

bool confirmed(const StopOptions& given, const TypeStatus& report)
{
    const std::string reason = danger(report);
    std::string answer;

    if (reason.empty() || given.yes) {
        return true;
    }
    complain(given.type, "warning: " + reason);
    if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) {
        complain(given.type, "not stopped; --yes stops it all the same");
        return false;
    }
    std::cerr << "Stop " << given.type << " all the same? [y/N] " << std::flush;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

/*
 * What a service without a handler makes of an end request.
 */
void warn_of_recovery(const TypeStatus& report)
{
    if (!dies_of_request(report)) {
        return;
    }
    if (report.action.action == MONP_ACT_RESTART || report.action.action == MONP_ACT_STOP_CLSDAEMON) {
        complain(report.type, "warning: the service has no handler for its exit signal, so the monitor takes its end "
                              "for a failure, and will " +
                                  action_text(report.action.action));
    }
}

/*
 * A process that was seen, held until it has ended.
 */
struct Held {
    Process process;
    std::unique_ptr<PidfdHandle> handle;
};

void hold(std::vector<Held>& held, const Process& process)
{
    const bool known =
        std::any_of(held.begin(), held.end(), [&](const Held& one) { return one.process.same(process); });

    if (!known) {
        held.push_back({ process, std::make_unique<PidfdHandle>(process) });
    }
}

/*
 * Which monitors may be signalled. Each is asked about once, also one that comes while others are being stopped.
 */
class Consent {
public:
    explicit Consent(const StopOptions& given) : given_(given) {}

    bool to_stop(const TypeStatus& report)
    {
        const Process& monitor = report.monitor->process;
        const auto asked =
            std::find_if(answers_.begin(), answers_.end(), [&](const auto& one) { return one.first.same(monitor); });

        return asked != answers_.end() ? asked->second
                                       : answers_.emplace_back(monitor, confirmed(given_, report)).second;
    }

private:
    const StopOptions& given_;
    std::vector<std::pair<Process, bool>> answers_;
};

void request_once(const TypeStatus& report, std::vector<Held>& services)
{
    if (report.service) {
        hold(services, *report.service);
    }
    const PidfdHandle monitor(report.monitor->process);
    if (report.monitor->set_up) {
        monitor.signal(SIGUSR2);
    }
}

/*
 * Asks every monitor of the type to end, again each second: a request that comes in the middle of a restart is
 * forgotten. One that has no handlers yet would be killed by it, and is waited for; one without consent is not.
 * Result: what is left of the monitors when nothing more comes of it, or at the limit.
 */
std::vector<TypeStatus> request_end(const std::string& type, Clock::time_point limit, Consent& consent,
                                    std::vector<Held>& services)
{
    Observer observer;

    for (;;) {
        const TypeStatus* awaited = nullptr;
        auto reports = observer.look({ type });
        std::erase_if(reports, [](const TypeStatus& report) { return !report.monitor; });
        for (const auto& report : reports) {
            if (consent.to_stop(report)) {
                request_once(report, services);
                awaited = &report;
            }
        }
        if (awaited == nullptr || Clock::now() > limit) {
            return reports;
        }
        /* Whichever ends first may be the last. */
        static_cast<void>(PidfdHandle(awaited->monitor->process).ended(std::chrono::milliseconds(REQUEST_PAUSE)));
    }
}

/*
 * What can be done about a service that has outlived its monitor.
 */
std::string way_out(const Process& service)
{
    return service.replaced() ? "no monitor takes it over, as its program was replaced on disk"
                              : "a start takes it over, and the next stop then ends it";
}

/*
 * Names each process that has outlived the stop.
 * Result: whether there was none.
 */
bool name_survivors(const std::string& type, const std::vector<TypeStatus>& monitors, const std::vector<Held>& services)
{
    const auto limit = Clock::now() + (monitors.empty() ? KILL_LIMIT : std::chrono::seconds(0));
    std::map<pid_t, Process> survivors;

    for (const auto& report : monitors) {
        complain(type, "its monitor, process " + std::to_string(report.monitor->process.pid) + ", is still " +
                           std::string(word(report.state)));
    }
    for (const auto& service : services) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(limit - Clock::now());
        if (!service.handle->ended(std::max(left, std::chrono::milliseconds(0)))) {
            survivors[service.process.pid] = service.process;
        }
    }
    for (const auto& report : Observer().look({ type })) {
        for (const auto& copy : report.copies) {
            survivors[copy.pid] = copy;
        }
    }
    for (const auto& [pid, service] : survivors) {
        complain(type, "its service, process " + std::to_string(pid) + ", survives" +
                           (monitors.empty() ? "; " + way_out(service) : ""));
    }
    return monitors.empty() && survivors.empty();
}

int default_seconds(const Settings& settings)
{
    return settings.wait_seconds > 0 ? settings.init_seconds + settings.wait_seconds + SPARE_SECONDS
                                     : UNLIMITED_SECONDS;
}

} // namespace

int stop(const StopOptions& given)
{
    require_root();
    require_known_or_running(given.type);
    const auto reports = Observer().look({ given.type });
    std::vector<Held> services;
    Consent consent(given);

    for (const auto& report : reports) {
        if (report.monitor && !consent.to_stop(report)) {
            return EXIT_FAILED;
        }
        warn_of_recovery(report);
    }
    const auto seconds = std::chrono::seconds(given.wait.value_or(default_seconds(reports.front().settings)));
    const auto limit = Clock::now() + seconds;
    const auto monitors =
        reports.front().monitor ? request_end(given.type, limit, consent, services) : std::vector<TypeStatus>();
    if (!reports.front().monitor) {
        say(given.type, "no monitor runs");
    }
    if (!name_survivors(given.type, monitors, services)) {
        if (!monitors.empty() && Clock::now() > limit) {
            complain(given.type, "not stopped within " + std::to_string(seconds.count()) + " seconds");
        }
        return EXIT_DOWN;
    }
    if (reports.front().monitor) {
        say(given.type, "stopped");
    }
    return EXIT_DONE;
}

} // namespace monpctl
