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
        std::string all = journal.only(
            "info: error: event: kill exit pthread_create unlink",
            { "start - ", "end - ", "service process", "getservice", "process exited", "type=pelkant", "-> " });
        const std::string begin = "info: path=/opt/x/bin/svc bin=svc; ";
        size_t found = all.find(begin);
        return found == std::string::npos ? all : all.substr(found + begin.size());
    }
};

static const std::string END = "unlink /lock_trn; exit ";

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
    EXPECT_EQ("exit 0", run_monitor("--dusko|-n"));
    EXPECT_EQ("log_init monp 0 5000000 0; info: ****** Start Process Monitor ******; info: curdir -> /start; "
              "info: type    -> dusko; info: action  -> 1; info: param   -> -f a; info: restart -> 3; "
              "info: wait    -> 5; chdir /opt/x//bin; log_term; log_init monp 4 70000 0; fork; setsid; "
              "chdir /opt/x/bin/; info: set MALLOC_CHECK_ -> 3 (type=dusko); setenv MALLOC_CHECK_=3 1; "
              "info: set PATH -> /bin (type=dusko); setenv PATH=/bin 1; info: set LANG -> C (type=dusko); "
              "setenv LANG=C 1; info: arg0 -> -f (type=trn); info: arg1 -> a (type=trn); "
              "info: path=/opt/x/bin/svc bin=svc; kill 900 10; "
              "info: waiting for a service start request. (type=dusko); access /lock_trn 0; unlink /lock_trn; "
              "info: end - (type=trn ret=0); log_term; exit 0",
              journal.only("log_init log_term info: error: warning: chdir fork setsid setenv access unlink exit kill",
                           { "info: start - ", "(ret=0)", "dusko ret=0" }));
}

TEST_F(Run, FailuresOfStartUpAndExitAreTolerated)
{
    journal.fails = { { "getcwd", ERANGE }, { "chdir", ENOENT }, { "setenv", ENOMEM }, { "access", ENOENT } };
    sys.signal_at(1, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko|-n"));
    EXPECT_EQ("error: getcwd() failed. (errno=34); error: chdir() failed. (path=/opt/x//bin errno=2); "
              "error: setenv() failed. (type=dusko env=MALLOC_CHECK_ alchk=3 errno=12); "
              "error: setenv() failed. (type=dusko env=PATH path=/bin errno=12); "
              "error: setenv() failed. (type=dusko env=LANG path=C errno=12); "
              "error: access() failed. (type=trn path=/lock_trn err=2); exit 0",
              journal.only("error: unlink exit"));
    journal.fails = { { "unlink", EPERM } };
    sys.signal_at(1, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko|-n"));
    EXPECT_EQ("error: unlink() failed. (type=trn path=/lock_trn err=1)", journal.only("error:"));
    journal.fails = { { "log_init monp 4 70000 0", 1 } };
    sys.signal_at(1, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko|-n"));
    EXPECT_EQ("log_init monp 0 5000000 0; log_term; log_init monp 4 70000 0", journal.only("log_init log_term"));
    xml.values["/root/all/env/path"] = xml.values["/root/all/env/lang"] = "";
    sys.signal_at(1, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko|-n"));
    EXPECT_EQ("setenv MALLOC_CHECK_=3 1", journal.only("setenv"));
    sys.uid = static_cast<uid_t>(-2);
    EXPECT_EQ("exit 1", run_monitor("--dusko"));
    EXPECT_EQ("error: permission denied. (ret=-2)", journal.only("error:"));
}

TEST_F(Run, LockFilesOfTheTypes)
{
    for (const auto& [type, path, lock] : { std::tuple{ "pm", std::string("/lock"), std::string("/lock") },
                                            { "event", "/lock", "/lock_evt" },
                                            { "dusko", "/lock", "/lock_trn" },
                                            { "pelkant", "/lock", "/lock_md" },
                                            { "sorvin", "/lock", "/lock_sorvin" },
                                            { "tamzile", "/lock", "/lock_tamzsync" },
                                            { "goru", "/lock", "/lock_ib" },
                                            { "lenk", "/lock", "/lock_api" },
                                            { "nm", "/lock", "/lock_nm" },
                                            { "nm", x(1020), x(1020) + "_nm" },
                                            { "nm", x(1021), "" },
                                            { "nm", "", "" },
                                            { "Pm", "/lock", "" } }) {
        put(gmonpparam.type, type);
        put(gmonppol.lkfpath, path);
        monp_startup_lockfile();
        EXPECT_EQ(lock, gmonppol.lkfpath);
    }
    EXPECT_EQ(1u, journal.count("error:"));
}

// ---- the loop ----

TEST_F(Run, AnEndOfTheServiceIsRecoveredFrom)
{
    const std::string none = "info: recovery is none. (type=trn pact=1 fact=1); " + END + "0";
    const std::string unknown = "error: unknown recovery. (type=trn pact=7 fact=0); " + END + "4";
    const std::string no_policy = "event: 6 trn; "
                                  "error: xmllib_get_value() failed. (type=trn ret=0x105 key=/root/down/type); "
                                  "error: monp_xml_getcprocpolicy() failed. (type=trn ret=4 ldtype=down); "
                                  "event: 7 -1; error: recovery failed. (type=trn act=4 ret=4); ";

    for (const auto& [action, course] : { std::pair{ 1, none }, { 7, unknown }, { 4, no_policy + END + "4" } }) {
        set("action", action);
        services(1, exited(7));
        run_monitor("--dusko");
        EXPECT_EQ("kill 900 10; " + exited_by_itself(action, 7) + course, Run::course());
    }
    for (auto [call, error] : { std::pair{ "pthread_create", EAGAIN }, { "calloc", ENOMEM } }) {
        services(1, 0);
        sys.at(1, [call = call, error = error] { journal.fails = { { call, error } }; });
        run_monitor("--dusko");
        EXPECT_EQ(1u, journal.count(fmt("info: pthread_create() failed. (type=trn ret=%d)", error)));
        journal.fails.clear();
    }
}

TEST_F(Run, RestartsAsOftenAsAllowed)
{
    set("action", MONP_ACT_RESTART);
    set("restarttime", 1);
    services(2, exited(1));
    EXPECT_EQ("exit 0", run_monitor("--dusko"));
    EXPECT_EQ("kill 900 10; " + exited_by_itself(2, 1) +
                  "kill 4711 0; info: process ended. (type=trn pid=4711 errno=3); event: 3 trn 1; " +
                  exited_by_itself(2, 1) + "info: recovery reached maximum. (type=trn time=2 max=1); " + END + "0",
              course());
    for (int unlimited : { 0, -2 }) {
        set("restarttime", unlimited);
        services(6, exited(1));
        sys.next.push_back({ .reports = 0, .ack = exited(0) });
        sys.signal_at(10, SIGUSR2);
        EXPECT_EQ("exit 0", run_monitor("--dusko"));
        EXPECT_EQ(6u, journal.count("event: 3 trn 1"));
    }
}

// Even under a storm of reports and reloads.
TEST_F(Run, RestartsAtMostOnceASecond)
{
    set("action", MONP_ACT_RESTART);
    set("restarttime", 40);
    sys.next.assign(41, { .runs = 0, .status = exited(1), .reports = 0 });
    for (int i = 1; i < 40000; i++) {
        sys.signal_at(i / 100.0, i % 2 == 0 ? SIGHUP : SIGUSR1);
    }
    EXPECT_EQ("exit 0", run_monitor("--dusko"));
    EXPECT_EQ(40u, journal.count("event: 3 trn 1"));
    EXPECT_EQ(41000, sys.clock);
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
    EXPECT_EQ(6u, journal.count("kill 4711 0"));
}

TEST_F(Run, AnswersAnEndRequestWhileTheServiceRuns)
{
    const std::string none = "info: recovery is none. (type=trn pact=1 fact=1); ";
    const std::string unknown = "error: unknown recovery. (type=trn pact=7 fact=0); ";

    for (const auto& [action, ack, next] : { std::tuple{ 4, exited(0), END + "0" },
                                             { 1, exited(1), END + "0" },
                                             { 2, exited(1), END + "0" },
                                             { 1, SIGUSR1, none + END + "0" },
                                             { 7, exited(1), unknown + END + "4" } }) {
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

TEST_F(Run, AFailedStartWaitsAndShowsInTheExitStatus)
{
    for (auto [call, name, error] : { std::tuple{ "access /opt/x/bin/svc 1", "access", EACCES },
                                      { "fork", "fork", EAGAIN },
                                      { "fork", "fork", ENOMEM } }) {
        journal.when["access /opt/x/bin/svc 1"] = [call = call, error = error] {
            journal.fails[call] = error; // not for the daemon's own fork
        };
        sys.at(3, [] { journal.fails.clear(); });
        sys.signal_at(4, SIGUSR1);
        services(1, 0);
        EXPECT_EQ("exit 4", run_monitor("--dusko"));
        EXPECT_EQ(fmt("error: %s() failed. (type=trn errno=%d); ", name, error) +
                      "error: start of processing failed. (type=trn ret=4 path=/opt/x/bin/svc); event: 2 trn -1; "
                      "error: initialize error. (type=trn stat=-1 path=/opt/x/bin/svc); event: 1 trn -1; kill 900 10; "
                      "info: waiting for a service start request. (type=dusko); " +
                      exited_by_itself(1, 0) + "info: recovery is none. (type=trn pact=1 fact=1); " + END + "4",
                  course());
    }
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

TEST_F(Run, AnEndRequestBesideAStartIsKept)
{
    journal.fails["access /opt/x/bin/svc 1"] = EACCES;
    sys.next = { { .reports = 0, .ack = exited(0) } };
    sys.signal_at(1, SIGHUP);
    sys.at(1, [] {
        journal.when["xmllib_term"] = [] {
            journal.fails.clear();
            monp_sighup(SIGHUP); // its lines come between the last look at the request and the start
            journal.when["trace: start - (type=trn sig=1)"] = [] { monp_sighandler1(SIGUSR2); };
        };
    });
    EXPECT_EQ("exit 4", run_monitor("--dusko"));
    EXPECT_EQ(1u, journal.count("execv"));
    EXPECT_EQ(1u, journal.count("info: monitor term. (type=trn stat=0 path=/opt/x/bin/svc act=1)"));
}

TEST_F(Run, HoldsBackSomeTypes)
{
    const std::string disabled = "service is disabled. (type=";

    for (const auto& [type, dummy, use, reason] : { std::tuple{ "tamzile", 1, 1, std::string("dummyconf detected.") },
                                                    { "goru", 2, 1, "dummyconf detected." },
                                                    { "pelkant", 1, 1, "dummyconf detected." },
                                                    { "tamzile", 0, 0, disabled + "tamzile)" },
                                                    { "sorvin", 0, 0, disabled + "sorvin)" },
                                                    { "lenk", 0, 0, disabled + "lenk)" },
                                                    { "dusko", 1, 0, "" },
                                                    { "sorvin", 1, 1, "" },
                                                    { "lenk", 1, 1, "" },
                                                    { "goru", 0, 0, "" } }) {
        xml.fill(type);
        xml.values["/root/dummyconf"] = dummy;
        xml.values[std::string("/root/") + type + "/use"] = use;
        sys.clock = 0;
        sys.next = { { .reports = 0, .ack = exited(0) } };
        sys.signal_at(1, SIGUSR1); // no start request helps
        sys.signal_at(2, SIGHUP);
        sys.signal_at(5.5, SIGUSR2); // a wait ends at once
        EXPECT_EQ("exit 0", run_monitor(std::string("--") + type));
        EXPECT_EQ(reason.empty() ? 1u : 0u, journal.count("execv"));
        EXPECT_EQ(reason.empty() ? 0u : 1u, journal.count("info: " + (reason.empty() ? "reload" : reason)));
        EXPECT_EQ(reason.empty() ? 6500 : 5500, sys.clock);
    }
}

// Only the policy type counts. The marker cannot be made, so that each try leaves a line.
TEST_F(Run, TheMarkerFollowsThePhases)
{
    const std::string made = "error: mkdir failed. (dir=/nonexistent/md errno=2); ";
    const std::string removed = "error: Not exist file. (file=/nonexistent/md/made errno=2); ";

    xml.values["/root/dusko/type"] = "pelkant";
    xml.values["/root/all/path"] = "/nonexistent";
    journal.when["umask 0"] = [] { // before the phase begins
        monp_sighandler1(SIGUSR1);
        monp_sighandler1(SIGUSR2);
    };
    journal.when["error: Not exist file. (file=/nonexistent/md/made errno=2)"] = [] { gmdfilemaked = YES; };
    sys.signal_at(2, SIGHUP);
    sys.signal_at(3, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko|-n"));
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
