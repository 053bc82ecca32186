// The two start operations: launching, waiting, end requests, the decoding of the end, adoption and failed starts; the
// search for a running service, and the wait for a process to be gone.
#include "stage.h"

static const char* const WAIT = "kill sleep waitpid";
static const std::string POLL = "sleep 1; waitpid 4711";

struct Launch : Monitor {
    bool svc = false;
    pid_t pid = 77;
    int stat = 77;
    char* argv[3] = { arg("svc"), arg("-v"), nullptr };

    Launch()
    {
        gmonpparam.action = MONP_ACT_RESTART;
        gmonppol.parent_initto = 6;
        gmonppol.child_initto = 4;
        gbmonpinited = YES;
    }

    // Starts a child, which reports at once if it is a service.
    int launch(Process process, int nwait = 3, int nsig = SIGUSR1)
    {
        process.reports = svc ? 0 : FOREVER;
        sys.next = { process };
        journal.entries.clear();
        return start(nwait, nsig);
    }

    int start(int nwait = 3, int nsig = SIGUSR1)
    {
        sys.pid = 4711;
        auto operation = svc ? monp_create_process_svc : monp_create_process;
        return operation(arg("/bin/svc"), argv, nwait, nsig, &pid, &stat, svc ? CS_FLAG_OFF : CS_FLAG_ON);
    }
};

struct Both : Launch, testing::WithParamInterface<bool> {
    Both()
    {
        svc = GetParam();
    }
};

INSTANTIATE_TEST_SUITE_P(Launch, Both, testing::Bool(), [](const auto& p) { return p.param ? "Service" : "Program"; });

TEST_P(Both, FailuresBeforeTheEnd)
{
    for (auto [call, error, npid, line] :
         { std::tuple{ "access", EACCES, 0, "error: access() failed. (type=trn errno=13)" },
           { "fork", EAGAIN, 0, "error: fork() failed. (type=trn errno=11)" },
           { "waitpid", EINVAL, 4711, "warning: waitpid() failed. (type=trn errno=22)" } }) {
        journal.fails = { { call, error } };
        gbmonpinited = YES;
        EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, launch({}));
        EXPECT_EQ(npid, pid);
        EXPECT_EQ(svc && npid == 0 ? 0 : YES, gbmonpinited);
        EXPECT_EQ(line, journal.only("error: warning:"));
        EXPECT_EQ(fmt("info: end - (type=trn ret=4 pid=%d stat=-1)", npid), journal.entries.back());
    }
}

TEST_P(Both, AnEndRequestEscalates)
{
    const std::string kill10 = "kill 4711 10; info: throw exit signal. (type=trn pid=4711 sig=10); ";
    const std::string kill9 = "waitpid 4711; kill 4711 9; info: throw exit signal. (type=trn pid=4711 sig=9)";
    const std::string three = fmt("%1$s; %1$s; %1$s; ", POLL.c_str());
    const std::string escalates = (kill10 + three).append(kill9);
    const std::string patient = (kill10 + three).append(POLL);

    for (const auto& [action, nwait, nsig, calls, status] :
         { std::tuple{ MONP_ACT_STOP_CLSDAEMON, 3, SIGUSR1, escalates, 0 },
           { MONP_ACT_OS_HALT, 3, SIGUSR1, escalates, -1 },
           { MONP_ACT_OS_REBOOT, 3, SIGUSR1, escalates, -1 },
           { MONP_ACT_NONE, 3, 0, three + "waitpid 4711", 0 },
           { MONP_ACT_NONE, 0, SIGUSR1, patient, 1 } }) {
        gmonpparam.action = action;
        gbmonpend = 0;
        sys.events.clear();
        sys.clock = 0;
        sys.signal_at(1, SIGUSR2);
        for (const double second : { 0.3, 0.6, 2.3, 2.6, 2.9 }) { // they shorten no pause
            sys.signal_at(second, second < 2.5 ? SIGHUP : SIGUSR1);
        }
        EXPECT_EQ(MONP_RET_SUCCESS, launch({ .runs = 5, .status = exited(1) }, nwait, nsig));
        EXPECT_EQ(fmt("%s; ", POLL.c_str()) + calls,
                  journal.only("kill sleep waitpid info: error:", { "service", "start - ", "end - ", "exited" }));
        EXPECT_EQ(status, stat);
        EXPECT_EQ(nwait > 0 ? 4000 : 5000, sys.clock);
    }
}

// It outlives the poll before the escalation and is gone at the one behind it.
TEST_P(Both, AForcedEndMayMeetAnEndedChild)
{
    sys.signal_at(0, SIGUSR2);
    journal.when["waitpid 4711"] = [] { journal.when["waitpid 4711"] = [] { sys.end(4711, exited(7)); }; };
    EXPECT_EQ(MONP_RET_SUCCESS, launch({}, 1));
    EXPECT_EQ(svc ? 7 : 0, stat);
}

// A parent of another pid: the launcher is gone, and its pid may be anybody's.
TEST_P(Both, ReleasesTheLauncherOnce)
{
    for (auto [launcher, parent, time, sent] :
         { std::tuple{ 900, 900, 6, 1u }, { 0, 900, 6, 0u }, { 900, 900, 0, 0u }, { 900, 1, 6, 0u } }) {
        gmonpppid = launcher;
        sys.ppid = static_cast<pid_t>(parent);
        gmonppol.parent_initto = time;
        launch({ .runs = 3 });
        EXPECT_EQ(sent, journal.count("kill"));
        EXPECT_EQ(sent, journal.count("kill 900 10"));
        EXPECT_EQ(time == 0 ? 900 : 0, gmonpppid);
    }
}

TEST_P(Both, LetsTheEndRequestThrough)
{
    sigset_t usr2;
    sigset_t mask;
    sigemptyset(&usr2);
    sigaddset(&usr2, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &usr2, nullptr);
    launch({ .runs = 1 });
    pthread_sigmask(SIG_UNBLOCK, &usr2, &mask);
    EXPECT_EQ(0, sigismember(&mask, SIGUSR2));
}

TEST_P(Both, MakesTheMarkerAfterTheWait)
{
    break_marker();
    launch({ .runs = 2, .status = SIGTERM });
    EXPECT_EQ(svc ? 2u : 1u, journal.count("error: mkdir")) << "a report makes it, too";
    launch({ .runs = 2, .status = exited(1) });
    EXPECT_EQ(1u, journal.count("error: mkdir")) << "not after the normal end of a service";
    journal.fails["waitpid"] = EINVAL;
    launch({});
    EXPECT_EQ(1u, journal.count("error: mkdir")) << "not after a failed wait for a service";
}

TEST_P(Both, TellsHowTheChildEnded)
{
    const std::string killed = "error: process exited for term signal. (type=trn pid=4711 stat=";
    const std::string dumped = "error: process exited for core was outed. (type=trn pid=4711 stat=";
    const std::string both = killed + "139 sig=11); " + dumped + "139 sig=11)";

    for (const auto& [status, told, lines] :
         { std::tuple{ exited(255), 255, std::string("info: process exited. (type=trn pid=4711 stat=255)") },
           { SIGUSR1, -1, "" },
           { SIGKILL, 101, killed + "9 sig=9)" },
           { SIGSEGV | CORE, 102, both },
           { SIGUSR1 | CORE, 102, dumped + "138 sig=10)" },
           { 0x137f, 103, "error: process exited for stop signal. (type=trn pid=4711 stat=4991 sig=19)" },
           { 0xffff, 199, "error: process exited, but status is unknown. (type=trn pid=4711 stat=65535)" } }) {
        gbmonpend = svc ? YES : 0; // forgotten by the start of a service
        EXPECT_EQ(MONP_RET_SUCCESS, launch({ .runs = 1, .status = status }));
        EXPECT_EQ(told, stat);
        EXPECT_EQ(lines, journal.only("info: error: warning:", { "service", " - (" }));
    }
}

// ---- what only a service meets ----

struct Service : Launch {
    Service()
    {
        svc = true;
        gmonpppid = 900;
    }

    // One that somebody else started.
    static void running(pid_t npid, Process process = {})
    {
        process.exe = process.exe.empty() ? "/bin/svc" : process.exe;
        sys.processes[npid] = process;
    }
};

// The flag is tested before each of four pauses.
TEST_F(Service, HasAFixedTimeForItsReport)
{
    const std::string ended = "kill 900 10; kill 4711 10; sleep 1; kill 4711 0; kill 4711 9; waitpid 4711 0";
    const std::string late = "sleep 1; sleep 1; sleep 1; sleep 1; " + ended;
    const std::string in_time = "sleep 1; sleep 1; sleep 1; kill 900 10; " + POLL;

    for (const auto& [initto, process, calls, status, inited] :
         { std::tuple{ 4, Process{ .runs = 4, .reports = 3 }, in_time, 0, YES },
           { 4, { .reports = 4, .ack = SIGUSR1 }, late, -1, 0 },
           { 4, { .reports = 5 }, late, 101, 0 },
           { 0, { .reports = 0 }, ended, 101, 0 } }) {
        gmonppol.child_initto = initto;
        gmonpppid = 900;
        sys.next = { process };
        sys.events.clear();
        journal.entries.clear();
        EXPECT_EQ(MONP_RET_SUCCESS, start());
        EXPECT_EQ(calls, journal.only(WAIT));
        EXPECT_EQ(status, stat);
        EXPECT_EQ(inited, gbmonpinited);
    }
}

TEST_F(Service, OnlyItsReportShortensTheInitialisation)
{
    sys.signal_at(0.5, SIGHUP);
    sys.signal_at(2.5, SIGUSR1);
    sys.next = { { .runs = 3 } };
    EXPECT_EQ(MONP_RET_SUCCESS, start());
    EXPECT_EQ(3500, sys.clock);
}

TEST_F(Service, AdoptsARunningProcess)
{
    break_marker();
    running(99);
    sys.at(1.5, [] { sys.end(99, 0); });
    EXPECT_EQ(MONP_RET_SUCCESS, start());
    EXPECT_EQ(99, pid);
    EXPECT_EQ(-1, stat);
    EXPECT_EQ(YES, gbmonpinited);
    EXPECT_EQ("kill 900 10; sleep 1; kill 99 0; sleep 1; kill 99 0", journal.only("fork kill sleep waitpid"));
    EXPECT_EQ(1u, journal.count("info: service process is already started. (type=pelkant)"));
    EXPECT_EQ(2u, journal.count("error: mkdir"));
    running(99);
    sys.signal_at(1, SIGUSR2);
    gmonpparam.action = MONP_ACT_NONE; // ended on request, only then without a status that asks for recovery
    EXPECT_EQ(MONP_RET_SUCCESS, start(1));
    EXPECT_EQ(0, stat);
    EXPECT_EQ(1u, journal.count("kill 99 9"));
}

// ---- the search and the wait for an end ----

TEST_F(Service, TheSearchFindsTheFirstInByteOrder)
{
    running(99);
    running(100);
    running(1000, { .exe = "/bin/svc2" });
    EXPECT_EQ(MONP_RET_SUCCESS, monp_getservice(arg("/bin/svc"), &pid));
    EXPECT_EQ(100, pid);
    journal.fails["scandir"] = ENOMEM;
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_getservice(arg("/bin/svc"), &pid));
    EXPECT_EQ("readlink /proc/100/exe; info: service process is found. (pid=100); error: scandir /proc failed.",
              journal.only("readlink info: error:"));
}

TEST_F(Service, TheSearchEndsBehindTenThousandOthers)
{
    for (pid_t other = 10000; other < 20000; other++) {
        running(other, { .exe = "/bin/other" });
    }
    running(99999);
    EXPECT_EQ(MONP_RET_SUCCESS, monp_getservice(arg("/bin/svc"), &pid));
    EXPECT_EQ(99999, pid);
}

TEST_F(Service, TheSearchComparesResolvedPathsThatFit)
{
    const std::string fits = x(1023);
    const std::string cut = x(1024); // would equal the other

    for (const auto& [exe, resolved, found] : { std::tuple{ std::string("/bin/svc"), std::string("/real/svc"), 0 },
                                                { "/real/svc (deleted)", "/real/svc", 0 },
                                                { fits, fits, 99 },
                                                { cut, fits, 0 },
                                                { fits, cut, 0 } }) {
        running(99, { .exe = exe });
        sys.resolved = resolved;
        EXPECT_EQ(found != 0 ? MONP_RET_SUCCESS : MONP_RET_FAIL_UNKNOWN, monp_getservice(arg("/bin/svc"), &pid)) << exe;
        EXPECT_EQ(found, pid);
    }
    EXPECT_EQ(4u, journal.count("info: service process is not found."));
    EXPECT_EQ(1u, journal.count("info: executable path does not fit."));
    sys.processes.clear();
    journal.entries.clear();
    journal.fails["realpath"] = ENOENT;
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_getservice(arg("/bin/svc"), &pid)) << "nor does nothing equal nothing";
    EXPECT_EQ("readlink /proc/2/exe", journal.only("readlink")) << "what else is in /proc is no process";
}

TEST_F(Launch, WaitsForAnEndUpToALimit)
{
    sys.processes[50] = {};
    EXPECT_EQ(MONP_RET_FAIL_TIMEOUT, monp_waitprocterm(50, 2));
    EXPECT_EQ("kill 50 0; sleep 1; kill 50 0; sleep 1; kill 50 0; "
              "info: wait timeout. (type=trn pid=50 timeout=2 timer=2)",
              journal.only("kill sleep info:"));
    sys.at(3.5, [] { sys.processes.clear(); });
    EXPECT_EQ(MONP_RET_SUCCESS, monp_waitprocterm(50, 0));
    EXPECT_EQ(2u + 4u, journal.count("sleep 1"));
    journal.entries.clear();
    EXPECT_EQ(MONP_RET_SUCCESS, monp_waitprocterm(0, 0));
    EXPECT_EQ(MONP_RET_SUCCESS, monp_waitprocterm(-1, 0));
    EXPECT_EQ("", journal.only("kill sleep")) << "a probe of a process group";
}
