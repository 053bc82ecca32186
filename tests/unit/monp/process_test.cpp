// The two start operations: launching, waiting, end requests, the decoding of the end, adoption and failed starts; the
// search for a running service, and the wait for a process to be gone.
#include "stage.h"

static const char* const WAIT = "kill sleep waitpid";
static const char* const POLL = "sleep 1; waitpid 4711; ";

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

TEST_P(Both, RunsAProgramToItsEnd)
{
    EXPECT_EQ(MONP_RET_SUCCESS, launch({ .runs = 2, .status = exited(255) }));
    EXPECT_EQ(4711, pid);
    EXPECT_EQ(255, stat);
    EXPECT_EQ(std::string("access /bin/svc 1; fork; execv /bin/svc svc -v; ") + POLL + "sleep 1; waitpid 4711",
              journal.only("access fork execv kill sleep waitpid error: warning:"));
    EXPECT_EQ(fmt("info: start - (type=trn path=/bin/svc argv=%p wait=3 pid=%p stat=%p std=%d",
                  static_cast<void*>(argv), static_cast<void*>(&pid), static_cast<void*>(&stat), svc ? 0 : 1),
              journal.entries.front());
    EXPECT_EQ("info: end - (type=trn ret=0 pid=4711 stat=255)", journal.entries.back());
}

struct Failure {
    const char* call;
    int error;
    pid_t pid;
    const char* line;
};

TEST_P(Both, FailuresBeforeTheEnd)
{
    const Failure failures[] = {
        { "access", EACCES, 0, "error: access() failed. (type=trn errno=13)" },
        { "fork", EAGAIN, 0, "error: fork() failed. (type=trn errno=11)" },
        { "waitpid", EINVAL, 4711, "warning: waitpid() failed. (type=trn errno=22)" },
    };
    for (const Failure& failure : failures) {
        SCOPED_TRACE(failure.call);
        journal.entries.clear();
        journal.fails = { { failure.call, failure.error } };
        gbmonpinited = YES;
        EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, launch({}));
        EXPECT_EQ(failure.pid, pid);
        EXPECT_EQ(-1, stat);
        EXPECT_EQ(svc && failure.pid == 0 ? 0 : YES, gbmonpinited);
        EXPECT_EQ(failure.line, journal.only("error: warning:"));
        EXPECT_EQ(fmt("info: end - (type=trn ret=4 pid=%d stat=-1)", pid), journal.entries.back());
    }
}

TEST_P(Both, AFailedExecEndsTheChildWithStatusFour)
{
    gbmonpinited = 0;
    journal.fails["execv"] = ENOEXEC;
    EXPECT_EQ(MONP_RET_SUCCESS, launch({}));
    EXPECT_EQ(4, stat);
    EXPECT_EQ(0, gbmonpinited);
    EXPECT_EQ("error: execv() failed. (type=trn path=/bin/svc errno=8); _exit 4", journal.only("error: exit _exit"));
    EXPECT_EQ(1u, journal.count("info: process exited. (type=trn pid=4711 stat=4)"));
}

TEST_P(Both, EscalatesAfterTheWait)
{
    for (int action : { MONP_ACT_STOP_CLSDAEMON, MONP_ACT_OS_HALT, MONP_ACT_OS_REBOOT }) {
        gmonpparam.action = action;
        gbmonpend = 0;
        journal.entries.clear();
        sys.signal_at(1, SIGUSR2);
        EXPECT_EQ(MONP_RET_SUCCESS, launch({}));
        EXPECT_EQ(std::string(POLL) + "kill 4711 10; " + POLL + POLL + POLL + "waitpid 4711; kill 4711 9",
                  journal.only(WAIT));
        EXPECT_EQ(action == MONP_ACT_STOP_CLSDAEMON ? 0 : -1, stat);
        EXPECT_EQ("info: throw exit signal. (type=trn pid=4711 sig=10); "
                  "info: throw exit signal. (type=trn pid=4711 sig=9); " +
                      fmt("info: end - (type=trn ret=0 pid=4711 stat=%d)", stat),
                  journal.but("info: error: warning:", { "service", "start - " }));
    }
}

TEST_P(Both, WithoutAWaitNothingEscalates)
{
    for (int nwait : { 0, -1 }) {
        journal.entries.clear();
        sys.signal_at(0, SIGUSR2);
        EXPECT_EQ(MONP_RET_SUCCESS, launch({ .runs = 6, .status = exited(1) }, nwait));
        EXPECT_EQ(1u, journal.count("kill"));
        EXPECT_EQ(6u, journal.count("sleep 1"));
        EXPECT_EQ(1, stat);
    }
}

TEST_P(Both, WithoutAnExitSignalNothingIsSent)
{
    for (int nsig : { 0, -1 }) {
        journal.entries.clear();
        sys.signal_at(0, SIGUSR2);
        EXPECT_EQ(MONP_RET_SUCCESS, launch({}, 5, nsig));
        EXPECT_EQ(0u, journal.count("kill") + journal.count("info: throw"));
        EXPECT_EQ(5u, journal.count("sleep 1"));
        EXPECT_EQ(0, stat);
    }
}

// It outlives the poll before the escalation and is gone at the one behind it.
TEST_P(Both, AForcedEndMayMeetAnEndedChild)
{
    sys.signal_at(0, SIGUSR2);
    EXPECT_EQ(MONP_RET_SUCCESS, launch({ .polls = 1, .status = SIGTERM }, 1));
    EXPECT_EQ(0, stat);
    EXPECT_EQ(svc ? 1u : 0u,
              journal.count("error: process exited for term signal. (type=trn pid=4711 stat=15 sig=15)"));
    gbmonpend = 0;
    sys.signal_at(0, SIGUSR2);
    EXPECT_EQ(MONP_RET_SUCCESS, launch({ .polls = 1, .status = exited(7) }, 1));
    EXPECT_EQ(svc ? 7 : 0, stat);
}

TEST_P(Both, SignalsDoNotShortenTheWait)
{
    break_marker(); // what a signal causes may fail, too
    sys.signal_at(0, SIGUSR2);
    sys.signal_at(0.5, SIGHUP);
    sys.signal_at(1.5, SIGUSR1);
    sys.signal_at(1.75, SIGUSR1);
    EXPECT_EQ(MONP_RET_SUCCESS, launch({}));
    EXPECT_EQ(3000, sys.clock);
    EXPECT_EQ(1u, journal.count("kill 4711 9"));
}

TEST_P(Both, ReleasesTheLauncherOnce)
{
    for (auto [launcher, time, sent] : { std::tuple{ 900, 6, 1u }, { 0, 6, 0u }, { 900, 0, 0u } }) {
        journal.entries.clear();
        gmonpppid = launcher;
        gmonppol.parent_initto = time;
        launch({ .runs = 3 });
        EXPECT_EQ(sent, journal.count("kill"));
        EXPECT_EQ(sent, journal.count("kill 900 10"));
        EXPECT_EQ(time == 0 ? 900 : 0, gmonpppid);
    }
    gmonpppid = 900;
    gmonppol.parent_initto = 6;
    sys.ppid = 1; // it is gone, and its pid may be anybody's
    launch({ .runs = 3 });
    EXPECT_EQ(0u, journal.count("kill 900"));
    EXPECT_EQ(0, gmonpppid);
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
    const size_t reported = svc ? 1 : 0;

    break_marker();
    launch({ .runs = 2, .status = SIGTERM });
    EXPECT_EQ(reported + 1, journal.count("error: mkdir"));
    journal.entries.clear();
    launch({ .runs = 2, .status = exited(1) });
    EXPECT_EQ(1u, journal.count("error: mkdir")) << "not after the normal end of a service";
    journal.entries.clear();
    journal.fails["waitpid"] = EINVAL;
    launch({});
    EXPECT_EQ(1u, journal.count("error: mkdir")) << "not after a failed wait for a service";
}

struct End {
    int status; // raw
    int stat;
    std::string lines;
};

TEST_P(Both, TellsHowTheChildEnded)
{
    const End ends[] = {
        { exited(0), 0, "info: process exited. (type=trn pid=4711 stat=0)" },
        { SIGUSR1, -1, "" },
        { SIGKILL, 101, "error: process exited for term signal. (type=trn pid=4711 stat=9 sig=9)" },
        { SIGSEGV | CORE, 102,
          "error: process exited for term signal. (type=trn pid=4711 stat=139 sig=11); "
          "error: process exited for core was outed. (type=trn pid=4711 stat=139 sig=11)" },
        { SIGUSR1 | CORE, 102, "error: process exited for core was outed. (type=trn pid=4711 stat=138 sig=10)" },
        { 0x137f, 103, "error: process exited for stop signal. (type=trn pid=4711 stat=4991 sig=19)" },
        { 0xffff, 199, "error: process exited, but status is unknown. (type=trn pid=4711 stat=65535)" },
    };
    for (const End& end : ends) {
        journal.entries.clear();
        EXPECT_EQ(MONP_RET_SUCCESS, launch({ .runs = 1, .status = end.status }));
        EXPECT_EQ(end.stat, stat);
        EXPECT_EQ(end.lines, journal.but("info: error: warning:", { "service", " - (" }));
    }
}

TEST_F(Launch, AProgramLeavesTheFlagsAloneAndNeedNotTellItsPid)
{
    gbmonpend = YES;
    sys.next = { { .runs = 0 } };
    EXPECT_EQ(MONP_RET_SUCCESS, monp_create_process(arg("/p"), argv, 0, 0, nullptr, &stat, CS_FLAG_ON));
    EXPECT_EQ(0, stat);
    EXPECT_EQ(YES, gbmonpinited);
    EXPECT_EQ(YES, gbmonpend);
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
        process.child = false;
        sys.processes[npid] = process;
    }
};

TEST_F(Service, ForgetsEarlierRequests)
{
    gbmonpend = YES;
    EXPECT_EQ(MONP_RET_SUCCESS, launch({ .runs = 5 }));
    EXPECT_EQ("kill 900 10", journal.only("kill"));
    EXPECT_EQ(1u, journal.count("info: monp_getservice(/bin/svc) not found. (ret:4)"));
}

// The flag is tested before each of four pauses.
TEST_F(Service, AReportInTimeBeginsTheWait)
{
    sys.next = { { .runs = 4, .reports = 3 } };
    EXPECT_EQ(MONP_RET_SUCCESS, start());
    EXPECT_EQ("sleep 1; sleep 1; sleep 1; kill 900 10; sleep 1; waitpid 4711", journal.only(WAIT));
    EXPECT_EQ(YES, gbmonpinited);
    EXPECT_EQ(0, stat);
}

TEST_F(Service, AReportInTheLastPauseIsTooLate)
{
    sys.next = { { .reports = 4, .ack = SIGUSR1 } };
    EXPECT_EQ(MONP_RET_SUCCESS, start());
    EXPECT_EQ("sleep 1; sleep 1; sleep 1; sleep 1; kill 900 10; kill 4711 10; sleep 1; kill 4711 0; kill 4711 9; "
              "waitpid 4711 0",
              journal.only(WAIT));
    EXPECT_EQ(0, gmonpppid);
    EXPECT_EQ(0, gbmonpinited);
    EXPECT_EQ(-1, stat);
    EXPECT_EQ(0u, journal.count("error:"));
}

TEST_F(Service, ASilentOneIsKilledWhateverItReportsThen)
{
    gmonppol.parent_initto = 0; // nobody waits
    sys.signal_at(5, SIGUSR1);
    EXPECT_EQ(MONP_RET_SUCCESS, start());
    EXPECT_EQ("kill 4711 10; info: throw exit signal. (type=trn pid=4711 sig=10); kill 4711 0; kill 4711 9; "
              "info: throw exit signal. (type=trn pid=4711 sig=9); "
              "error: process exited for term signal. (type=trn pid=4711 stat=9 sig=9); "
              "info: end - (type=trn ret=0 pid=4711 stat=101)",
              journal.but("kill info: error: warning:", { "service", "start - " }));
    EXPECT_EQ(0, gbmonpinited);
}

TEST_F(Service, ASilentOneThatIsGoneIsNotKilled)
{
    journal.fails["kill 4711 0"] = ESRCH;
    sys.next = { { .runs = 5, .status = exited(9) } };
    EXPECT_EQ(MONP_RET_SUCCESS, start());
    EXPECT_EQ("kill 900 10; kill 4711 10; kill 4711 0", journal.only("kill"));
    EXPECT_EQ(9, stat);
}

TEST_F(Service, OnlyItsReportShortensTheInitialisation)
{
    sys.signal_at(0.5, SIGHUP);
    EXPECT_EQ(MONP_RET_SUCCESS, start());
    EXPECT_EQ(5000, sys.clock);
    sys.signal_at(0.5, SIGUSR1);
    sys.next = { { .runs = 1 } };
    EXPECT_EQ(MONP_RET_SUCCESS, start());
    EXPECT_EQ(6500, sys.clock);
}

TEST_F(Service, AnEndRequestWaitsForTheReport)
{
    sys.next = { { .reports = 2 } };
    sys.signal_at(1, SIGUSR2);
    EXPECT_EQ(MONP_RET_SUCCESS, start(1));
    EXPECT_EQ(std::string("sleep 1; sleep 1; kill 900 10; kill 4711 10; ") + POLL + "waitpid 4711; kill 4711 9",
              journal.only(WAIT));
}

TEST_F(Service, AdoptsARunningProcess)
{
    break_marker();
    running(99, { .polls = 1 });
    EXPECT_EQ(MONP_RET_SUCCESS, start());
    EXPECT_EQ(99, pid);
    EXPECT_EQ(-1, stat);
    EXPECT_EQ(YES, gbmonpinited);
    EXPECT_EQ("kill 900 10; sleep 1; kill 99 0; sleep 1; kill 99 0", journal.only("fork kill sleep waitpid"));
    EXPECT_EQ(1u, journal.count("info: service process is already started. (type=pelkant)"));
    EXPECT_EQ(2u, journal.count("error: mkdir"));
}

TEST_F(Service, AnAdoptedProcessIsEndedOnRequest)
{
    gmonpppid = 0;
    for (auto [action, ack, status] :
         { std::tuple{ MONP_ACT_OS_HALT, SIGUSR1, 0 }, { MONP_ACT_NONE, -1, 0 }, { MONP_ACT_OS_REBOOT, -1, -1 } }) {
        gmonpparam.action = action;
        journal.entries.clear();
        running(99, { .ack = ack });
        sys.signal_at(1, SIGUSR2);
        EXPECT_EQ(MONP_RET_SUCCESS, start(1));
        EXPECT_EQ(status, stat);
        EXPECT_EQ(std::string("kill 99 0; kill 99 10; kill 99 0") + (ack == -1 ? "; kill 99 0; kill 99 9" : ""),
                  journal.only("kill"));
        EXPECT_EQ(0u, journal.count("error:"));
    }
}

TEST_F(Service, WithoutInitialisationTimeEveryStartFails)
{
    gmonppol.child_initto = 0;
    running(99);
    EXPECT_EQ(MONP_RET_SUCCESS, start());
    EXPECT_EQ("kill 900 10; kill 99 10; sleep 1; kill 99 0; kill 99 9", journal.only("kill sleep"));
    EXPECT_EQ(0, gbmonpinited);
    EXPECT_EQ(-1, stat);
}

TEST_F(Service, WithoutProcTheStartGoesOn)
{
    journal.fails["scandir /proc"] = ENOMEM;
    EXPECT_EQ(MONP_RET_SUCCESS, launch({ .runs = 1 }));
    EXPECT_EQ("error: scandir /proc failed.", journal.only("error: warning:"));
    EXPECT_EQ(1u, journal.count("info: monp_getservice(/bin/svc) not found. (ret:4)"));
}

// ---- the search and the wait for an end ----

TEST_F(Service, TheSearchFindsTheFirstInByteOrder)
{
    running(99);
    running(100);
    running(1000, { .exe = "/bin/svc2" });
    sys.procnames = { ".", "..", "self", "uptime", "1x" };
    EXPECT_EQ(MONP_RET_SUCCESS, monp_getservice(arg("/bin/svc"), &pid));
    EXPECT_EQ(100, pid);
    EXPECT_EQ("readlink /proc/100/exe; info: service process is found. (pid=100)",
              journal.only("readlink info: error:"));
}

TEST_F(Service, TheSearchComparesResolvedPathsThatFit)
{
    for (auto [exe, resolved, found] : { std::tuple{ std::string("/bin/svc"), std::string("/real/svc"), false },
                                         { "/real/svc", "/real/svc", true },
                                         { "/real/svc (deleted)", "/real/svc", false },
                                         { x(1023), x(1023), true },
                                         { x(1024), x(1023), false },
                                         { x(1024), x(1024), false } }) {
        journal.entries.clear();
        running(99, { .exe = exe });
        sys.resolved["/bin/svc"] = resolved;
        EXPECT_EQ(found ? MONP_RET_SUCCESS : MONP_RET_FAIL_UNKNOWN, monp_getservice(arg("/bin/svc"), &pid)) << exe;
        EXPECT_EQ(found ? 99 : 0, pid);
        EXPECT_EQ(found ? 0u : 1u, journal.count("info: service process is not found."));
    }
    // A link that cannot be read and a path that cannot be resolved are no match.
    sys.processes.clear();
    sys.procnames = { "1x", "2", "self", "-3" };
    journal.fails["realpath"] = ENOENT;
    journal.entries.clear();
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_getservice(arg("/bin/svc"), &pid));
    EXPECT_EQ("readlink /proc/2/exe", journal.only("readlink"));
}

TEST_F(Launch, WaitGivesUpAtTheLimit)
{
    sys.processes[50] = {};
    EXPECT_EQ(MONP_RET_FAIL_TIMEOUT, monp_waitprocterm(50, 2));
    EXPECT_EQ("trace: start - (type=trn pid=50 timeout=2); kill 50 0; sleep 1; kill 50 0; sleep 1; kill 50 0; "
              "info: wait timeout. (type=trn pid=50 timeout=2 timer=2); trace: end - (type=trn ret=3 pid=50 timer=2)",
              journal.only());
}

TEST_F(Launch, WaitEndsWithTheProcess)
{
    for (int polls : { 0, 4 }) {
        journal.entries.clear();
        sys.processes[50] = { .polls = polls, .child = false };
        EXPECT_EQ(MONP_RET_SUCCESS, monp_waitprocterm(50, polls == 0 ? 1 : 0));
        EXPECT_EQ(static_cast<size_t>(polls), journal.count("sleep 1"));
        EXPECT_EQ(1u, journal.count("info: process ended. (type=trn pid=50 errno=3)"));
    }
    journal.entries.clear();
    EXPECT_EQ(MONP_RET_SUCCESS, monp_waitprocterm(0, 0));
    EXPECT_EQ(MONP_RET_SUCCESS, monp_waitprocterm(-1, 0));
    EXPECT_EQ("", journal.only("kill sleep")) << "a probe of a process group";
}
