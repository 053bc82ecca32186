/*
 * Whose a line of the log is, and what a run of a monitor is told to have gone through.
 */
#include "machine/log_history.h"

#include "monp.h"
#include "temporary.h"

#include <cerrno>
#include <fmt/format.h>
#include <fstream>
#include <gmock/gmock.h>

using namespace monpctl;
using testing::HasSubstr;

namespace {

/* Runs on with each line, unless a test sets the clock. */
int gminute = 0;

std::string line(pid_t pid, const char* level, const char* function, const std::string& text)
{
    gminute++;
    return fmt::format("2026-11-22T{:02}:{:02}:00.000000+0000 {} {}/{} monp {} x.cpp:1 {}\n", gminute / 60 % 24,
                       gminute % 60, level, pid, pid, function, text);
}

/* The first process: as long as it reads the policy, the level is info. */
std::string first(pid_t pid, const std::string& type = "dusko", int action = 2, int limit = 3)
{
    return line(pid, "info", "main", "****** Start Process Monitor ******") +
           line(pid, "info", "monp_getconfig", fmt::format("start - (type={})", type)) +
           line(pid, "info", "monp_readrecords", fmt::format("action  -> {}", action)) +
           line(pid, "info", "monp_readrecords", fmt::format("restart -> {}", limit));
}

std::string daemon(pid_t pid, const std::string& type = "dusko")
{
    return line(pid, "info", "monp_startup_environment", fmt::format("set MALLOC_CHECK_ -> 0 (type={})", type));
}

std::string end(pid_t pid, int status = 0)
{
    return line(pid, "info", "main", fmt::format("end - (type=D ret={})", status));
}

std::string failure(pid_t pid, int status)
{
    return line(pid, "error", "monp_unexpectedend",
                fmt::format("process D exited. recover is 2. (stat={} path=/x/bin/svc)", status)) +
           line(pid, "event", "monp_unexpectedend",
                fmt::format("[2 FAIL_MON] The service D could not be started or ended by itself (status {}).", status));
}

std::string restart(pid_t pid, int status = 3)
{
    return failure(pid, status) +
           line(
               pid, "event", "monp_restart",
               fmt::format("[3 ACT_RESTART] The service D is about to be restarted; its last run ended with status {}.",
                           status));
}

std::string init_failure(pid_t pid, int status)
{
    return line(pid, "error", "monp_step_start", fmt::format("initialize error. (type=D stat={} path=/x)", status)) +
           line(pid, "event", "monp_step_start",
                fmt::format("[1 FAIL_INIT] The service D did not report its initialisation (status {}).", status));
}

/*
 * A log with a text, read to its end.
 */
struct Log {
    Temporary directory;
    LogHistory history{ directory.path / "monp.log" };

    explicit Log(const std::string& text)
    {
        add(text);
    }
    void add(const std::string& text)
    {
        std::ofstream(directory.path / "monp.log", std::ios::app) << text;
        history.read_on();
    }
};

/* Restarts of the monitor of the type dusko that is process 31; -1 where nothing is claimed. */
int restarts(const std::string& text)
{
    const auto records = Log(text).history.of_monitor("dusko", 31, 0);

    EXPECT_EQ(records.run.has_value(), records.missing.empty());
    return records.run ? records.run->restarts : -1;
}

} // namespace

TEST(LogHistory, TellsWhoseALineIs)
{
    const struct {
        const char* name;
        std::string text;
        int restarts;
    } rows[] = {
        { "one run", first(30) + daemon(31) + restart(31) + restart(31), 2 },
        { "no line of the daemon", first(30), 0 },
        { "below the level info", first(30) + restart(31), 1 },
        { "an earlier run of the same number", first(20) + daemon(31) + restart(31) + end(31) + first(30) + daemon(31),
          0 },
        { "one that did not tell its end", first(20) + daemon(31) + restart(31) + first(30) + daemon(31) + restart(31),
          1 },
        { "an earlier run of another type",
          first(20, "lenk") + daemon(31, "lenk") + restart(31) + first(30) + daemon(31) + restart(31), 1 },
        { "the number of an earlier first process", first(31) + daemon(32) + first(30) + daemon(31) + restart(31), 1 },
        { "another type in between",
          first(30) + first(40, "lenk") + daemon(41, "lenk") + daemon(31) + restart(41) + restart(31) + restart(41),
          1 },
        { "a start that failed in between", first(30) + daemon(31) + restart(31) + first(50) + end(50, 1) + restart(31),
          2 },
        { "a second monitor, above the level info",
          first(30) + daemon(31) + restart(31) + first(50) + daemon(51) + restart(51) + restart(31), 2 },
        { "a second start below the level info: the first lines may be those of a stranger",
          first(30) + restart(31) + first(50) + restart(31), -1 },
        { "a failed second start below the level info", first(30) + restart(31) + first(50) + end(50, 1) + restart(31),
          2 },
        { "a log without the start", restart(31), -1 },
        { "a log with a start of another type only", first(30, "lenk") + restart(31), -1 },
        { "a log that is empty", "", -1 },
        { "lines that are none", "one\n\n2026 error\n" + first(30) + "\1\2\3\n" + daemon(31) + restart(31), 1 },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.restarts, restarts(row.text));
    }
}

/*
 * The clock is set forward by years and back by hours, between any two lines.
 */
TEST(LogHistory, DoesNotCareForTheClock)
{
    for (const int step : { 600, -600 }) {
        gminute = 720;
        std::string text = first(30) + daemon(31) + restart(31);
        gminute += step;
        text += restart(31) + end(31);
        gminute -= step;
        text += first(40) + daemon(31) + restart(31);
        EXPECT_EQ(1, restarts(text)) << step;
    }
    gminute = 0;
    EXPECT_EQ(1, restarts("2036-01-01T00:00:00.000000+0000 info 30/30 monp main x.cpp:1 ****** Start Process Monitor "
                          "******\n2036-01-01T00:00:00.000000+0000 info 30/30 monp monp_getconfig x.cpp:1 start - "
                          "(type=dusko)\n" +
                          daemon(31) + restart(31)));
}

TEST(LogHistory, KnowsTheFirstProcessBeforeThereIsADaemon)
{
    const Log log(first(30) + restart(31));

    EXPECT_EQ(2, log.history.of_monitor("dusko", 30, 0).run->action);
    EXPECT_EQ(2, log.history.of_monitor("dusko", 99, 30).run->action);
}

/*
 * The monitor's own settings, and what it says of an end.
 */
TEST(LogHistory, TellsHowTheServiceEnded)
{
    const std::string begin = first(30, "dusko", 5, 7) + daemon(31);
    const std::string start =
        line(31, "info", "monp_create_process_svc", "start - (type=D path=/x argv=1 wait=0 pid=1 stat=1 std=0");
    const std::string sent = line(31, "info", "monp_child_signal", "throw exit signal. (type=D pid=40 sig=10)");
    const std::string killed = line(31, "info", "monp_child_signal", "throw exit signal. (type=D pid=40 sig=9)");
    const auto run = [&](const std::string& text) { return *Log(begin + text).history.of_monitor("dusko", 31, 0).run; };

    EXPECT_EQ(5, run("").action);
    EXPECT_EQ(7, run("").restart_limit);
    EXPECT_FALSE(run("").start);
    EXPECT_FALSE(run(start).start->reported);
    EXPECT_TRUE(run(start + line(31, "trace", "monp_sighandler1", "catch signal. (type=D sig=10)")).start->reported);
    EXPECT_EQ(40,
              run(start + line(31, "info", "monp_getservice", "service process is found. (pid=40)")).start->adopted);
    EXPECT_TRUE(run(start + sent).start->exit_sent);
    EXPECT_FALSE(run(start + sent).start->killed);
    EXPECT_FALSE(run(start + sent + start).start->exit_sent) << "the next start is a new one";

    const std::string signal =
        line(31, "error", "monp_child_decode", "process exited for term signal. (type=D pid=40 stat=9 sig=9)");
    EXPECT_EQ(9, run(start + signal + failure(31, 101)).end->signal);
    EXPECT_EQ(0, run(start + signal + failure(31, 101) + start + failure(31, 3)).end->signal);
    EXPECT_EQ(0, run(signal + restart(31, 101) + failure(31, 3)).end->signal) << "below the level info";
    EXPECT_EQ(3, run(start + failure(31, 3)).failure->status);
    EXPECT_EQ(-1, run(start + failure(31, -1)).end->status);
    EXPECT_FALSE(run(start + failure(31, 3)).end->before);
    EXPECT_TRUE(run(start + init_failure(31, 3)).end->before);

    const auto asked = run(start + sent + killed +
                           line(31, "info", "monp_requestedend", "monitor term. (type=D stat=0 path=/x act=2)"));
    EXPECT_TRUE(asked.end->asked && asked.end->killed);
    EXPECT_FALSE(asked.failure);
    EXPECT_TRUE(run(line(31, "info", "monp_restart", "recovery reached maximum. (type=D time=4 max=3)")).limit_reached);
    EXPECT_TRUE(run(line(31, "error", "monp_reload", "monp_getconfig() failed. (type=D ret=4)")).reload_failed);
    EXPECT_EQ(7, run(line(31, "warning", "-", "7 records lost.")).lost);
}

/*
 * A program that is not there is refused by the monitor, one that is not a program by the child, in its only line.
 */
TEST(LogHistory, TellsWhyAProgramCouldNotBeStarted)
{
    const std::string begin = first(30) + daemon(31);
    const auto refused = [&](const std::string& text) {
        const auto run = *Log(begin + text + init_failure(31, 4)).history.of_monitor("dusko", 31, 0).run;
        EXPECT_EQ(run.failure->refused == 0, run.end.has_value()) << "nothing ended that never ran";
        return run.failure->refused;
    };

    EXPECT_EQ(ENOENT, refused(line(31, "error", "monp_child_access", "access() failed. (type=D errno=2)")));
    EXPECT_EQ(EAGAIN,
              refused(line(31, "error", "monp_child_fork", "fork() failed. (type=D errno=11)") + failure(31, -1)));
    EXPECT_EQ(ENOEXEC, refused(line(40, "error", "monp_child_fork", "execv() failed. (type=D path=/x errno=8)")));
    EXPECT_EQ(0, refused(line(40, "error", "monp_child_fork", "execv() failed. (type=other path=/x errno=8)")));
    EXPECT_EQ(0, refused(""));
}

TEST(LogHistory, TellsTheLastRunOfATypeWithoutAMonitor)
{
    const std::string gave_up = restart(31) + failure(31, 3);
    const auto last = [](const std::string& text, const char* name = "D") {
        return Log(text).history.last_of("dusko", name).run;
    };

    EXPECT_FALSE(last(""));
    EXPECT_EQ(MONP_EVTID_FAIL_MON, last(first(30) + daemon(31) + gave_up + end(31))->last_event);
    EXPECT_EQ(MONP_EVTID_FAIL_MON, last(first(30) + gave_up)->last_event) << "below the level info";
    EXPECT_EQ(0, last(first(30) + gave_up, "E")->last_event) << "another service's";
    EXPECT_EQ(0, last(first(30) + daemon(31) + gave_up + end(31) + first(40) + daemon(41) + end(41))->last_event);
    EXPECT_EQ(1, last(first(30) + daemon(31) + gave_up + end(31) + first(40) + end(40, 1))->exit_status);
    EXPECT_EQ(0, last(first(30) + daemon(31) + first(40, "lenk") + daemon(41, "lenk") + restart(41))->restarts);
}

TEST(LogHistory, SaysWhyThereAreNone)
{
    Temporary directory;

    std::filesystem::create_directory(directory.path / "monp.log");
    LogHistory none(directory.path / "none.log");
    LogHistory unreadable(directory.path / "monp.log");
    none.read_on();
    EXPECT_THAT(none.of_monitor("dusko", 31, 0).missing, HasSubstr("none.log cannot be read: No such file"));
    EXPECT_EQ("", none.last_of("dusko", "D").missing) << "no monitor has ever run";
    unreadable.read_on();
    EXPECT_THAT(unreadable.last_of("dusko", "D").missing, HasSubstr("monp.log cannot be read"));

    EXPECT_EQ("", log_trouble(directory.path / "monp.log"));
    EXPECT_EQ("", log_trouble(directory.path / "log/monp.log")) << "the directory is made by who writes";
    std::ofstream(directory.path / "file") << "";
    EXPECT_THAT(log_trouble(directory.path / "file/monp.log"), HasSubstr("file is not a directory"));
    EXPECT_THAT(log_trouble("/proc/monp.log"), HasSubstr("/proc"));
}

/*
 * Read on with each look, over a rotation.
 */
TEST(LogHistory, ReadsOn)
{
    Log log(first(30) + daemon(31) + restart(31));

    EXPECT_EQ(1, log.history.of_monitor("dusko", 31, 0).run->restarts);
    std::filesystem::rename(log.directory.path / "monp.log", log.directory.path / "monp.log.1");
    log.add(restart(31));
    log.history.read_on(); /* a rotated file gets one more look */
    EXPECT_EQ(2, log.history.of_monitor("dusko", 31, 0).run->restarts);
}
