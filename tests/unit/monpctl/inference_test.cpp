/*
 * The state of a type in each situation: what is seen, and what may be said about it.
 */
#include "machine/inference.h"

#include "monp.h"

#include <cerrno>
#include <csignal>
#include <gmock/gmock.h>

using namespace monpctl;
using testing::HasSubstr;
using Child = Evidence::Child;
using Service = Verdict::Service;

namespace {

/* The look is taken a thousand seconds after the boot, at this time of day. The policy grants 10 seconds for a report. */
constexpr double NOW = 1000;
const Time NOON = Time(std::chrono::hours(12));
const Time EARLIER = NOON - std::chrono::minutes(5);

Time seconds_from_now(int seconds)
{
    return NOON + std::chrono::seconds(seconds);
}

Evidence::Monitor monitor(double age)
{
    return { .started = NOW - age, .set_up = true };
}

Evidence::Monitor launching(double age)
{
    return { .started = NOW - age, .set_up = true, .launching = true };
}

Child service(double age)
{
    return { .pid = 40, .started = NOW - age };
}

/* An ended service, as seen for some seconds; it ended with status 2. */
Child zombie(double age, double seen)
{
    return { .pid = 40, .started = NOW - age, .zombie = true, .zombie_seconds = seen, .wait_status = 2 << 8 };
}

LoggedStart reported()
{
    return { .time = EARLIER, .reported = true };
}

LoggedStart unreported()
{
    return { .time = EARLIER };
}

/* An end of the service that was not asked for, and one before the report. */
LoggedEnd ended(int status, int signal = 0)
{
    return { .time = EARLIER, .status = status, .signal = signal };
}

LoggedEnd failed(int status, int signal = 0)
{
    return { .time = EARLIER, .status = status, .signal = signal, .before = true };
}

/* The records of a monitor that has the action restart in force, and three restarts. */
RunRecords records(LoggedRun run = {})
{
    run.type = "dusko";
    run.first = 30;
    if (run.daemon == 0 && !run.exit_status) {
        run.daemon = 31;
    }
    if (!run.action) {
        run.action = MONP_ACT_RESTART;
    }
    run.restart_limit = 3;
    run.last_event_time = EARLIER;
    run.exit_time = EARLIER;
    return { run, "" };
}

struct Situation {
    const char* name;
    Evidence evidence;
    State state;
    std::string reason = {}; /* a part of it; empty: there is none */
    Service service = Service::none;
    std::optional<int> restarts = {};
    std::string end = {};     /* in words */
    std::string failure = {}; /* in words */
    std::optional<Time> since = {};
    std::optional<Time> until = {};
    bool start_failed = false;
};

const Situation SITUATIONS[] = {
    /* Start-up. */
    { .name = "a first process without handlers yet",
      .evidence = { .monitor = Evidence::Monitor{ .started = NOW }, .records = { {}, "" } },
      .state = State::starting,
      .since = NOON },
    { .name = "a daemon that has not forked its service yet",
      .evidence = { .monitor = launching(1), .records = records() },
      .state = State::starting,
      .restarts = 0 },
    { .name = "a child that is about to become the service",
      .evidence = { .monitor = launching(1),
                    .child = Child{ .pid = 40, .started = NOW, .unborn = true },
                    .records = records({ .start = unreported() }) },
      .state = State::starting,
      .restarts = 0,
      .since = seconds_from_now(-1) },
    { .name = "a first start whose launcher still waits",
      .evidence = { .monitor = launching(4), .child = service(4), .records = records({ .start = unreported() }) },
      .state = State::starting,
      .service = Service::child,
      .restarts = 0,
      .since = seconds_from_now(-4),
      .until = seconds_from_now(-4 + 10 + 3) },
    { .name = "a launcher that was released early, as by a report",
      .evidence = { .monitor = monitor(4), .child = service(4), .records = records({ .start = unreported() }) },
      .state = State::running,
      .service = Service::child,
      .restarts = 0,
      .since = seconds_from_now(-4) },
    { .name = "a launcher released early, without a log: it may have been for a service that is late",
      .evidence = { .monitor = monitor(11), .child = service(11), .records = { {}, "the log is gone" } },
      .state = State::starting,
      .reason = "may have reported",
      .service = Service::child,
      .until = seconds_from_now(-11 + 13) },
    { .name = "a logged report",
      .evidence = { .monitor = launching(4), .child = service(4), .records = records({ .start = reported() }) },
      .state = State::running,
      .service = Service::child,
      .restarts = 0,
      .since = seconds_from_now(-4) },
    { .name = "a service that ended before its report, while the launcher waits",
      .evidence = { .monitor = launching(3), .child = zombie(3, 0), .records = records({ .start = unreported() }) },
      .state = State::starting,
      .reason = "the service ended with status 2 before it reported",
      .service = Service::child,
      .restarts = 0,
      .failure = "ended with status 2 before it reported",
      .since = seconds_from_now(-3),
      .until = seconds_from_now(10),
      .start_failed = true },
    { .name = "one that crashed before its report",
      .evidence = { .monitor = launching(3),
                    .child = Child{ .pid = 40, .started = NOW - 3, .zombie = true, .wait_status = SIGSEGV },
                    .records = records({ .start = unreported() }) },
      .state = State::starting,
      .reason = "killed by signal 11 before it reported",
      .service = Service::child,
      .restarts = 0,
      .failure = "killed by signal 11 before it reported",
      .since = seconds_from_now(-3),
      .until = seconds_from_now(10),
      .start_failed = true },
    { .name = "one whose end status is hidden",
      .evidence = { .monitor = launching(3),
                    .child = Child{ .pid = 40, .started = NOW - 3, .zombie = true },
                    .records = records({ .start = unreported() }) },
      .state = State::starting,
      .reason = "ended before it reported",
      .service = Service::child,
      .restarts = 0,
      .failure = "ended before it reported",
      .since = seconds_from_now(-3),
      .until = seconds_from_now(10),
      .start_failed = true },

    /* After a restart, or a start by request: no launcher waits, and a report leaves no trace at the level info. */
    { .name = "a service that was just restarted",
      .evidence = { .monitor = monitor(500),
                    .child = service(2),
                    .records = records({ .start = unreported(),
                                         .end = ended(101, 9),
                                         .failure = ended(101, 9),
                                         .restarts = 1,
                                         .last_event = MONP_EVTID_ACT_RESTART }) },
      .state = State::starting,
      .reason = "may have reported",
      .service = Service::child,
      .restarts = 1,
      .end = "killed by signal 9",
      .failure = "killed by signal 9",
      .since = seconds_from_now(-2),
      .until = seconds_from_now(11) },
    { .name = "a restart at the last moment of doubt",
      .evidence = { .monitor = monitor(500), .child = service(13), .records = records({ .start = unreported() }) },
      .state = State::starting,
      .reason = "may have reported",
      .service = Service::child,
      .restarts = 0,
      .since = seconds_from_now(-13),
      .until = seconds_from_now(0) },
    { .name = "a restarted service that has outlived the time for its report",
      .evidence = { .monitor = monitor(500), .child = service(13.5), .records = records({ .start = unreported() }) },
      .state = State::running,
      .service = Service::child,
      .restarts = 0 },
    { .name = "a restarted service that ended a moment ago, perhaps after a report",
      .evidence = { .monitor = monitor(500), .child = zombie(3, 1), .records = records({ .start = unreported() }) },
      .state = State::starting,
      .reason = "it is not known yet if it had reported",
      .service = Service::child,
      .restarts = 0,
      .since = seconds_from_now(-3),
      .until = seconds_from_now(10) },
    { .name = "a restarted service whose end nobody has noticed for too long",
      .evidence = { .monitor = monitor(500), .child = zombie(5, 2.5), .records = records({ .start = unreported() }) },
      .state = State::starting,
      .reason = "ended with status 2 before it reported",
      .service = Service::child,
      .restarts = 0,
      .failure = "ended with status 2 before it reported",
      .since = seconds_from_now(-5),
      .until = seconds_from_now(8),
      .start_failed = true },
    { .name = "between a restart and its fork",
      .evidence = { .monitor = monitor(500),
                    .records = records({ .start = LoggedStart{ .over = true },
                                         .restarts = 1,
                                         .last_event = MONP_EVTID_ACT_RESTART }) },
      .state = State::starting,
      .restarts = 1 },

    /* Up, and down again. */
    { .name = "a service that runs for long",
      .evidence = { .monitor = monitor(500), .child = service(499), .records = records({ .start = reported() }) },
      .state = State::running,
      .service = Service::child,
      .restarts = 0,
      .since = seconds_from_now(-499) },
    { .name = "the same without a log",
      .evidence = { .monitor = monitor(500), .child = service(499), .records = { {}, "the log is gone" } },
      .state = State::running,
      .service = Service::child },
    { .name = "the same with a log that is full since",
      .evidence = { .monitor = monitor(500),
                    .child = service(499),
                    .records = records({ .start = reported(), .restarts = 1 }),
                    .untold = "the file system is full" },
      .state = State::running,
      .service = Service::child },
    { .name = "the same with lost records",
      .evidence = { .monitor = monitor(500),
                    .child = service(499),
                    .records = records({ .start = reported(), .restarts = 1, .lost = 7 }) },
      .state = State::running,
      .service = Service::child },
    { .name = "a service that has ended and is about to be reaped",
      .evidence = { .monitor = monitor(500), .child = zombie(499, 0), .records = records({ .start = reported() }) },
      .state = State::recovering,
      .service = Service::child,
      .restarts = 0 },
    { .name = "an end that was told, before the restart",
      .evidence = { .monitor = monitor(500),
                    .records = records({ .start = LoggedStart{ .reported = true, .over = true },
                                         .end = ended(3),
                                         .failure = ended(3),
                                         .last_event = MONP_EVTID_FAIL_MON }) },
      .state = State::recovering,
      .restarts = 0,
      .end = "ended with status 3",
      .failure = "ended with status 3",
      .since = EARLIER },
    { .name = "an end after the last restart, with the monitor on its way out",
      .evidence = { .monitor = monitor(500),
                    .records = records({ .end = ended(102, 11),
                                         .failure = ended(102, 11),
                                         .restarts = 3,
                                         .last_event = MONP_EVTID_FAIL_MON,
                                         .limit_reached = true }) },
      .state = State::ending,
      .restarts = 3,
      .end = "killed by signal 11, with a core dump",
      .failure = "killed by signal 11, with a core dump" },
    { .name = "a recovery command that runs",
      .evidence = { .monitor = monitor(500),
                    .child = service(1),
                    .records = records({ .action = MONP_ACT_STOP_CLSDAEMON,
                                         .end = ended(3),
                                         .failure = ended(3),
                                         .last_event = MONP_EVTID_ACT_STOP_DAEMON }) },
      .state = State::recovering,
      .restarts = 0,
      .end = "ended with status 3",
      .failure = "ended with status 3" },
    { .name = "a recovery command that is about to run, or over",
      .evidence = { .monitor = monitor(500), .records = records({ .last_event = MONP_EVTID_ACT_HALT_SYSTEM }) },
      .state = State::recovering,
      .restarts = 0 },
    { .name = "a recovery command that has failed",
      .evidence = { .monitor = monitor(500), .records = records({ .last_event = MONP_EVTID_FAIL_REBOOT_SYSTEM }) },
      .state = State::ending,
      .restarts = 0 },
    { .name = "a service that was asked to end",
      .evidence = { .monitor = monitor(500),
                    .child = service(499),
                    .records = records({ .start = LoggedStart{ .reported = true, .exit_sent = true } }) },
      .state = State::ending,
      .service = Service::child,
      .restarts = 0 },
    { .name = "an exit signal after the time for the report: nobody is late by so much",
      .evidence = { .monitor = monitor(500),
                    .child = service(60),
                    .records = records({ .start = LoggedStart{ .exit_sent = true } }) },
      .state = State::ending,
      .service = Service::child,
      .restarts = 0 },
    { .name = "an exit signal at the end of the time for the report",
      .evidence = { .monitor = monitor(500),
                    .child = service(10.5),
                    .records = records({ .start = LoggedStart{ .exit_sent = true } }) },
      .state = State::ending,
      .reason = "on request or because it has not reported",
      .service = Service::child,
      .restarts = 0 },

    /* Waiting. */
    { .name = "a monitor that waits for a request",
      .evidence = { .monitor = monitor(500), .records = records() },
      .state = State::waiting,
      .restarts = 0 },
    { .name = "one whose policy holds the service back",
      .evidence = { .monitor = monitor(500), .records = records(), .held_back = true },
      .state = State::waiting,
      .reason = "its policy holds the service back",
      .restarts = 0 },
    { .name = "one that never starts the service",
      .evidence = { .monitor = Evidence::Monitor{ .set_up = true, .no_start = true }, .records = records() },
      .state = State::waiting,
      .reason = "-n",
      .restarts = 0 },
    { .name = "one that waits after a service without a report",
      .evidence = { .monitor = monitor(500),
                    .records =
                        records({ .end = failed(0), .failure = failed(0), .last_event = MONP_EVTID_FAIL_INIT }) },
      .state = State::waiting,
      .reason = "has failed",
      .restarts = 0,
      .end = "ended with status 0",
      .failure = "did not report within 10 s",
      .since = EARLIER },
    { .name = "one whose service died of the exit signal, being late",
      .evidence = { .monitor = monitor(500),
                    .records = records({ .failure = failed(MONP_EXEC_PROCKILL), .last_event = MONP_EVTID_FAIL_INIT }) },
      .state = State::waiting,
      .reason = "has failed",
      .restarts = 0,
      .failure = "did not report within 10 s" },
    { .name = "one whose service had to be killed, being late",
      .evidence = { .monitor = monitor(500),
                    .records = records(
                        { .failure = failed(MONP_EXEC_SIGNALED, SIGKILL), .last_event = MONP_EVTID_FAIL_INIT }) },
      .state = State::waiting,
      .reason = "has failed",
      .restarts = 0,
      .failure = "did not report within 10 s" },
    { .name = "one whose service has a fault",
      .evidence = { .monitor = monitor(500),
                    .records = records({ .failure = failed(2), .last_event = MONP_EVTID_FAIL_INIT }) },
      .state = State::waiting,
      .reason = "has failed",
      .restarts = 0,
      .failure = "ended with status 2 before it reported" },
    { .name = "one whose service is not there",
      .evidence = { .monitor = monitor(500),
                    .records = records({ .failure = LoggedEnd{ .refused = ENOENT, .before = true },
                                         .last_event = MONP_EVTID_FAIL_INIT }) },
      .state = State::waiting,
      .reason = "has failed",
      .restarts = 0,
      .failure = "no such program: /opt/x/bin/svc" },
    { .name = "one whose service cannot be run",
      .evidence = { .monitor = monitor(500),
                    .records = records({ .failure = LoggedEnd{ .refused = EACCES, .before = true },
                                         .last_event = MONP_EVTID_FAIL_INIT }) },
      .state = State::waiting,
      .reason = "has failed",
      .restarts = 0,
      .failure = "/opt/x/bin/svc cannot be run: Permission denied" },
    { .name = "no child, and a log that is full since: what the last event says is over",
      .evidence = { .monitor = monitor(500),
                    .records = records({ .last_event = MONP_EVTID_FAIL_MON }),
                    .untold = "the file system is full" },
      .state = State::waiting },

    /* Adoption. */
    { .name = "an adopted service",
      .evidence = { .monitor = monitor(500),
                    .adopted = service(900),
                    .records = records({ .start = LoggedStart{ .adopted = 40, .reported = true } }) },
      .state = State::running,
      .service = Service::adopted,
      .restarts = 0,
      .since = seconds_from_now(-900) },
    { .name = "an adopted service that is gone, which the monitor has yet to notice",
      .evidence = { .monitor = monitor(500),
                    .records = records({ .start = LoggedStart{ .adopted = 40, .reported = true } }) },
      .state = State::recovering,
      .restarts = 0 },
    { .name = "an adopted service that was asked to end",
      .evidence = { .monitor = monitor(500),
                    .adopted = service(900),
                    .records =
                        records({ .start = LoggedStart{ .adopted = 40, .reported = true, .exit_sent = true } }) },
      .state = State::ending,
      .service = Service::adopted,
      .restarts = 0 },
    { .name = "a running program that may or may not have been adopted",
      .evidence = { .monitor = monitor(500), .copies = true, .records = { {}, "the log is gone" } },
      .state = State::unknown,
      .reason = "does not tell whether the monitor has adopted it" },
    { .name = "a program that runs beside a waiting monitor",
      .evidence = { .monitor = monitor(500),
                    .copies = true,
                    .records = records({ .start = LoggedStart{ .over = true },
                                         .failure = failed(1),
                                         .last_event = MONP_EVTID_FAIL_INIT }) },
      .state = State::waiting,
      .reason = "has failed",
      .restarts = 0,
      .failure = "ended with status 1 before it reported" },
    { .name = "the end of an adopted service",
      .evidence = { .records = records({ .end = LoggedEnd{ .status = -1, .adopted = true },
                                         .failure = LoggedEnd{ .status = -1, .adopted = true },
                                         .restarts = 3,
                                         .last_event = MONP_EVTID_FAIL_MON,
                                         .exit_status = 0 }) },
      .state = State::gave_up,
      .reason = "the service ended with a status that its monitor could not see after 3 of 3 restarts",
      .restarts = 3,
      .end = "ended with a status that its monitor could not see",
      .failure = "ended with a status that its monitor could not see" },

    /* Seen by others than root. */
    { .name = "a monitor that is another user's",
      .evidence = { .monitor = Evidence::Monitor{ .hidden = true }, .records = { {}, "the log is hidden" } },
      .state = State::unknown,
      .reason = "root only" },

    /* Without a monitor. */
    { .name = "a type that never ran", .evidence = {}, .state = State::stopped },
    { .name = "a type that never ran, with a log that cannot be written",
      .evidence = { .untold = "the file system is full" },
      .state = State::stopped },
    { .name = "an operator's stop",
      .evidence = { .records = records({ .daemon = 31,
                                         .end = LoggedEnd{ .asked = true },
                                         .restarts = 2,
                                         .last_event = MONP_EVTID_ACT_RESTART,
                                         .exit_status = 0 }) },
      .state = State::stopped,
      .restarts = 2,
      .end = "ended with status 0",
      .since = EARLIER },
    { .name = "an operator's stop for which the service had to be killed",
      .evidence = { .records = records({ .end = LoggedEnd{ .asked = true, .killed = true }, .exit_status = 0 }) },
      .state = State::stopped,
      .restarts = 0,
      .end = "had to be killed" },
    { .name = "an operator's stop after a failed start",
      .evidence = { .records = records(
                        { .daemon = 31, .failure = failed(2), .last_event = MONP_EVTID_FAIL_INIT, .exit_status = 0 }) },
      .state = State::stopped,
      .restarts = 0,
      .failure = "ended with status 2 before it reported" },
    { .name = "used-up restarts",
      .evidence = { .records = records({ .daemon = 31,
                                         .end = ended(101, 9),
                                         .failure = ended(101, 9),
                                         .restarts = 3,
                                         .last_event = MONP_EVTID_FAIL_MON,
                                         .exit_status = 0 }) },
      .state = State::gave_up,
      .reason = "the service was killed by signal 9 after 3 of 3 restarts",
      .restarts = 3,
      .end = "killed by signal 9",
      .failure = "killed by signal 9",
      .since = EARLIER },
    { .name = "used-up restarts at a log level without the monitor's last word",
      .evidence = { .records = records(
                        { .end = ended(3), .failure = ended(3), .restarts = 3, .last_event = MONP_EVTID_FAIL_MON }) },
      .state = State::gave_up,
      .reason = "the service ended with status 3 after 3 of 3 restarts",
      .restarts = 3,
      .end = "ended with status 3",
      .failure = "ended with status 3",
      .since = EARLIER },
    { .name = "a monitor that was killed in the middle of a restart",
      .evidence = { .records = records(
                        { .end = ended(3), .failure = ended(3), .restarts = 1, .last_event = MONP_EVTID_FAIL_MON }) },
      .state = State::gave_up,
      .reason = "the service ended with status 3, and its monitor ended before it could restart the service",
      .restarts = 1,
      .end = "ended with status 3",
      .failure = "ended with status 3" },
    { .name = "a failure that nothing was to be done about",
      .evidence = { .records = records({ .action = MONP_ACT_NONE,
                                         .end = ended(3),
                                         .failure = ended(3),
                                         .last_event = MONP_EVTID_FAIL_MON,
                                         .exit_status = 0 }) },
      .state = State::gave_up,
      .reason = "the service ended with status 3, and its recovery action is to do nothing",
      .restarts = 0,
      .end = "ended with status 3",
      .failure = "ended with status 3" },
    { .name = "a reboot as the recovery",
      .evidence = { .records = records({ .action = MONP_ACT_OS_REBOOT,
                                         .end = ended(3),
                                         .failure = ended(3),
                                         .last_event = MONP_EVTID_ACT_REBOOT_SYSTEM }) },
      .state = State::gave_up,
      .reason = "the service ended with status 3, so its monitor set out to reboot the node",
      .restarts = 0,
      .end = "ended with status 3",
      .failure = "ended with status 3" },
    { .name = "a halt that failed",
      .evidence = { .records = records({ .action = MONP_ACT_OS_HALT,
                                         .end = ended(3),
                                         .failure = ended(3),
                                         .last_event = MONP_EVTID_FAIL_HALT_SYSTEM,
                                         .exit_status = 4 }) },
      .state = State::gave_up,
      .reason = "and its monitor failed to halt the node",
      .restarts = 0,
      .end = "ended with status 3",
      .failure = "ended with status 3" },
    { .name = "a stop that led to a recovery action",
      .evidence = { .records = records({ .action = MONP_ACT_STOP_CLSDAEMON,
                                         .end = LoggedEnd{ .status = 5, .asked = true },
                                         .last_event = MONP_EVTID_ACT_STOP_DAEMON,
                                         .exit_status = 0 }) },
      .state = State::gave_up,
      .reason = "ended with status 5 when it was asked to end, so its monitor set out to stop the cluster daemons",
      .restarts = 0,
      .end = "ended with status 5" },
    { .name = "a reload of a policy that cannot be read",
      .evidence = { .records = records({ .daemon = 31, .reload_failed = true, .exit_status = 1 }) },
      .state = State::gave_up,
      .reason = "its policy could not be read again",
      .restarts = 0 },
    { .name = "a start that ended on the policy",
      .evidence = { .records = records({ .exit_status = 1 }) },
      .state = State::stopped,
      .restarts = 0,
      .failure = "its monitor ended with status 1 before it had set itself up",
      .since = EARLIER },
    { .name = "a killed monitor",
      .evidence = { .lock_file = Evidence::LockFile::left, .records = records() },
      .state = State::dead,
      .reason = "its lock file was left",
      .restarts = 0 },
    { .name = "a lock file where we may not look",
      .evidence = { .lock_file = Evidence::LockFile::hidden },
      .state = State::unknown,
      .reason = "cannot be looked for" },
    { .name = "a log that we may not read: what became of the last monitor is not known",
      .evidence = { .records = { {}, "monp.log cannot be read: Permission denied" } },
      .state = State::stopped },
};

} // namespace

TEST(Inference, JudgesEachSituation)
{
    for (const auto& row : SITUATIONS) {
        SCOPED_TRACE(row.name);
        Evidence evidence = row.evidence;
        evidence.now = NOW;
        evidence.wall_now = NOON;
        evidence.program = "/opt/x/bin/svc";
        evidence.init_seconds = 10;
        evidence.parent_init_seconds = 13;
        evidence.restart_limit = 3;
        const Verdict verdict = infer(evidence);

        EXPECT_EQ(word(row.state), word(verdict.state));
        EXPECT_THAT(verdict.reason, HasSubstr(row.reason));
        EXPECT_EQ(row.reason.empty(), verdict.reason.empty()) << verdict.reason;
        EXPECT_EQ(row.service, verdict.service);
        EXPECT_EQ(row.restarts, verdict.history.restarts);
        EXPECT_EQ(row.end, verdict.history.last_end ? verdict.history.last_end->words : "");
        EXPECT_EQ(row.failure, verdict.history.last_failure ? verdict.history.last_failure->reason : "");
        if (row.since) {
            EXPECT_EQ(row.since, verdict.since);
        }
        EXPECT_EQ(row.until, verdict.until);
        EXPECT_EQ(row.start_failed, verdict.start_failed);
    }
}

/*
 * A restart count that may be too low is not told, and the sentence says why.
 */
TEST(Inference, SaysWhyRecordsAreMissing)
{
    const struct {
        const char* name;
        Evidence evidence;
        std::string missing;
    } rows[] = {
        { .name = "complete", .evidence = { .monitor = monitor(9), .records = records() }, .missing = "" },
        { .name = "no run", .evidence = { .monitor = monitor(9), .records = { {}, "gone" } }, .missing = "gone" },
        { .name = "lost lines",
          .evidence = { .monitor = monitor(9), .records = records({ .lost = 7 }) },
          .missing = "7 of its records could not be written" },
        { .name = "a full disk",
          .evidence = { .monitor = monitor(9), .records = records(), .untold = "full" },
          .missing = "full" },
        { .name = "a full disk, and nothing that could be missing", .evidence = { .untold = "full" }, .missing = "" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const RunHistory history = infer(row.evidence).history;
        EXPECT_EQ(row.missing, history.missing);
        EXPECT_EQ(row.missing.empty() && row.evidence.records.run, history.restarts.has_value());
    }
}

/*
 * The monitor's own word first, then its command line; the policy of today is only a guess.
 */
TEST(Inference, TakesTheActionFromTheMonitor)
{
    const auto action = [](bool told, bool given, bool runs) {
        Evidence evidence = { .action = MONP_ACT_NONE, .action_given = given };
        if (runs) {
            evidence.monitor = monitor(9);
        }
        if (told) {
            evidence.records = records({ .action = MONP_ACT_OS_REBOOT });
        }
        const ActionInForce in_force = infer(evidence).action;
        return std::pair(in_force.action, in_force.in_doubt);
    };

    EXPECT_EQ(std::pair(int(MONP_ACT_OS_REBOOT), false), action(true, false, true));
    EXPECT_EQ(std::pair(int(MONP_ACT_NONE), false), action(false, true, true));
    EXPECT_EQ(std::pair(int(MONP_ACT_NONE), true), action(false, false, true));
    EXPECT_EQ(std::pair(int(MONP_ACT_NONE), false), action(false, false, false)) << "nobody has read another one";
}
