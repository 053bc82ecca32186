#include "machine/inference.h"

#include "monp.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fmt/format.h>
#include <sys/wait.h>

namespace monpctl {

namespace {

/* The monitor counts seconds in pauses, and takes one or two more to act. */
constexpr double SLACK = 3;

/* The monitor looks for the end of a service that has reported once a second. */
constexpr double NOTICE = 2;

/*
 * The part of a verdict that the state machine gives.
 */
struct Judgement {
    State state = State::unknown;
    std::string reason = {};
    std::optional<Time> since = {};
    std::optional<Time> until = {};
    std::string failed_start = {}; /* why the start has failed before the monitor says so */
};

/*
 * A moment of the processes' clock by the clock of the wall.
 */
Time wall_time(const Evidence& evidence, double seconds)
{
    const std::chrono::duration<double> distance(seconds - evidence.now);

    return evidence.wall_now + std::chrono::duration_cast<Time::duration>(distance);
}

/* ---------------------------------------------------------------- words ---- */

std::string refusal_words(const Evidence& evidence, int error)
{
    return error == ENOENT ? fmt::format("no such program: {}", evidence.program)
                           : fmt::format("{} cannot be run: {}", evidence.program, std::strerror(error));
}

std::string failure_words(const Evidence& evidence, const LoggedEnd& end)
{
    if (end.refused != 0) {
        return refusal_words(evidence, end.refused);
    }
    if (!end.before) {
        return end_words(end);
    }
    /* Without a report it is sent the exit signal, and then SIGKILL, whatever its status is made of. */
    const bool by_itself = end.signal == 0 ? end.status > 0 : end.signal != SIGKILL;
    return by_itself ? end_words(end) + " before it reported"
                     : fmt::format("did not report within {} s", evidence.init_seconds);
}

/*
 * An end as a sentence about the service.
 */
std::string service_words(const std::string& end)
{
    return (end.starts_with("killed") ? "the service was " : "the service ") + end;
}

/*
 * The end of a zombie.
 */
std::string wait_words(const std::optional<int>& status)
{
    if (!status) {
        return "ended";
    }
    LoggedEnd end;
    end.status = WIFEXITED(*status) ? WEXITSTATUS(*status) : WCOREDUMP(*status) ? MONP_EXEC_CORE : MONP_EXEC_SIGNALED;
    end.signal = WIFSIGNALED(*status) ? WTERMSIG(*status) : 0;
    return end_words(end);
}

/* ---------------------------------------------------------------- records ---- */

/*
 * Why the records of the run are not complete; empty if they are.
 */
std::string gap(const Evidence& evidence)
{
    const auto& [run, missing] = evidence.records;

    if (!missing.empty()) {
        return missing;
    }
    if (run && run->lost > 0) {
        return fmt::format("{} of its records could not be written", run->lost);
    }
    return run || evidence.monitor ? evidence.untold : "";
}

RunHistory history_of(const Evidence& evidence)
{
    const auto& run = evidence.records.run;
    RunHistory history;

    history.missing = gap(evidence);
    if (evidence.monitor || run) {
        history.restart_limit = std::max(run && run->restart_limit ? *run->restart_limit : evidence.restart_limit, 0);
    }
    if (!run) {
        return history;
    }
    if (history.missing.empty()) {
        history.restarts = run->restarts;
    }
    if (run->end) {
        history.last_end = ServiceEnd{ run->end->time, run->end->status, run->end->killed, end_words(*run->end) };
    }
    if (run->failure) {
        history.last_failure = Failure{ run->failure->time, failure_words(evidence, *run->failure) };
    } else if (run->daemon == 0 && run->exit_status.value_or(0) != 0) {
        history.last_failure = Failure{ run->exit_time, fmt::format("its monitor ended with status {} before it had "
                                                                    "set itself up",
                                                                    *run->exit_status) };
    }
    return history;
}

ActionInForce action_of(const Evidence& evidence)
{
    const auto& run = evidence.records.run;

    if (run && run->action) {
        return { *run->action, false };
    }
    return { evidence.action, evidence.monitor.has_value() && !evidence.action_given };
}

/*
 * The last event of the monitor, 0 without one; 0 too where a newer one may be missing.
 */
int last_event(const Evidence& evidence)
{
    const auto& run = evidence.records.run;

    return run && (evidence.untold.empty() || !evidence.monitor) ? run->last_event : 0;
}

/*
 * Whether the event is that of a recovery command, which is raised before the command is run.
 */
bool is_command(int event)
{
    return event == MONP_EVTID_ACT_STOP_DAEMON || event == MONP_EVTID_ACT_HALT_SYSTEM ||
           event == MONP_EVTID_ACT_REBOOT_SYSTEM;
}

std::optional<LoggedStart> logged_start(const Evidence& evidence)
{
    return evidence.records.run ? evidence.records.run->start : std::nullopt;
}

/* ---------------------------------------------------------------- with a monitor ---- */

/*
 * Of a service that was sent its exit signal: on request, or because it had not reported in time.
 */
Judgement judge_end(const Evidence& evidence, const Evidence::Child& service)
{
    const double age = evidence.now - service.started;
    const bool in_doubt =
        !logged_start(evidence)->reported && age >= evidence.init_seconds && age <= evidence.init_seconds + SLACK;

    return { .state = State::ending,
             .reason = in_doubt ? "the service was told to end, on request or because it has not reported" : "" };
}

/*
 * Of a service that has ended and is not reaped yet, and of which no report is known. The monitor notices the end of one
 * that has reported within a second; of any other it takes no notice until the time for the report is over.
 */
Judgement judge_zombie(const Evidence& evidence, Judgement starting)
{
    const Evidence::Child& service = *evidence.child;
    const bool unreported = evidence.monitor->launching || service.zombie_seconds > NOTICE;

    if (unreported) {
        starting.failed_start = wait_words(service.wait_status) + " before it reported";
        starting.reason = service_words(starting.failed_start) + ", which its monitor takes notice of later";
    } else {
        starting.reason = "the service has ended, and it is not known yet if it had reported";
    }
    return starting;
}

/*
 * Of a service that the monitor has started. It is killed if it does not report in its time, and a launcher's process
 * that left before its own time was over was released: the service had reported, or was about to be killed.
 */
Judgement judge_service(const Evidence& evidence)
{
    const Evidence::Child& service = *evidence.child;
    const Evidence::Monitor& monitor = *evidence.monitor;
    const auto start = logged_start(evidence);
    const double age = evidence.now - service.started;
    const double monitor_age = evidence.now - monitor.started;
    const bool reported = start && !start->over && start->reported;
    const bool outlived = age > evidence.init_seconds + SLACK;
    const bool released = service.started - monitor.started < 1 && !monitor.launching &&
                          monitor_age < evidence.parent_init_seconds - 1 && (start || age < evidence.init_seconds);
    const Time since = wall_time(evidence, service.started);

    if (start && start->exit_sent && !start->over) {
        return judge_end(evidence, service);
    }
    if ((reported || outlived || released) && (reported || !monitor.launching)) {
        return { .state = service.zombie ? State::recovering : State::running, .since = since };
    }
    Judgement starting = { .state = State::starting,
                           .since = since,
                           .until = wall_time(evidence, service.started + evidence.init_seconds + SLACK) };
    if (service.zombie) {
        return judge_zombie(evidence, starting);
    }
    if (!monitor.launching) {
        starting.reason = "the service may have reported already, which the log does not tell";
    }
    return starting;
}

/*
 * Of a monitor whose service is not there, by its last event.
 */
Judgement judge_event(const Evidence& evidence)
{
    const int event = last_event(evidence);
    const auto& run = evidence.records.run;
    const Time since = run ? run->last_event_time : Time();

    if (is_command(event)) {
        return { .state = State::recovering, .since = since };
    }
    if (event > MONP_EVTID_ACT_RESTART) {
        return { .state = State::ending, .since = since };
    }
    if (evidence.copies && !logged_start(evidence)) {
        return { .state = State::unknown,
                 .reason = "the service runs, and the log does not tell whether the monitor has adopted it" };
    }
    if (event == MONP_EVTID_FAIL_INIT) {
        return { .state = State::waiting, .reason = "the start of the service has failed", .since = since };
    }
    if (event == MONP_EVTID_FAIL_MON) {
        return { .state = run->limit_reached ? State::ending : State::recovering, .since = since };
    }
    if (evidence.monitor->launching || event == MONP_EVTID_ACT_RESTART) {
        return { .state = State::starting };
    }
    return { .state = State::waiting, .reason = evidence.held_back ? "its policy holds the service back" : "" };
}

/*
 * Of a monitor whose main thread has no child.
 */
Judgement judge_alone(const Evidence& evidence)
{
    const auto start = logged_start(evidence);

    if (start && start->adopted > 0 && !start->over) {
        if (start->exit_sent && evidence.adopted) {
            return judge_end(evidence, *evidence.adopted);
        }
        /* The end of one that is not its child shows to the monitor within a second. */
        return evidence.adopted
                   ? Judgement{ .state = State::running, .since = wall_time(evidence, evidence.adopted->started) }
                   : Judgement{ .state = State::recovering };
    }
    if (evidence.monitor->no_start) {
        return { .state = State::waiting, .reason = "it was started with -n and never starts the service" };
    }
    return judge_event(evidence);
}

Judgement judge_monitor(const Evidence& evidence)
{
    if (evidence.monitor->hidden) {
        return { .state = State::unknown, .reason = "what a process of another user does is told to root only" };
    }
    if (!evidence.monitor->set_up || (evidence.child && evidence.child->unborn)) {
        return { .state = State::starting, .since = wall_time(evidence, evidence.monitor->started) };
    }
    if (!evidence.child) {
        return judge_alone(evidence);
    }
    if (is_command(last_event(evidence))) {
        return { .state = State::recovering, .since = evidence.records.run->last_event_time };
    }
    return judge_service(evidence);
}

/* ---------------------------------------------------------------- without a monitor ---- */

/*
 * Why no recovery followed on the end of a service.
 */
std::string no_recovery(const Evidence& evidence, const LoggedRun& run)
{
    const int action = action_of(evidence).action;
    const int limit = run.restart_limit.value_or(evidence.restart_limit);

    if (action == MONP_ACT_NONE) {
        return ", and its recovery action is to do nothing";
    }
    if (action == MONP_ACT_RESTART && (run.limit_reached || (limit > 0 && run.restarts >= limit))) {
        return fmt::format(" after {} of {} restarts", run.restarts, limit);
    }
    return ", and its monitor ended before it could " + action_text(action);
}

/*
 * Why a monitor has given up, by its last event; empty if it has not.
 */
std::string surrender(const Evidence& evidence, const LoggedRun& run)
{
    const std::string service =
        run.end ? service_words(end_words(*run.end)) + (run.end->asked ? " when it was asked to end" : "")
                : "the service failed";

    if (run.reload_failed) {
        return "its policy could not be read again";
    }
    switch (run.last_event) {
    case MONP_EVTID_FAIL_MON:
        return service + no_recovery(evidence, run);
    case MONP_EVTID_ACT_STOP_DAEMON:
    case MONP_EVTID_ACT_HALT_SYSTEM:
    case MONP_EVTID_ACT_REBOOT_SYSTEM:
        return service + ", so its monitor set out to " + action_text(run.last_event / 2 + 1);
    case MONP_EVTID_FAIL_STOP_DAEMON:
    case MONP_EVTID_FAIL_HALT_SYSTEM:
    case MONP_EVTID_FAIL_REBOOT_SYSTEM:
        return service + ", and its monitor failed to " + action_text(run.last_event / 2 + 1);
    default:
        return "";
    }
}

Judgement judge_absence(const Evidence& evidence)
{
    const auto& run = evidence.records.run;

    if (evidence.lock_file == Evidence::LockFile::left) {
        return { .state = State::dead, .reason = "its lock file was left" };
    }
    if (evidence.lock_file == Evidence::LockFile::hidden) {
        return { .state = State::unknown, .reason = "its lock file cannot be looked for" };
    }
    if (!run) {
        return { .state = State::stopped };
    }
    if (const std::string reason = surrender(evidence, *run); !reason.empty()) {
        return { .state = State::gave_up,
                 .reason = reason,
                 .since = run->exit_status ? run->exit_time : run->last_event_time };
    }
    return { .state = State::stopped, .since = run->exit_status ? std::optional(run->exit_time) : std::nullopt };
}

Verdict::Service service_of(const Evidence& evidence)
{
    if (!evidence.monitor || evidence.monitor->hidden) {
        return Verdict::Service::none;
    }
    if (evidence.child) {
        return evidence.child->unborn || is_command(last_event(evidence)) ? Verdict::Service::none
                                                                          : Verdict::Service::child;
    }
    const auto start = logged_start(evidence);
    return evidence.adopted && start && !start->over ? Verdict::Service::adopted : Verdict::Service::none;
}

} // namespace

std::string end_words(const LoggedEnd& end)
{
    if (end.killed) {
        return "had to be killed";
    }
    if (end.signal != 0) {
        return fmt::format("killed by signal {}{}", end.signal,
                           end.status == MONP_EXEC_CORE ? ", with a core dump" : "");
    }
    if (end.adopted) {
        return "ended with a status that its monitor could not see";
    }
    if (end.status == MONP_EXEC_PROCKILL) {
        return "ended by its exit signal";
    }
    return fmt::format("ended with status {}", end.status);
}

Verdict infer(const Evidence& evidence)
{
    Judgement judgement = evidence.monitor ? judge_monitor(evidence) : judge_absence(evidence);
    Verdict verdict;

    verdict.state = judgement.state;
    verdict.reason = std::move(judgement.reason);
    verdict.since = judgement.since;
    verdict.until = judgement.until;
    verdict.service = service_of(evidence);
    verdict.history = history_of(evidence);
    verdict.action = action_of(evidence);
    if (!judgement.failed_start.empty()) {
        verdict.start_failed = true;
        verdict.history.last_failure = Failure{ evidence.wall_now, std::move(judgement.failed_start) };
    }
    return verdict;
}

} // namespace monpctl
