#include "machine/observer.h"

#include "common/installation.h"
#include "machine/inference.h"
#include "policy/service_types.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <iterator>

namespace fs = std::filesystem;

namespace monpctl {

/*
 * One moment of the machine.
 */
struct Observer::Scene {
    ProcessTable processes;
    std::vector<RunningMonitor> monitors;
    double now;
    Time wall_now;
    std::string untold;
};

namespace {

std::string process_text(const Process& process)
{
    return fmt::format("process {}", process.pid);
}

/*
 * The one child that the main thread of a monitor has at a time.
 */
std::optional<Process> main_child(const RunningMonitor& monitor, const ProcessTable& processes)
{
    const auto own = processes.proc().main_thread_children(monitor.process.pid);

    if (!own) {
        const auto children = processes.children(monitor.process.pid);
        return children.empty() ? std::nullopt : std::optional(children.front());
    }
    for (const pid_t pid : *own) {
        if (auto child = processes.find(pid)) {
            return child;
        }
    }
    return std::nullopt;
}

Evidence::Child child_evidence(const Process& child)
{
    return {
        .pid = child.pid, .started = child.started_seconds(), .zombie = child.zombie(), .wait_status = child.wait_status
    };
}

/*
 * What the policy of today contributes.
 */
void add_settings(Evidence& evidence, const Settings& settings)
{
    evidence.program = settings.service;
    evidence.init_seconds = settings.init_seconds;
    evidence.parent_init_seconds = settings.parent_init_seconds;
    evidence.restart_limit = settings.restart_limit;
    evidence.action = settings.action;
    evidence.held_back = settings.held_back;
    evidence.action_given = settings.action_given;
}

void take_verdict(TypeStatus& status, const Verdict& verdict)
{
    status.state = verdict.state;
    status.reason = verdict.reason;
    status.since = verdict.since;
    status.until = verdict.until;
    status.start_failed = verdict.start_failed;
    status.adopted = verdict.service == Verdict::Service::adopted;
    status.history = verdict.history;
    status.action = verdict.action;
}

void warn_of_monitor(TypeStatus& status)
{
    const auto tell = [&](const std::string& text) { status.warnings.push_back(text); };

    if (status.monitor && status.monitor->replaced) {
        tell("the monitor's own program was replaced on disk since it started");
    }
    if (status.monitor && status.monitor->process.held()) {
        tell("the monitor is held by a signal or a debugger");
    }
    if (status.state == State::waiting && status.history.last_failure) {
        tell("the monitor waits after a failed start: " + status.history.last_failure->reason);
    }
    if (!status.history.missing.empty()) {
        tell("records are missing: " + status.history.missing);
    }
}

void warn_of_service(TypeStatus& status)
{
    const Process& service = *status.service;
    const auto tell = [&](const std::string& text) {
        status.warnings.push_back("the service, " + process_text(service) + ", " + text);
    };

    if (service.zombie()) {
        tell("is a zombie");
    }
    if (service.held()) {
        tell("is held by a signal or a debugger");
    }
    if (status.adopted) {
        tell("is no child of its monitor, which has adopted it");
    }
    if (status.adopted && service.user != 0) {
        tell(fmt::format("runs as the user {} and not as root", service.user));
    }
    if (service.replaced()) {
        status.warnings.emplace_back("the service's program was replaced on disk since it started");
    }
}

void warn(TypeStatus& status)
{
    warn_of_monitor(status);
    if (status.service) {
        warn_of_service(status);
    }
    for (const auto& copy : status.copies) {
        status.warnings.push_back((status.service   ? "a second copy of the service runs, "
                                   : status.monitor ? "the service's program runs outside the monitor, "
                                                    : "the service runs without a monitor, ") +
                                  process_text(copy));
    }
}

} // namespace

Observer::Observer(Proc proc) : proc_(std::move(proc)), history_(log_file())
{
    require_installation();
}

const Settings& Observer::settings_of(const std::string& type, const std::vector<std::string>& options)
{
    std::vector<std::string> key = options;

    key.push_back(type);
    const auto found = settings_.find(key);
    return found != settings_.end() ? found->second
                                    : settings_.emplace(key, read_settings(type, options)).first->second;
}

TypeStatus Observer::status_of(const RunningMonitor& monitor, const Scene& scene)
{
    const auto child = main_child(monitor, scene.processes);
    TypeStatus status;
    Evidence evidence;

    status.type = monitor.type;
    status.monitor = monitor;
    status.settings = settings_of(monitor.type, monitor.options);
    evidence.now = scene.now;
    evidence.wall_now = scene.wall_now;
    evidence.untold = scene.untold;
    add_settings(evidence, status.settings);
    evidence.monitor = Evidence::Monitor{ .started = monitor.process.started_seconds(),
                                          .hidden = monitor.process.executable.empty(),
                                          .set_up = monitor.set_up,
                                          .launching = monitor.launching,
                                          .no_start = monitor.no_start };
    evidence.records = history_.of_monitor(monitor.type, monitor.process.pid, monitor.first);
    if (child) {
        evidence.child = child_evidence(*child);
        evidence.child->unborn = !child->zombie() && child->command == monitor.process.command;
    }
    const auto& run = evidence.records.run;
    const auto adopted =
        run && run->start && run->start->adopted > 0 ? scene.processes.find(run->start->adopted) : std::nullopt;
    if (adopted) {
        evidence.adopted = child_evidence(*adopted);
    }
    const pid_t service = child ? child->pid : adopted && !run->start->over ? adopted->pid : 0;
    std::ranges::copy_if(
        scene.processes.running(status.settings.service), std::back_inserter(status.copies),
        [&](const Process& one) { return service == 0 || !scene.processes.descends_from(one, service); });
    evidence.copies = !status.copies.empty();

    const Verdict verdict = infer(evidence);
    take_verdict(status, verdict);
    if (verdict.service != Verdict::Service::none) {
        status.service = verdict.service == Verdict::Service::child ? child : adopted;
    }
    warn(status);
    return status;
}

TypeStatus Observer::status_without(const std::string& type, const Scene& scene)
{
    TypeStatus status;
    Evidence evidence;
    std::error_code hidden;

    status.type = type;
    status.settings = settings_of(type, {});
    evidence.now = scene.now;
    evidence.wall_now = scene.wall_now;
    evidence.untold = scene.untold;
    add_settings(evidence, status.settings);
    if (!status.settings.lock_file.empty()) {
        const bool left = fs::exists(status.settings.lock_file, hidden);
        evidence.lock_file = left     ? Evidence::LockFile::left
                             : hidden ? Evidence::LockFile::hidden
                                      : Evidence::LockFile::none;
    }
    evidence.records = history_.last_of(type, status.settings.name);
    status.copies = scene.processes.running(status.settings.service);
    evidence.copies = !status.copies.empty();

    take_verdict(status, infer(evidence));
    if (evidence.lock_file != Evidence::LockFile::none) {
        status.reason += ": " + status.settings.lock_file + (hidden ? ": " + hidden.message() : "");
    }
    warn(status);
    return status;
}

std::vector<TypeStatus> Observer::look(const std::vector<std::string>& types)
{
    Scene scene = { ProcessTable(proc_), {}, 0, {}, log_trouble(log_file()) };
    std::vector<TypeStatus> statuses;
    std::vector<std::string> wanted = types;

    /* The processes first: what they have written by then is in the log. */
    scene.monitors = find_monitors(scene.processes);
    scene.now = uptime();
    scene.wall_now = std::chrono::system_clock::now();
    history_.read_on();
    if (types.empty()) {
        wanted = entered_types();
        for (const auto& monitor : scene.monitors) {
            if (std::ranges::find(wanted, monitor.type) == wanted.end()) {
                wanted.push_back(monitor.type);
            }
        }
    }
    for (const auto& type : wanted) {
        const auto number = std::ranges::count(scene.monitors, type, &RunningMonitor::type);
        for (const auto& monitor : scene.monitors) {
            if (monitor.type == type) {
                statuses.push_back(status_of(monitor, scene));
                if (number > 1) {
                    statuses.back().warnings.push_back(fmt::format("{} monitors of this type run", number));
                }
            }
        }
        if (number == 0) {
            statuses.push_back(status_without(type, scene));
        }
    }
    return statuses;
}

void require_known_or_running(const std::string& type)
{
    require_installation();
    const Proc proc;
    const auto monitors = find_monitors(ProcessTable(proc));

    if (std::ranges::find(monitors, type, &RunningMonitor::type) == monitors.end()) {
        require_known(type);
    }
}

} // namespace monpctl
