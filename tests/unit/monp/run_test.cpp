// Whole runs of the monitor under the scripted clock: start-up, the supervision loop, recovery and the exit path.
#include "monp_run.h"
#include "stage.h"

#include <gmock/gmock.h>
#include <thread>

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

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
            "info: error: event: exit pthread_create",
            { "start - ", "end - ", "service process", "getservice", "process exited", "type=pelkant", "-> " });
        const std::string begin = "info: path=/opt/x/bin/svc bin=svc; ";
        size_t found = all.find(begin);
        return found == std::string::npos ? all : all.substr(found + begin.size());
    }
};

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
    EXPECT_EQ("log_init monp 0 5000000 0; info: ****** Start Process Monitor ******; info: type    -> dusko; "
              "info: action  -> 1; info: param   -> -f a; info: restart -> 3; info: wait    -> 5; chdir /opt/x//bin; "
              "log_term; log_init monp 4 70000 0; fork; setsid; chdir /opt/x/bin/; "
              "info: set MALLOC_CHECK_ -> 3 (type=dusko); setenv MALLOC_CHECK_=3 1; "
              "info: set PATH -> /bin (type=dusko); setenv PATH=/bin 1; info: set LANG -> C (type=dusko); "
              "setenv LANG=C 1; info: arg0 -> -f (type=trn); info: arg1 -> a (type=trn); "
              "info: path=/opt/x/bin/svc bin=svc; kill 900 10; "
              "info: waiting for a service start request. (type=dusko); access /lock_trn 0; unlink /lock_trn; "
              "info: end - (type=trn ret=0); log_term; exit 0",
              journal.only("log_init log_term info: error: warning: chdir fork setsid setenv access unlink exit kill",
                           { "info: start - ", "(ret=0)", "dusko ret=0", "curdir" }));
}

TEST_F(Run, FailuresOfStartUpAndExitAreTolerated)
{
    for (const auto& [fails, words, lines] :
         { std::tuple{ "chdir", "error:", "error: chdir() failed. (path=/opt/x//bin errno=5)" },
           { "setenv", "error:",
             "error: setenv() failed. (type=dusko env=MALLOC_CHECK_ alchk=3 errno=5); "
             "error: setenv() failed. (type=dusko env=PATH path=/bin errno=5); "
             "error: setenv() failed. (type=dusko env=LANG path=C errno=5)" },
           { "access", "error: unlink", "error: access() failed. (type=trn path=/lock_trn err=5)" },
           { "unlink", "error:", "error: unlink() failed. (type=trn path=/lock_trn err=5)" },
           { "log_init monp 4 70000 0", "log_init log_term",
             "log_init monp 0 5000000 0; log_term; log_init monp 4 70000 0" } }) {
        journal.fails = { { fails, EIO } };
        sys.signal_at(1, SIGUSR2);
        EXPECT_EQ("exit 0", run_monitor("--dusko|-n"));
        EXPECT_EQ(lines, journal.only(words));
    }
    xml.values["/root/all/env/path"] = xml.values["/root/all/env/lang"] = "";
    sys.signal_at(1, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko|-n"));
    EXPECT_EQ("setenv MALLOC_CHECK_=3 1", journal.only("setenv"));
    journal.fails.clear();
    sys.ppid = 1; // the launcher has gone
    sys.signal_at(1, SIGUSR2);
    EXPECT_EQ("exit 0", run_monitor("--dusko|-n"));
    EXPECT_EQ(1u, journal.count("info: waiting for a service start request. (type=dusko)"));
    EXPECT_EQ(0u, journal.count("kill"));
    sys.uid = static_cast<uid_t>(-2);
    EXPECT_EQ("exit 1", run_monitor("--dusko"));
    EXPECT_EQ("error: permission denied. (ret=-2)", journal.only("error:"));
}

TEST_F(Run, ACollectionWritesNothingToAClosedLog)
{
    services(1, 0);
    sys.at(1, [] {
        journal.when["log_term"] = [] {
            sys.next = { { .runs = 1 } };
            std::thread(monp_elog_collect, nullptr).join();
        };
    });
    run_monitor("--dusko");
    EXPECT_EQ(1u, journal.count("execv /opt/x/sbin/elog"));
    EXPECT_THAT(journal.only("info: error: detail:"), EndsWith("info: end - (type=trn ret=0)"));
}

TEST_F(Run, LockFilesOfTheTypes)
{
    const std::string base = "/lock";

    for (const auto& [type, path, lock] : { std::tuple{ "pm", base, base },
                                            { "dusko", base, base + "_trn" },
                                            { "pelkant", base, base + "_md" },
                                            { "nm", x(1020), x(1020) + "_nm" },
                                            { "nm", x(1021), "" },
                                            { "nm", "", "" },
                                            { "Pm", base, "" } }) {
        put(gmonpparam.type, type);
        put(gmonppol.lkfpath, path);
        monp_startup_lockfile();
        EXPECT_EQ(lock, gmonppol.lkfpath);
    }
}

// ---- the loop ----

TEST_F(Run, ACollectionThatCannotBeStartedIsTold)
{
    for (const auto& [call, error, line] :
         { std::tuple{ "pthread_create", EAGAIN, "info: pthread_create() failed. (type=trn ret=11)" },
           { "calloc", ENOMEM, "error: calloc() failed. (type=trn errno=12)" } }) {
        services(1, 0);
        sys.at(1, [call = call, error = error] { journal.fails = { { call, error } }; });
        run_monitor("--dusko");
        EXPECT_EQ(1u, journal.count(line));
        journal.fails.clear();
    }
}

TEST_F(Run, RestartsAsOftenAsAllowed)
{
    set("action", MONP_ACT_RESTART);
    set("restarttime", 1);
    services(2, exited(1));
    EXPECT_EQ("exit 0", run_monitor("--dusko"));
    EXPECT_EQ(exited_by_itself(2, 1) + "info: process ended. (type=trn pid=4711 errno=3); event: 3 trn 1; " +
                  exited_by_itself(2, 1) + "info: recovery reached maximum. (type=trn time=2 max=1); exit 0",
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

TEST_F(Run, AnswersAnEndRequestWhileTheServiceRuns)
{
    for (const auto& [action, ack, next] :
         { std::tuple{ 4, exited(0), std::string("exit 0") },
           { 1, exited(1), "exit 0" },
           { 2, exited(1), "exit 0" },
           { 1, SIGUSR1, "info: recovery is none. (type=trn pact=1 fact=1); exit 0" },
           { 7, exited(1), "error: unknown recovery. (type=trn pact=7 fact=0); exit 4" } }) {
        const std::string told =
            ack == SIGUSR1
                ? fmt("error: process trn killed. recover is %d. (stat=-1 path=/opt/x/bin/svc); ", action)
                : fmt("info: monitor term. (type=trn stat=%d path=/opt/x/bin/svc act=%d); ", ack >> 8, action);
        set("action", action);
        sys.next = { { .reports = 0, .ack = ack } };
        sys.signal_at(3, SIGUSR2);
        run_monitor("--dusko");
        EXPECT_EQ(("info: throw exit signal. (type=trn pid=4711 sig=10); " + told).append(next), course());
    }
}

TEST_F(Run, AFailedStartWaitsAndShowsInTheExitStatus)
{
    for (const std::string call : { "access", "fork" }) {
        journal.when["access /opt/x/bin/svc 1"] = [call] { journal.fails[call] = EAGAIN; }; // not the daemon's own fork
        sys.at(3, [] { journal.fails.clear(); });
        sys.signal_at(4, SIGUSR1);
        services(1, 0);
        EXPECT_EQ("exit 4", run_monitor("--dusko"));
        EXPECT_EQ("error: " + call + "() failed. (type=trn errno=11); " +
                      "error: start of processing failed. (type=trn ret=4 path=/opt/x/bin/svc); event: 2 trn -1; "
                      "error: initialize error. (type=trn stat=-1 path=/opt/x/bin/svc); event: 1 trn -1; "
                      "info: waiting for a service start request. (type=dusko); " +
                      exited_by_itself(1, 0) + "info: recovery is none. (type=trn pact=1 fact=1); exit 4",
                  course());
    }
}

TEST_F(Run, ARequestThatAFailedStartDropsIsToldBeforeItsFailure)
{
    for (const std::string moment : { "access /opt/x/bin/svc 1", "info: end - (type=trn ret=4 pid=0 stat=-1)" }) {
        journal.fails = { { "access /opt/x/bin/svc 1", EACCES } };
        journal.when[moment] = [] { monp_sighandler1(SIGUSR1); };
        sys.signal_at(3, SIGUSR2);
        EXPECT_EQ("exit 4", run_monitor("--dusko"));
        EXPECT_EQ(1u, journal.count("access /opt/x/bin/svc 1")) << "dropped";
        EXPECT_THAT(journal.only(""), HasSubstr("trace: catch signal. (type=trn sig=10); trace: end - (type=trn); "
                                                "error: start of processing failed."));
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
    const std::string dummyconf = "info: dummyconf detected.";
    const std::string disabled = "info: service is disabled. (type=";

    for (const auto& [type, dummy, use, reason] : { std::tuple{ "tamzile", 1, 1, dummyconf },
                                                    { "goru", 2, 1, dummyconf },
                                                    { "pelkant", 1, 1, dummyconf },
                                                    { "tamzile", 0, 0, disabled },
                                                    { "sorvin", 0, 0, disabled },
                                                    { "lenk", 0, 0, disabled },
                                                    { "dusko", 1, 0, "" },
                                                    { "sorvin", 1, 1, "" },
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
        EXPECT_TRUE(reason.empty() || journal.count(reason) == 1) << type;
        EXPECT_EQ(reason.empty() ? 6500 : 5500, sys.clock);
    }
}

// A request that comes between the two is answered by the marker file of the phase that ends.
TEST_F(Run, AReloadRemovesTheMarkerOfAnEarlierRequest)
{
    xml.values["/root/dusko/type"] = "pelkant";
    xml.values["/root/all/path"] = "/nonexistent";
    journal.fails["access"] = EACCES;
    sys.next = { { .reports = 2, .ack = exited(0) } };
    sys.signal_at(1, SIGHUP);
    sys.signal_at(4, SIGUSR2);
    journal.when["info: reload configuration. (type=dusko)"] = [] {
        monp_sighandler1(SIGUSR1);
        journal.fails.clear();
        journal.entries.clear();
    };
    run_monitor("--dusko");
    EXPECT_THAT(journal.only("error: xmllib_init execv"),
                StartsWith("error: mkdir failed. (dir=/nonexistent/md errno=2); "
                           "error: Not exist file. (file=/nonexistent/md/made errno=2); xmllib_init monp; "
                           "execv /nonexistent/bin/svc svc -f a"));
}

// Only the policy type counts. The marker cannot be made, so that each try leaves a line.
TEST_F(Run, TheMarkerFollowsThePhases)
{
    const std::string made = "error: mkdir failed. (dir=/nonexistent/md errno=2); ";
    const std::string removed = "error: Not exist file. (file=/nonexistent/md/made errno=2); ";

    xml.values["/root/dusko/type"] = "pelkant";
    xml.values["/root/all/path"] = "/nonexistent";
    journal.when["setsid"] = [] { // before the phase begins
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
    EXPECT_EQ(fmt("%s%sevent: 2 pelkant -1; %sevent: 1 pelkant -1; %s", removed.c_str(), made.c_str(), made.c_str(),
                  made.substr(0, made.size() - 2).c_str()),
              journal.only("error: event:", { "access() failed", "start of processing", "initialize error" }));
}
