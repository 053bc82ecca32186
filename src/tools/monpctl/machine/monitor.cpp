/*
 * Finding the monitors and telling their states.
 */
#include "machine/monitor.h"

#include "common/installation.h"
#include "policy/monitor_log.h"

#include "monp.h"
#include "tesk_home.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <set>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

/* The monitor counts seconds in pauses, and takes one or two more to act. */
constexpr double SLACK = 3;

/*
 * Fills in what a command line says, read by the monitor's own parser.
 * Result: whether it is one that a monitor runs with.
 */
bool read_command(Monitor& monitor)
{
    std::vector<std::string> words = monitor.process.command;

    gmonpparam = {};
    gbmonpnostart = 0;
    const int result =
        words.empty() ? MONP_RET_FAIL_PARAM : monp_getopt(static_cast<int>(words.size()), pointers(words).data());
    take_monitor_lines();
    if (result != MONP_RET_SUCCESS) {
        return false;
    }
    monitor.type = gmonpparam.type;
    monitor.no_start = gbmonpnostart != 0;
    words.erase(words.begin());
    words.erase(std::find(words.begin(), words.end(), "--" + monitor.type));
    monitor.options = words;
    return true;
}

/*
 * Whether a process was started as the monitor of this installation, though its program bears another name by now, as
 * after a replacement by renaming. Others than root could call any program so.
 */
bool was_started_as(const Process& process, const std::string& program)
{
    std::error_code missing;

    return process.user == 0 && !process.executable.empty() && process.command.front().starts_with('/') &&
           fs::weakly_canonical(process.command.front(), missing) == fs::weakly_canonical(program, missing);
}

/*
 * Whether a process is a monitor as far as can be seen: others than root see no process of root's clearly.
 */
bool runs_monitor(const Process& process, const std::string& program)
{
    if (process.zombie() || process.command.empty()) {
        return false;
    }
    const bool hidden =
        process.executable.empty() && fs::path(process.command.front()).filename() == fs::path(program).filename();

    return hidden || process.runs_file(program) || process.runs(program) || was_started_as(process, program);
}

/*
 * Whether a monitor works for our home directory, and not inside a container. What is hidden may be ours.
 */
bool is_ours(const Process& process)
{
    return shares_numbers(process.pid) && same_home(start_variable(process.pid, gtesk_homevariable).value_or(home()));
}

/*
 * All monitors. Of the two processes of a monitor that is being started, the first only waits for the second. A child
 * of a monitor's daemon is none, even before it runs its own program.
 */
std::vector<Monitor> find_monitors(const std::vector<Process>& all)
{
    const std::string program = monitor_program();
    std::map<pid_t, Monitor> found;
    std::vector<pid_t> dropped;
    std::vector<Monitor> monitors;

    for (const auto& process : all) {
        Monitor monitor;
        monitor.process = process;
        monitor.set_up = process.catches(SIGUSR2) && process.catches(SIGHUP);
        monitor.replaced = !process.executable.empty() && !process.runs_file(program);
        if (runs_monitor(process, program) && is_ours(process) && read_command(monitor)) {
            found[process.pid] = monitor;
        }
    }
    for (auto& [pid, monitor] : found) {
        const auto parent = found.find(monitor.process.parent);
        if (parent == found.end() || parent->second.process.command != monitor.process.command) {
            continue;
        }
        monitor.launching = !parent->second.set_up;
        dropped.push_back(monitor.launching ? parent->first : pid);
    }
    for (const auto& [pid, monitor] : found) {
        if (std::find(dropped.begin(), dropped.end(), pid) == dropped.end()) {
            monitors.push_back(monitor);
        }
    }
    std::sort(monitors.begin(), monitors.end(), [](const Monitor& one, const Monitor& other) {
        return std::pair(one.type, one.process.pid) < std::pair(other.type, other.process.pid);
    });
    return monitors;
}

const Process* find_process(const std::vector<Process>& all, pid_t pid)
{
    const auto found = std::find_if(all.begin(), all.end(), [pid](const Process& one) { return one.pid == pid; });

    return found == all.end() ? nullptr : &*found;
}

/*
 * The one child that the main thread of a monitor has at a time.
 */
const Process* main_child(const Monitor& monitor, const std::vector<Process>& all)
{
    const auto own = main_thread_children(monitor.process.pid);
    const auto found = std::find_if(all.begin(), all.end(), [&](const Process& one) {
        return one.parent == monitor.process.pid &&
               (!own || std::find(own->begin(), own->end(), one.pid) != own->end());
    });

    return found == all.end() ? nullptr : &*found;
}

bool descends_from(const Process& process, pid_t ancestor, const std::vector<Process>& all)
{
    const Process* one = &process;

    while (one != nullptr && one->pid != ancestor) {
        one = one->parent > 0 ? find_process(all, one->parent) : nullptr;
    }
    return one != nullptr;
}

/*
 * Whether the event is that of a recovery command, which is raised before the command is run.
 */
bool is_command_event(int event)
{
    return event == MONP_EVTID_ACT_STOP_DAEMON || event == MONP_EVTID_ACT_HALT_SYSTEM ||
           event == MONP_EVTID_ACT_REBOOT_SYSTEM;
}

Evidence::Child child_kind(const Monitor& monitor, const Process* child, const Record& record)
{
    if (child == nullptr) {
        return Evidence::Child::none;
    }
    if (is_command_event(record.last_event)) {
        return Evidence::Child::command;
    }
    if (child->zombie()) {
        return Evidence::Child::ended_service;
    }
    return child->command == monitor.process.command ? Evidence::Child::program : Evidence::Child::service;
}

/*
 * Of a service that was sent its exit signal: on request, or because it had not reported in time.
 */
Verdict judge_end(const Evidence& evidence)
{
    const bool in_doubt = !evidence.start.reported && evidence.exit_after >= evidence.init_seconds &&
                          evidence.exit_after <= evidence.init_seconds + SLACK;

    if (in_doubt) {
        return { State::unknown, "the service was told to end, on request or because it has not reported" };
    }
    return { State::ending, "" };
}

/*
 * Of a service that the monitor has started. It is killed if it does not report in its time, and a first process that
 * went before its own time was over was let go because the service had reported, or was about to be killed.
 */
Verdict judge_service(const Evidence& evidence)
{
    const bool ended = evidence.child == Evidence::Child::ended_service;
    const bool outlived = evidence.service_age > evidence.init_seconds + SLACK;
    const bool let_go = evidence.first_start && !evidence.launching &&
                        evidence.monitor_age < evidence.parent_init_seconds - 1 &&
                        (evidence.start.known || evidence.service_age < evidence.init_seconds);

    if (evidence.start.exit_sent) {
        return judge_end(evidence);
    }
    if (evidence.launching && !evidence.start.reported) {
        return { State::starting, "" };
    }
    if (evidence.start.reported || outlived || let_go) {
        return { ended ? State::recovering : State::running, "" };
    }
    return { State::unknown, "the service was started " + std::to_string(static_cast<int>(evidence.service_age)) +
                                 " seconds ago, and may or may not have reported" };
}

/*
 * Of a monitor whose main thread has no child.
 */
Verdict judge_alone(const Evidence& evidence)
{
    if (evidence.start.adopted > 0 && !evidence.start.over) {
        return evidence.start.exit_sent ? judge_end(evidence) : Verdict{ State::running, "" };
    }
    if (evidence.no_start) {
        return { State::waiting, "it was started with -n and never starts the service" };
    }
    if (is_command_event(evidence.last_event)) {
        return { State::recovering, "" };
    }
    if (evidence.last_event > MONP_EVTID_ACT_RESTART) {
        return { State::ending, "" };
    }
    if (evidence.copies && !evidence.start.known) {
        return { State::unknown, "the service runs, and the log does not tell whether the monitor has adopted it" };
    }
    if (evidence.last_event == MONP_EVTID_FAIL_INIT) {
        return { State::waiting, "the start of the service has failed" };
    }
    if (evidence.last_event == MONP_EVTID_FAIL_MON) {
        return { State::recovering, "" };
    }
    if (evidence.launching || evidence.last_event == MONP_EVTID_ACT_RESTART) {
        return { State::starting, "" };
    }
    return { State::waiting, "" };
}

Evidence gather(const Report& report, const Process* child, const Start& start)
{
    const Monitor& monitor = *report.monitor;
    Evidence evidence;

    evidence.set_up = monitor.set_up;
    evidence.launching = monitor.launching;
    evidence.no_start = monitor.no_start;
    evidence.child = child_kind(monitor, child, report.record);
    evidence.copies = !report.copies.empty();
    evidence.monitor_age = monitor.process.age();
    evidence.init_seconds = report.settings.init_seconds;
    evidence.parent_init_seconds = report.settings.parent_init_seconds;
    evidence.last_event = report.record.last_event;
    evidence.start = start;
    evidence.exit_after = std::chrono::duration<double>(start.exit_time - start.time).count();
    if (report.service) {
        evidence.service_age = report.service->age();
        evidence.first_start = evidence.monitor_age - evidence.service_age < 1;
    }
    return evidence;
}

std::string process_text(const Process& process)
{
    return "process " + std::to_string(process.pid);
}

void warn(Report& report)
{
    const auto tell = [&](const std::string& text) { report.warnings.push_back(text); };

    if (report.monitor && report.monitor->replaced) {
        tell("the monitor's own program was replaced on disk since it started");
    }
    if (report.monitor && report.monitor->process.held()) {
        tell("the monitor is held by a signal or a debugger");
    }
    if (report.state == State::waiting && report.record.last_event == MONP_EVTID_FAIL_INIT) {
        tell("the monitor waits after a failed start");
    }
    if (report.service && report.service->zombie()) {
        tell("the service, " + process_text(*report.service) + ", is a zombie");
    }
    if (report.service && report.service->held()) {
        tell("the service, " + process_text(*report.service) + ", is held by a signal or a debugger");
    }
    if (report.monitor && report.service && report.service->parent != report.monitor->process.pid) {
        tell("the service, " + process_text(*report.service) + ", is no child of its monitor, which has adopted it");
    }
    if (report.service && report.service->replaced()) {
        tell("the service's program was replaced on disk since it started");
    }
    for (const auto& copy : report.copies) {
        tell((report.service   ? "a second copy of the service runs, "
              : report.monitor ? "the service's program runs outside the monitor, "
                               : "the service runs without a monitor, ") +
             process_text(copy));
    }
}

} // namespace

const char* word(State state)
{
    static constexpr const char* WORDS[] = { "starting", "running", "waiting", "recovering",
                                             "ending",   "unknown", "dead",    "stopped" };

    return WORDS[static_cast<size_t>(state)];
}

void require_known_or_running(const std::string& type)
{
    const auto monitors = find_monitors(read_processes());

    if (std::none_of(monitors.begin(), monitors.end(), [&](const Monitor& one) { return one.type == type; })) {
        require_known(type);
    }
}

Verdict judge(const Evidence& evidence)
{
    if (!evidence.set_up) {
        return { State::starting, "" };
    }
    switch (evidence.child) {
    case Evidence::Child::program:
        return { State::starting, "" };
    case Evidence::Child::command:
        return { State::recovering, "" };
    case Evidence::Child::service:
    case Evidence::Child::ended_service:
        return judge_service(evidence);
    case Evidence::Child::none:
        break;
    }
    return judge_alone(evidence);
}

const Settings& Observer::settings_of(const std::string& type, const std::vector<std::string>& options)
{
    std::vector<std::string> key = options;

    key.push_back(type);
    const auto found = settings_.find(key);
    return found != settings_.end() ? found->second
                                    : settings_.emplace(key, read_settings(type, options)).first->second;
}

Report Observer::report_of(const Monitor& monitor, const std::vector<Process>& all)
{
    const Process* child = main_child(monitor, all);
    const Start start = journal_.start_of(monitor.process);
    Report report;

    report.type = monitor.type;
    report.monitor = monitor;
    report.settings = settings_of(monitor.type, monitor.options);
    report.record = journal_.record_of(monitor.process);

    const auto kind = child_kind(monitor, child, report.record);
    if (kind == Evidence::Child::none && start.adopted > 0 && !start.over) {
        child = find_process(all, start.adopted);
        report.service = child == nullptr ? std::nullopt : std::optional(*child);
    } else if (kind == Evidence::Child::service || kind == Evidence::Child::ended_service) {
        report.service = *child;
    }
    std::copy_if(all.begin(), all.end(), std::back_inserter(report.copies), [&](const Process& one) {
        return one.runs(report.settings.service) && !(child != nullptr && descends_from(one, child->pid, all));
    });

    const Verdict verdict = monitor.process.executable.empty()
                                ? Verdict{ State::unknown, "what a process of root's does can be told by root only" }
                                : judge(gather(report, kind == Evidence::Child::none ? nullptr : child, start));
    report.state = verdict.state;
    report.reason = verdict.reason;
    warn(report);
    return report;
}

Report Observer::report_without(const std::string& type, const std::vector<Process>& all)
{
    Report report;
    std::error_code hidden;

    report.type = type;
    report.settings = settings_of(type, {});
    const bool left = !report.settings.lock_file.empty() && fs::exists(report.settings.lock_file, hidden);
    report.state = left ? State::dead : State::stopped;
    std::copy_if(all.begin(), all.end(), std::back_inserter(report.copies),
                 [&](const Process& one) { return one.runs(report.settings.service); });
    if (left) {
        report.reason = "its lock file " + report.settings.lock_file + " was left";
    } else if (hidden) {
        report.state = State::unknown;
        report.reason = "its lock file " + report.settings.lock_file + " cannot be looked for: " + hidden.message();
    }
    warn(report);
    return report;
}

std::vector<Report> Observer::look(const std::string& type)
{
    std::vector<Report> reports;
    std::set<pid_t> pids;

    /* The processes first: what they have written by then is in the log. */
    const auto all = read_processes();
    const auto monitors = find_monitors(all);
    for (const auto& monitor : monitors) {
        pids.insert(monitor.process.pid);
    }
    journal_.read_on(pids);
    for (const auto& monitor : monitors) {
        if (type.empty() || monitor.type == type) {
            reports.push_back(report_of(monitor, all));
        }
    }
    for (const auto& known : type.empty() ? known_types() : std::vector{ type }) {
        const auto same = [&](const Report& report) { return report.type == known; };
        const auto number = std::count_if(reports.begin(), reports.end(), same);
        if (number == 0) {
            Report report = report_without(known, all);
            if (!type.empty() || report.state != State::stopped || !report.copies.empty()) {
                reports.push_back(std::move(report));
            }
        }
        for (auto& report : reports) {
            if (number > 1 && same(report)) {
                report.warnings.push_back(std::to_string(number) + " monitors of this type run");
            }
        }
    }
    return reports;
}

} // namespace monpctl
