/*
 * The sample service, watched by a parent that plays the monitor: it counts the reports, asks for the end and looks at
 * the wait status.
 */
#include "demo_support.h"

static volatile sig_atomic_t greports;

class Service : public Demo {
protected:
    void start(const std::string& commands, const std::string& coredir = "--coredir dump ")
    {
        greports = 0;
        std::signal(SIGUSR1, [](int) { greports = greports + 1; });
        fs::create_directory(home / "dump");
        pid = spawn("exec built/sample_service --log log --ctl ctl --pidfile pid " + coredir + commands);
    }
    bool comes(const std::string& file, const std::string& text) const
    {
        const auto found = [&] { return read(file).find(text) != std::string::npos; };
        for (int i = 0; i < 1000 && !found(); i++) {
            usleep(10000);
        }
        return found();
    }
    bool started() const
    {
        return comes("pid", std::to_string(pid) + "\n");
    }
    void tell(const std::string& line) const
    {
        std::ofstream(home / "ctl") << line << std::endl;
    }
    pid_t pid = 0;
};

TEST_F(Service, EndsInEachWayByArgumentAndByControlLine)
{
    const bool dumps_here = read("/proc/sys/kernel/core_pattern") == "core\n";
    const int mask = dumps_here ? -1 : ~WCOREFLAG;
    const std::pair<std::string, int> ends[] = {
        { "exit 255", 255 << 8 },      { "sleep 1 exit 3", 3 << 8 },    { "signal KILL", SIGKILL },
        { "signal SIGSEGV", SIGSEGV }, { "signal 13", SIGPIPE }, // ignored by the parent
        { "signal USR1", SIGUSR1 },    { "core", SIGABRT | WCOREFLAG },
    };
    for (const auto& [command, status] : ends) {
        for (const bool told : { false, true }) {
            start("report " + (told ? "sleep 3600 exit 1" : command));
            if (told) {
                ASSERT_TRUE(started());
                tell(command); // takes the place of what is left to do
            }
            EXPECT_EQ(status & mask, wait_for_end(pid) & mask) << command;
            EXPECT_EQ(dumps_here && WCOREDUMP(status), fs::remove_all(home / "dump") > 1) << command;
            EXPECT_EQ(1, greports) << command;
        }
    }
}

TEST_F(Service, AnswersTheEndRequestAsTold)
{
    const std::tuple<const char*, int, int> rules[] = {
        { "", 1, 0 },
        { "sleep 3600 report", 0, 0 },
        { "end 7 report", 1, 7 << 8 },
        { "end signal silent", 0, SIGUSR1 },
    };
    for (const auto& [commands, reports, status] : rules) {
        start(commands);
        ASSERT_TRUE(started());
        EXPECT_EQ(fs::perms(0644), fs::status(home / "pid").permissions());
        send(pid, SIGUSR1);
        EXPECT_EQ(status, wait_for_end(pid)) << commands;
        EXPECT_EQ(reports, greports) << commands;
        EXPECT_EQ(WIFSIGNALED(status), fs::exists(home / "pid")) << commands;
    }
}

TEST_F(Service, GoesOnAfterWhatItRefusesOrIgnoresAndAfterAStop)
{
    start("end ignored", "");
    ASSERT_TRUE(started());
    tell("exit 256");
    EXPECT_TRUE(comes("log", "refused: 'exit' needs STATUS, not '256'"));
    tell("core");
    EXPECT_TRUE(comes("log", "refused: 'core' needs --coredir"));
    tell(std::string(2000, ' ') + "exit 9");
    EXPECT_TRUE(comes("log", "refused: longer than 1024 bytes"));
    send(pid, SIGUSR1);
    EXPECT_TRUE(comes("log", "end request ignored."));
    tell("stop");
    EXPECT_TRUE(WIFSTOPPED(wait_for_end(pid, WUNTRACED)));
    send(pid, SIGCONT);
    tell("exit 5");
    EXPECT_EQ(5 << 8, wait_for_end(pid));
}

TEST_F(Service, DoesNotReportToAParentThatWouldDieOfIt)
{
    sh("exec timeout 30 built/sample_service report exit 5", 5);
}

TEST_F(Service, NamesWhatItCannotStartWith)
{
    const std::tuple<std::string, int, const char*> mistakes[] = {
        { "--fly x", 2, "unknown option '--fly'" },
        { "report fly", 2, "unknown command 'fly'" },
        { "sleep 1x", 2, "not '1x'" },
        { "signal CHLD", 2, "not 'CHLD'" },
        { "--ctl output", 1, "--ctl 'output': not a FIFO" },
    };
    for (const auto& [arguments, status, message] : mistakes) {
        sh("built/sample_service " + arguments, status, message);
    }
}
