// Whole runs of the monitor under the scripted clock: start-up, the supervision loop, recovery and the exit path.
#include "monp_run.h"
#include "stage.h"

struct Run : Monitor {
    Run()
    {
        xml.fill("dusko");
    }

    static void set(const std::string& key, int value)
    {
        xml.values["/root/monp/service/dusko/" + key] = value;
    }

    // Services that report at once and end after a second.
    static void services(size_t number, int status)
    {
        sys.next.assign(number, Process{ .runs = 1, .status = status, .reports = 0 });
    }

    // What the loop decides, from its first step to the exit path.
    static std::string course()
    {
        std::string all = journal.but("info: error: event: kill exit pthread_create sleep unlink",
                                      { "start - ", "end - ", "service process", "getservice", "process exited",
                                        "type=pelkant", "-> ", "sleep 1" });
        const std::string begin = "info: path=/opt/x/bin/svc bin=svc; ";
        size_t found = all.find(begin);
        return found == std::string::npos ? all : all.substr(found + begin.size());
    }

    // Runs a monitor whose failure has to show on standard error.
    static void complains(const std::string& arguments, int status, const std::string& text)
    {
        testing::internal::CaptureStderr();
        EXPECT_EQ(fmt("exit %d", status), run_monitor(arguments));
        EXPECT_EQ(0u, testing::internal::GetCapturedStderr().find("monp : " + text + " line="));
    }
};

static const std::string WAITING = "kill 900 10; info: waiting for a service start request. (type=dusko); ";
static const std::string END = "unlink /lock_trn; exit 0";

static std::string exited_by_itself(int action, int status)
{
    return fmt("error: process trn exited. recover is %d. (stat=%d path=/opt/x/bin/svc); event: 2 trn %d; "
               "pthread_create detached; ",
               action, status, status);
}

// ---- start-up and exit path ----

TEST_F(Run, StartsUpAndEndsInOrder)
{
    sys.signal_at(1, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko -n"));
    EXPECT_EQ("log_init monp 0 5000000 0; info: ****** Start Process Monitor ******; info: curdir -> /start; "
              "info: type    -> dusko; info: action  -> 1; info: param   -> -f a; info: restart -> 3; "
              "info: wait    -> 5; chdir /opt/x//bin; log_term; log_init monp 4 70000 0; fork; setsid; "
              "chdir /opt/x/bin/; info: set MALLOC_CHECK_ -> 3 (type=dusko); setenv MALLOC_CHECK_=3 1; "
              "info: set PATH -> /bin (type=dusko); setenv PATH=/bin 1; info: set LANG -> C (type=dusko); "
              "setenv LANG=C 1; info: arg0 -> -f (type=trn); info: arg1 -> a (type=trn); "
              "info: path=/opt/x/bin/svc bin=svc; kill 900 10; "
              "info: waiting for a service start request. (type=dusko); access /lock_trn 0; unlink /lock_trn; "
              "info: end - (type=trn ret=0); log_term; exit 0",
              journal.but("log_init log_term info: error: warning: chdir fork setsid setenv access unlink exit kill",
                          { "info: start - ", "(ret=0)", "dusko ret=0" }));
    EXPECT_EQ(1u, journal.count("trace: start - (attr="));
}

TEST_F(Run, IsForRootOnly)
{
    sys.uid = 1000;
    complains("--dusko", 1, "permission denied. (ret=1000");
    EXPECT_EQ("info: ****** Start Process Monitor ******; error: permission denied. (ret=1000); "
              "info: end - (type= ret=1); log_term; exit 1",
              journal.but("", { "log_init" }));
}

TEST_F(Run, EndsAtARefusedCommandLine)
{
    complains("-x", 2, "invalid parameter. (ret=2");
    EXPECT_EQ("error: unknown option. (val=-x); error: monp_getopt() failed. (ret=2); exit 2",
              journal.only("error: fork access unlink xmllib_init exit"));
    journal.fails["log_init"] = 1;
    complains("-x", 2, "invalid parameter. (ret=2");
    EXPECT_EQ(0u, journal.count("log_term"));
}

TEST_F(Run, GoesOnWithoutALogThatCannotBeReopened)
{
    journal.fails["log_init monp 4 70000 0"] = 1;
    sys.signal_at(1, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko -n"));
    EXPECT_EQ("chdir /opt/x//bin; log_term; log_init monp 4 70000 0; exit 0",
              journal.but("info: chdir log_init log_term exit", { " - (", "-> ", "** ", "5000000", "/bin/" }));
}

TEST_F(Run, EndsAtAFailedLoadWithoutALockFile)
{
    xml.values.erase("/root/dusko/path");
    complains("--dusko", 1, "monp_getconfig() failed. (ret=4");
    EXPECT_EQ(1u, journal.count("error: monp_getconfig() failed. (type=dusko ret=4)"));
    EXPECT_EQ("exit 1", journal.only("fork access unlink exit"));
}

TEST_F(Run, AFailedForkOfTheDaemonEndsWithoutTheExitPath)
{
    journal.fails["fork"] = EAGAIN;
    EXPECT_EQ("exit 1", run_monitor("--dusko"));
    EXPECT_EQ("", journal.only("access unlink kill"));
}

TEST_F(Run, FailuresOfStartUpAndExitAreTolerated)
{
    journal.fails = { { "getcwd", ERANGE }, { "chdir", ENOENT }, { "setenv", ENOMEM }, { "access", ENOENT } };
    sys.signal_at(1, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko -n"));
    EXPECT_EQ("error: getcwd() failed. (errno=34); error: chdir() failed. (path=/opt/x//bin errno=2); "
              "error: setenv() failed. (type=dusko env=MALLOC_CHECK_ alchk=3 errno=12); "
              "error: setenv() failed. (type=dusko env=PATH path=/bin errno=12); "
              "error: setenv() failed. (type=dusko env=LANG path=C errno=12); "
              "error: access() failed. (type=trn path=/lock_trn err=2); exit 0",
              journal.only("error: unlink exit"));
    journal.fails = { { "unlink", EPERM } };
    sys.signal_at(1, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko -n"));
    EXPECT_EQ("error: unlink() failed. (type=trn path=/lock_trn err=1)", journal.only("error:"));
}

TEST_F(Run, EmptySettingsLeaveTheEnvironment)
{
    xml.values["/root/all/env/alloc"] = xml.values["/root/all/env/path"] = xml.values["/root/all/env/lang"] = "";
    sys.signal_at(1, SIGUSR2);
    run_monitor("--dusko -n");
    EXPECT_EQ("info: set MALLOC_CHECK_ ->  (type=dusko); setenv MALLOC_CHECK_= 1; info: set PATH ->  (type=dusko); "
              "info: set LANG ->  (type=dusko)",
              journal.but("info: setenv", { "- (", ": a", ": p", ": r", ": w", ": t", ": c", ": *" }));
}

TEST_F(Run, LockFilesOfTheTypes)
{
    for (auto [type, path] : { std::pair{ "pm", "/lock" },
                               { "event", "/lock_evt" },
                               { "dusko", "/lock_trn" },
                               { "pelkant", "/lock_md" },
                               { "sorvin", "/lock_sorvin" },
                               { "tamzile", "/lock_tamzsync" },
                               { "goru", "/lock_ib" },
                               { "lenk", "/lock_api" },
                               { "nm", "/lock_nm" },
                               { "Pm", "" },
                               { "cl", "" } }) {
        put(gmonpparam.type, type);
        put(gmonppol.lkfpath, "/lock");
        monp_startup_lockfile();
        EXPECT_STREQ(path, gmonppol.lkfpath);
        put(gmonppol.lkfpath, "");
        monp_startup_lockfile();
        EXPECT_STREQ("", gmonppol.lkfpath);
    }
    put(gmonpparam.type, "nm");
    for (size_t length : { 1020u, 1021u }) {
        put(gmonppol.lkfpath, x(length));
        monp_startup_lockfile();
        EXPECT_EQ(length == 1020 ? x(1020) + "_nm" : "", gmonppol.lkfpath);
        EXPECT_EQ(length - 1020, journal.count("error:"));
    }
}

TEST_F(Run, ThePathAndTheArgumentsOfTheServiceAreBounded)
{
    journal.fails["access  1"] = ENOENT;
    for (size_t size : { 30u, 31u }) {
        std::string words;
        for (size_t i = 0; i < size; i++) {
            words += " w";
        }
        xml.values["/root/monp/service/dusko/param"] = words;
        xml.values["/root/dusko/path"] = x(size + 1023 - 30 - 7 - 4) + "/svc"; // fits exactly, then not
        services(1, 0);
        sys.signal_at(3, SIGUSR2);
        EXPECT_EQ(size == 30 ? "exit 0" : "exit 4", run_monitor("--dusko"));
        EXPECT_EQ(size - 30, journal.count("warning: argument reached the maximum. (type=trn max=30 curnum=30)"));
        EXPECT_EQ(size == 30 ? "execv /opt/x/" + x(1023 - 11) + "/svc svc" + words : "", journal.only("execv"));
        sys.events.clear();
    }
}

// ---- the loop ----

TEST_F(Run, ActionNoneEndsWithTheFirstEnd)
{
    services(1, exited(7));
    EXPECT_EQ("exit 0", run_monitor("--dusko"));
    EXPECT_EQ("kill 900 10; " + exited_by_itself(1, 7) + "info: recovery is none. (type=trn pact=1 fact=1); " + END,
              course());
    EXPECT_EQ("execv /opt/x/bin/svc svc -f a", journal.only("execv"));
    EXPECT_NE(std::string::npos, journal.only("info:").find("wait=5 pid=0x"));
    services(1, 0);
    sys.threadentry(); // the collection
    EXPECT_EQ(1u, journal.count("info: path=/opt/x/sbin/elog bin=elog"));
}

TEST_F(Run, RestartsAsOftenAsAllowed)
{
    set("action", MONP_ACT_RESTART);
    set("restarttime", 2);
    services(3, exited(1));
    EXPECT_EQ("exit 0", run_monitor("--dusko"));
    EXPECT_EQ("kill 900 10; " + exited_by_itself(2, 1) +
                  "kill 4711 0; info: process ended. (type=trn pid=4711 errno=3); event: 3 trn 1; " +
                  exited_by_itself(2, 1) +
                  "kill 4712 0; info: process ended. (type=trn pid=4712 errno=3); event: 3 trn 1; " +
                  exited_by_itself(2, 1) + "info: recovery reached maximum. (type=trn time=3 max=2); " + END,
              course());
    for (int unlimited : { 0, -2 }) {
        set("restarttime", unlimited);
        services(6, exited(1));
        sys.next.push_back({ .reports = 0, .ack = exited(0) });
        sys.signal_at(10, SIGUSR2);
        EXPECT_EQ("exit 0", run_monitor("--dusko"));
        EXPECT_EQ(7u, journal.count("execv"));
        EXPECT_EQ(6u, journal.count("event: 3 trn 1"));
    }
}

// A service whose wait failed may still be there.
TEST_F(Run, TheNextStartWaitsUntilTheOldProcessIsGone)
{
    set("action", MONP_ACT_RESTART);
    sys.next = { { .reports = 0 }, { .reports = 0, .ack = exited(0) } };
    sys.at(2, [] { journal.fails["waitpid"] = EINVAL; });
    sys.at(6, [] { EXPECT_EQ(1u, journal.count("execv")); });
    sys.at(7, [] {
        journal.fails.clear();
        sys.processes.clear();
    });
    sys.signal_at(9, SIGUSR2);
    EXPECT_EQ("exit 4", run_monitor("--dusko"));
    EXPECT_EQ(2u, journal.count("execv"));
    EXPECT_EQ(1u, journal.count("error: start of processing failed. (type=trn ret=4 path=/opt/x/bin/svc)"));
    EXPECT_EQ(6u, journal.count("kill 4711 0"));
}

TEST_F(Run, AnUnknownActionEndsWithFour)
{
    set("action", 7);
    services(1, exited(1));
    EXPECT_EQ("exit 4", run_monitor("--dusko"));
    EXPECT_EQ("kill 900 10; " + exited_by_itself(7, 1) +
                  "error: unknown recovery. (type=trn pact=7 fact=0); unlink /lock_trn; exit 4",
              course());
}

TEST_F(Run, ARecoveryActionEndsTheMonitor)
{
    for (auto [action, section] :
         { std::pair{ MONP_ACT_STOP_CLSDAEMON, "cl" }, { MONP_ACT_OS_HALT, "down" }, { MONP_ACT_OS_REBOOT, "down" } }) {
        const std::string root = std::string("/root/") + section;
        set("action", action);
        xml.values[root + "/type"] = xml.values[root + "/path"] = "cmd";
        services(2, 0);
        journal.fails["pthread_create"] = EAGAIN;
        EXPECT_EQ("exit 0", run_monitor("--dusko"));
        EXPECT_EQ(2u, journal.count("execv"));
        EXPECT_EQ(1u, journal.count("info: pthread_create() failed. (type=trn ret=11)"));
        EXPECT_EQ(1u, journal.count(fmt("event: %d trn", action * 2 - 2)));
        xml.values.erase(root + "/path");
        services(1, 0);
        EXPECT_EQ("exit 4", run_monitor("--dusko"));
        EXPECT_EQ(1u, journal.count(fmt("error: recovery failed. (type=trn act=%d ret=4)", action)));
    }
}

TEST_F(Run, AnswersAnEndRequestWhileTheServiceRuns)
{
    const std::string recovery = "event: 4 trn; "
                                 "error: xmllib_get_value() failed. (type=trn ret=0x105 key=/root/cl/type); "
                                 "error: monp_xml_getcprocpolicy() failed. (type=trn ret=4 ldtype=cl); event: 5 -1; "
                                 "error: recovery failed. (type=trn act=3 ret=4); unlink /lock_trn; exit 4";
    const std::string none = "info: recovery is none. (type=trn pact=1 fact=1); " + END;

    for (auto [action, ack, next] : { std::tuple{ MONP_ACT_OS_HALT, exited(0), END },
                                      { MONP_ACT_NONE, exited(1), END },
                                      { MONP_ACT_RESTART, exited(1), END },
                                      { MONP_ACT_NONE, SIGUSR1, none },
                                      { MONP_ACT_STOP_CLSDAEMON, exited(1), recovery } }) {
        set("action", action);
        sys.next = { { .reports = 0, .ack = ack } };
        sys.signal_at(3, SIGUSR2);
        run_monitor("--dusko");
        EXPECT_EQ(
            "kill 900 10; kill 4711 10; info: throw exit signal. (type=trn pid=4711 sig=10); " +
                (ack == SIGUSR1
                     ? fmt("error: process trn killed. recover is %d. (stat=-1 path=/opt/x/bin/svc); ", action)
                     : fmt("info: monitor term. (type=trn stat=%d path=/opt/x/bin/svc act=%d); ", ack >> 8, action)) +
                next,
            course());
    }
}

TEST_F(Run, AKilledServiceIsRestartedAndTheRequestUsedUp)
{
    set("action", MONP_ACT_RESTART);
    sys.next = { { .reports = 0, .ack = SIGUSR1 }, { .reports = 0, .ack = exited(0) } };
    sys.signal_at(3, SIGUSR2);
    sys.signal_at(9, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko"));
    EXPECT_EQ(2u, journal.count("execv"));
    EXPECT_EQ("event: 3 trn -1", journal.only("event:"));
}

TEST_F(Run, ASilentServiceIsStartedAgainOnRequestOnly)
{
    set("action", MONP_ACT_RESTART);
    set("restarttime", 1);
    sys.next = { {}, {}, { .runs = 1, .reports = 0 }, { .runs = 1, .reports = 0 } };
    sys.signal_at(10, SIGUSR1);
    sys.signal_at(20, SIGHUP);
    EXPECT_EQ("exit 0", run_monitor("--dusko"));
    EXPECT_EQ("event: 1 trn 101; event: 1 trn 101; info: reload configuration. (type=dusko); event: 2 trn 0; "
              "event: 3 trn 0; event: 2 trn 0; info: recovery reached maximum. (type=trn time=2 max=1)",
              journal.but("event: info:",
                          { "- (", ": a", ": c", ": m", ": pa", ": pr", ": restart", ": s", ": t", ": w", "**" }));
    EXPECT_EQ(2u, journal.count("error: initialize error. (type=trn stat=101 path=/opt/x/bin/svc)"));
    EXPECT_EQ(1u, journal.count("kill 900 10"));
}

TEST_F(Run, AFailedStartWaitsAndShowsInTheExitStatus)
{
    journal.fails["access /opt/x/bin/svc 1"] = EACCES;
    sys.at(3, [] { journal.fails.clear(); });
    sys.signal_at(4, SIGUSR1);
    services(1, 0);
    EXPECT_EQ("exit 4", run_monitor("--dusko"));
    EXPECT_EQ("error: access() failed. (type=trn errno=13); "
              "error: start of processing failed. (type=trn ret=4 path=/opt/x/bin/svc); event: 2 trn -1; "
              "error: initialize error. (type=trn stat=-1 path=/opt/x/bin/svc); event: 1 trn -1; " +
                  WAITING + exited_by_itself(1, 0) +
                  "info: recovery is none. (type=trn pact=1 fact=1); unlink /lock_trn; exit 4",
              course());
}

TEST_F(Run, AReloadChangesOnlyTheRecords)
{
    sys.at(2, [] {
        xml.values["/root/dusko/path"] = "bin/other";
        xml.values["/root/pm/lockf"] = "/other";
        xml.values["/root/monp/log/level"] = 8;
        set("restarttime", 9);
        monp_sighup(SIGHUP);
    });
    sys.signal_at(4, SIGUSR1);
    sys.signal_at(6, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko -n"));
    EXPECT_EQ(WAITING + "info: reload configuration. (type=dusko); info: service is not started. (type=dusko); " + END,
              course());
    EXPECT_EQ(6u, journal.count("sleep 1"));
    EXPECT_EQ("bin/other 8", fmt("%s %d", gmonpmonpol.path, gmonppol.loglevel));
    EXPECT_EQ(2u, journal.count("info: restart -> 3"));
    EXPECT_EQ(2u, journal.count("log_init"));
    EXPECT_EQ(3u, journal.count("setenv"));
}

TEST_F(Run, AWaitingMonitorReactsAtOnce)
{
    sys.signal_at(0.5, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko -n"));
    EXPECT_EQ(500, sys.clock);
}

TEST_F(Run, RequestsBetweenTwoStepsDoNotStartOrRecover)
{
    // A report while a failed start returns is not the end of a service that ran.
    set("action", MONP_ACT_OS_REBOOT);
    sys.at(1, [] {
        journal.when["info: end - (type=trn ret=0 pid=4711 stat=101)"] = [] { monp_sighandler1(SIGUSR1); };
        journal.when["error: initialize error. (type=trn stat=101 path=/opt/x/bin/svc)"] = [] {
            // An end request while the configuration is read again keeps the service from being started.
            sys.at(1, [] { journal.when["xmllib_term"] = [] { monp_sighandler1(SIGUSR2); }; });
            sys.signal_at(1, SIGHUP);
        };
    });
    EXPECT_EQ("exit 0", run_monitor("--dusko"));
    EXPECT_EQ("event: 1 trn 101", journal.only("event:"));
    EXPECT_EQ(1u, journal.count("execv"));
    EXPECT_EQ(1u, journal.count("info: reload configuration. (type=dusko)"));
}

TEST_F(Run, AFailedReloadEndsWithOne)
{
    sys.at(2, [] {
        xml.values.erase("/root/monp/path");
        monp_sighup(SIGHUP);
    });
    complains("--dusko -n", 1, "monp_getconfig() failed. (ret=4");
    EXPECT_EQ(1u, journal.count("error: monp_getconfig() failed. (type=dusko ret=4)"));
    EXPECT_EQ("unlink /lock_trn", journal.only("unlink"));
}

TEST_F(Run, AReloadRequestWaitsUntilTheLoopWaits)
{
    set("action", MONP_ACT_RESTART);
    sys.next = { { .runs = 5, .reports = 0 }, {} };
    sys.signal_at(2, SIGHUP);
    sys.at(8, [] { EXPECT_EQ(0u, journal.count("info: reload")); });
    sys.signal_at(14, SIGUSR2);
    sys.at(12, [] { EXPECT_EQ(1u, journal.count("info: reload")); });
    run_monitor("--dusko");
    EXPECT_EQ(3u, journal.count("execv")) << "a reload that finds nothing against a start is a start request";
}

struct Gate {
    const char* type;
    int dummy;
    int use;            // -1: no key
    const char* reason; // why it is held back; null: it is started
};

struct RunGate : Cases<Gate> {};

TEST_P(RunGate, HoldsBackSomeTypes)
{
    const std::string use = std::string("/root/") + c.type + "/use";

    xml.fill(c.type);
    xml.values["/root/dummyconf"] = c.dummy;
    if (c.use != -1) {
        xml.values[use] = c.use;
    }
    sys.next = { { .runs = 1, .reports = 0 } };
    if (c.reason != nullptr) {
        sys.signal_at(1, SIGUSR1); // no start request helps
        sys.signal_at(2, SIGHUP);
        sys.at(5, [use] {
            EXPECT_EQ(0u, journal.count("execv"));
            xml.values["/root/dummyconf"] = 0;
            xml.values[use] = 1;
            monp_sighup(SIGHUP);
        });
    }
    EXPECT_EQ("exit 0", run_monitor(std::string("--") + c.type));
    EXPECT_EQ(1u, journal.count("execv"));
    EXPECT_EQ(c.reason == nullptr ? 0u : 2u, journal.count(fmt("info: reload configuration. (type=%s)", c.type)));
    EXPECT_EQ(c.reason == nullptr ? 0u : 1u,
              journal.count(std::string("info: ") + (c.reason == nullptr ? "dummyconf" : c.reason)));
}

static const Gate GATES[] = {
    { "tamzile", 1, 1, "dummyconf detected." },
    { "goru", 2, -1, "dummyconf detected." },
    { "pelkant", 1, -1, "dummyconf detected." },
    { "tamzile", 0, 0, "service is disabled. (type=tamzile)" },
    { "sorvin", 0, 0, "service is disabled. (type=sorvin)" },
    { "lenk", 0, -1, "service is disabled. (type=lenk)" },
    { "dusko", 1, -1, nullptr },
    { "sorvin", 1, 1, nullptr },
    { "lenk", 1, 1, nullptr },
    { "goru", 0, 0, nullptr },
    { "sorvin", 0, -1, nullptr },
};

INSTANTIATE_TEST_SUITE_P(Types, RunGate, testing::ValuesIn(GATES));

// Only the policy type counts. The marker cannot be made, so that each try leaves a line.
TEST_F(Run, TheMarkerFollowsThePhases)
{
    const std::string made = "error: mkdir failed. (dir=/nonexistent/md errno=2); ";
    const std::string removed = "error: Not exist file. (file=/nonexistent/md/made errno=2); ";

    xml.values["/root/dusko/type"] = "pelkant";
    xml.values["/root/all/path"] = "/nonexistent";
    journal.when["umask 0"] = [] { monp_sighandler1(SIGUSR1); }; // before the phase begins
    sys.signal_at(2, SIGHUP);
    sys.signal_at(3, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko -n"));
    EXPECT_EQ("xmllib_init monp; " + made + removed + made + made + made + removed + "xmllib_init monp; exit 0",
              journal.only("error: xmllib_init exit"));

    journal.fails["access"] = EACCES;
    sys.signal_at(1, SIGUSR2);
    EXPECT_EQ("exit 4", run_monitor("--dusko"));
    EXPECT_EQ(removed + "error: access() failed. (type=pelkant errno=13); " + made +
                  "error: start of processing failed. (type=pelkant ret=4 path=/nonexistent/bin/svc); "
                  "event: 2 pelkant -1; "
                  "error: initialize error. (type=pelkant stat=-1 path=/nonexistent/bin/svc); " +
                  made + "event: 1 pelkant -1; " + made +
                  "error: access() failed. (type=pelkant path=/lock_trn err=13)",
              journal.only("error: event:"));
}
