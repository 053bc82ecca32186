/*
 * The sample service, watched by a parent that plays the monitor: it counts the reports, asks for the end and looks at
 * the wait status.
 */
#include "demo_support.h"

#include <gtest/gtest.h>

#include <atomic>

#include <sys/prctl.h>

using namespace demo;

namespace {

const std::string PROGRAM = BIN / "sample_service";
std::atomic<int> greports;

class Service : public testing::Test {
protected:
    void SetUp() override
    {
        greports = 0;
        std::signal(SIGUSR1, [](int) { greports++; });
        fs::create_directory(path("dump"));
    }
    void TearDown() override
    {
        if (pid > 0) {
            send(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
        std::signal(SIGUSR1, SIG_DFL);
    }

    fs::path path(const std::string& name) const
    {
        return temp.path / name;
    }
    void start(const std::string& commands, bool with_coredir = true)
    {
        const std::string options =
            " --log log --ctl ctl --pidfile pid " + std::string(with_coredir ? "--coredir dump " : "");
        pid = spawn(split(PROGRAM + options + commands), temp.path);
    }
    void start_and_await_report(const std::string& commands, bool with_coredir = true)
    {
        start(commands, with_coredir);
        ASSERT_TRUE(wait_until([] { return greports > 0; }));
    }
    void tell(const std::string& line) const
    {
        std::ofstream(path("ctl")) << line << std::endl;
    }
    bool logged(const std::string& text) const
    {
        return wait_until([&] { return read_file(path("log")).find(text) != std::string::npos; });
    }
    int end()
    {
        const int status = wait_for_end(pid);
        pid = 0;
        return status;
    }
    int ask_to_end()
    {
        send(pid, SIGUSR1);
        return end();
    }

    TempDir temp;
    pid_t pid = 0;
};

TEST_F(Service, ReportsOnceAndEndsInOrder)
{
    start_and_await_report("");
    ASSERT_TRUE(logged("reported."));
    EXPECT_EQ(std::to_string(pid) + "\n", read_file(path("pid")));
    EXPECT_EQ(0, ask_to_end());
    EXPECT_EQ(1, greports);
    EXPECT_TRUE(logged("ends. (status=0)"));
    EXPECT_FALSE(fs::exists(path("pid")));
    EXPECT_TRUE(fs::is_fifo(path("ctl")));
    EXPECT_EQ(fs::perms(0640), fs::status(path("log")).permissions());
}

struct Death {
    const char* command;
    int status; /* as waitpid gives it; the core flag is looked at by itself */
    bool core;
};

void PrintTo(const Death& death, std::ostream* out)
{
    *out << death.command;
}

class WayToDie : public Service, public testing::WithParamInterface<Death> {
protected:
    void expect_end()
    {
        const int status = end();
        EXPECT_EQ(GetParam().status, status & ~0x80);
        EXPECT_EQ(GetParam().core, WIFSIGNALED(status) && WCOREDUMP(status));
        EXPECT_EQ(GetParam().core, !fs::is_empty(path("dump")));
    }
    void SetUp() override
    {
        Service::SetUp();
        if (GetParam().core && read_file("/proc/sys/kernel/core_pattern") != "core\n") {
            GTEST_SKIP() << "core dumps of this machine go elsewhere";
        }
    }
};

TEST_P(WayToDie, ByArgument)
{
    start(std::string("report ") + GetParam().command);
    expect_end();
    EXPECT_EQ(1, greports);
}

TEST_P(WayToDie, ByControlLine)
{
    start_and_await_report("");
    tell(GetParam().command);
    expect_end();
}

INSTANTIATE_TEST_SUITE_P(Ends, WayToDie,
                         testing::Values(Death{ "exit 0", 0, false }, Death{ "exit 255", 255 << 8, false },
                                         Death{ "signal KILL", SIGKILL, false },
                                         Death{ "signal SIGSEGV", SIGSEGV, false },
                                         Death{ "signal 13", SIGPIPE, false }, // ignored by the parent
                                         Death{ "signal USR1", SIGUSR1, false }, Death{ "core", SIGABRT, true },
                                         Death{ "sleep 1 exit 3", 3 << 8, false }));

TEST_F(Service, AnswersTheEndRequestAsTold)
{
    start_and_await_report("end 7 report");
    EXPECT_EQ(7 << 8, ask_to_end());

    greports = 0;
    start_and_await_report("end signal report");
    EXPECT_EQ(SIGUSR1, ask_to_end());

    greports = 0;
    start_and_await_report("end ignored report");
    send(pid, SIGUSR1);
    EXPECT_TRUE(logged("end request ignored."));
    send(pid, SIGKILL);
    EXPECT_EQ(SIGKILL, end());
}

TEST_F(Service, SlowReportComesAfterItsTimeOnly)
{
    const auto begin = std::chrono::steady_clock::now();
    start_and_await_report("sleep 1 report");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}

TEST_F(Service, AnswersTheEndRequestBeforeAnyReport)
{
    for (const char* commands : { "silent", "sleep 3600 report" }) {
        start(commands);
        ASSERT_TRUE(wait_until([&] { return fs::exists(path("pid")); }));
        EXPECT_EQ(0, ask_to_end());
        EXPECT_EQ(0, greports);
    }
}

TEST_F(Service, ControlLineTakesThePlaceOfWhatIsLeft)
{
    start_and_await_report("report sleep 3600 exit 1");
    tell("sleep 0 exit 4");
    EXPECT_EQ(4 << 8, end());
}

TEST_F(Service, StopsAndGoesOn)
{
    int status = 0;
    start("report stop");
    ASSERT_TRUE(wait_until([&] { return waitpid(pid, &status, WUNTRACED | WNOHANG) == pid; }));
    EXPECT_TRUE(WIFSTOPPED(status));
    send(pid, SIGCONT);
    EXPECT_TRUE(logged("goes on."));
    EXPECT_EQ(0, ask_to_end());
}

TEST_F(Service, DaemonLeavesACopyThatAnswersTheEndRequest)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    start_and_await_report("report daemon");
    EXPECT_EQ(0, end());
    ASSERT_TRUE(logged("goes on as a daemon."));
    const pid_t copy = std::stoi(read_file(path("pid")));
    ASSERT_EQ(0, waitpid(copy, nullptr, WNOHANG)); // our child now, and running
    pid = copy;
    EXPECT_EQ(0, ask_to_end());
    EXPECT_EQ(1, greports);
}

TEST_F(Service, DoesNotReportToAParentThatWouldDieOfIt)
{
    const pid_t parent = fork();
    if (parent == 0) {
        std::signal(SIGUSR1, SIG_DFL);
        start("report exit 5");
        _exit(WEXITSTATUS(wait_for_end(pid)));
    }
    EXPECT_EQ(5 << 8, wait_for_end(parent));
    EXPECT_TRUE(logged("not reported"));
}

TEST_F(Service, RefusesControlLinesItDoesNotUnderstandAndGoesOn)
{
    start_and_await_report("", false);
    tell("exit 256");
    EXPECT_TRUE(logged("refused: 'exit' needs STATUS, not '256'"));
    tell("core");
    EXPECT_TRUE(logged("refused: 'core' needs --coredir"));
    tell(std::string(2000, ' ') + "exit 9");
    EXPECT_TRUE(logged("refused: longer than 1024 bytes"));
    EXPECT_EQ(0, ask_to_end());
}

TEST_F(Service, RefusesAControlFileThatIsNoFifo)
{
    write_file(path("ctl"), "exit 3\n");
    const Outcome outcome = run({ PROGRAM, "--ctl", "ctl" }, temp.path);
    EXPECT_EQ(1, outcome.status);
    EXPECT_NE(std::string::npos, outcome.text.find("--ctl 'ctl': not a FIFO")) << outcome.text;
}

TEST_F(Service, NamesWrongArgumentsAndEndsWithTwo)
{
    const std::pair<const char*, const char*> mistakes[] = {
        { "fly", "unknown command 'fly'" },
        { "--fly x", "unknown option '--fly'" },
        { "--log", "option '--log' needs a path" },
        { "report exit", "'exit' needs STATUS, not ''" },
        { "exit 256", "not '256'" },
        { "exit -1", "not '-1'" },
        { "sleep 1x", "not '1x'" },
        { "signal CHLD", "not 'CHLD'" },
        { "signal 0", "not '0'" },
        { "end maybe", "'end' needs HOW, not 'maybe'" },
        { "core", "'core' needs --coredir" },
    };
    for (const auto& [arguments, message] : mistakes) {
        const Outcome outcome = run(split(PROGRAM + " " + arguments), "/");
        EXPECT_EQ(2, outcome.status) << arguments;
        EXPECT_NE(std::string::npos, outcome.text.find(message)) << outcome.text;
    }
}

} // namespace
