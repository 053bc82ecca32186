// The set-up of the daemon, the wait of the launcher's process, and the handlers with what the main thread makes of them.
#include "monp_signal.h"
#include "stage.h"

#include <climits>
#include <sys/resource.h>

static std::string launcher()
{
    sys.fork = Sys::LAUNCHER;
    journal.entries.clear();
    return sys.run([] { monp_make_daemon(); });
}

TEST_F(Monitor, TheLauncherWaitsForItsReleaseOrTheTime)
{
    gmonppol.parent_initto = 2;
    EXPECT_EQ("_exit 0", launcher());
    EXPECT_EQ(20u, journal.count("usleep 100000"));
    EXPECT_EQ(0u, journal.count("setsid"));
    gmonppol.parent_initto = INT_MAX; // its tenths of a second do not fit an int
    sys.at(1, [] { sys.handlers[SIGUSR1](SIGUSR1); });
    EXPECT_EQ("_exit 0", launcher());
    EXPECT_EQ(10u, journal.count("usleep 100000"));
    gbmonpterm = gmonppol.parent_initto = 0;
    EXPECT_EQ("_exit 0", launcher());
    EXPECT_EQ(0u, journal.count("usleep"));
    EXPECT_EQ(SIG_IGN, sys.handlers[SIGUSR1]);
    journal.fails["fork"] = EAGAIN;
    EXPECT_EQ("exit 1", launcher());
    EXPECT_EQ("error: fork() failed. (type=trn errno=11)", journal.only("error:"));
}

TEST_F(Monitor, TheChildIsSetUpWithTheLimitsOfTheSettings)
{
    const std::string core = fmt("setrlimit %d -1 -1; ", RLIMIT_CORE);
    const std::string stack = fmt("setrlimit %d 65536 -1; ", RLIMIT_STACK);
    const std::string limits = core + fmt("getrlimit %d; ", RLIMIT_STACK) + stack;
    const std::string failed = "error: setsid() failed. (type=trn errno=1); "
                               "error: setrlimit(core) failed. (type=trn errno=1); "
                               "error: getrlimit(stacksize) failed. (type=trn errno=1); "
                               "error: setrlimit(stacksize=65536) failed. (type=trn errno=1)";
    const std::string told = "error: getrlimit(stacksize:cur=-1,max=8192); error: setrlimit(stacksize=65536) OK.";

    for (const auto& [ncore, nstack, error, course, lines] : { std::tuple{ 2, -1, 0, std::string(), std::string() },
                                                               { 1, 65536, 0, limits, told },
                                                               { 1, 65536, EPERM, limits, failed } }) {
        gmonpallpol.core = ncore;
        gmonpallpol.stacksize = nstack;
        sys.fork = Sys::DAEMON;
        journal.entries.clear();
        journal.fails = { { "setsid", error }, { "setrlimit", error }, { "getrlimit", error }, { "chdir", error } };
        EXPECT_EQ(MONP_RET_SUCCESS, monp_make_daemon());
        EXPECT_EQ("setsid; " + course + "chdir /opt/x/bin/", journal.only("setsid setrlimit getrlimit chdir"));
        EXPECT_EQ(lines, journal.only("error:"));
    }
    EXPECT_TRUE(sys.handlers[SIGHUP] == monp_sighup && sys.handlers[SIGUSR2] == monp_sighandler1);
}

TEST_F(Monitor, HandlersSetTheirFlagAtOnceAndSpeakLater)
{
    for (auto [handler, signal, flag] : { std::tuple{ &monp_sighandler1, SIGUSR1, &gbmonpinited },
                                          { &monp_sighandler1, SIGUSR2, &gbmonpend },
                                          { &monp_sighandler1, SIGHUP, nullptr },
                                          { &monp_sigusr1, SIGUSR1, &gbmonpterm },
                                          { &monp_sigusr1, SIGUSR2, nullptr },
                                          { &monp_sighup, SIGHUP, &gbreload },
                                          { &monp_sighup, SIGUSR1, nullptr } }) {
        journal.entries.clear();
        handler(signal);
        EXPECT_TRUE(journal.entries.empty());
        for (MONP_FLAG* each : { &gbmonpinited, &gbmonpend, &gbreload, &gbmonpterm }) {
            EXPECT_EQ(each == flag ? YES : 0, each->exchange(0));
        }
        monp_drainsignals();
        monp_drainsignals();
        EXPECT_EQ(fmt("trace: start - (type=trn sig=%d); trace: catch signal. (type=trn sig=%d); ", signal, signal) +
                      (flag == nullptr ? fmt("warning: unknown signal. (type=trn sig=%d); ", signal) : "") +
                      "trace: end - (type=trn)",
                  journal.only(""));
    }
}

TEST_F(Monitor, TheMarkerIsMadeBetweenTheLinesOfItsSignal)
{
    break_marker();
    monp_sighandler1(SIGUSR1);
    monp_drainsignals();
    EXPECT_EQ("trace: start - (type=pelkant sig=10); trace: catch signal. (type=pelkant sig=10); "
              "info: start - (type=pelkant); error: mkdir failed. (dir=/nonexistent/md errno=2); "
              "info: end - (type=pelkant); trace: end - (type=pelkant)",
              journal.only(""));
}

TEST_F(Monitor, AStormOfSignalsLosesLinesOnly)
{
    break_marker();
    for (int i = 0; i < 1024; i++) {
        monp_sighup(SIGHUP);
    }
    monp_sighandler1(SIGUSR1);
    EXPECT_EQ(YES, gbmonpinited);
    // A request behind the last record that is looked at has no lines yet, so its flag is not seen either.
    journal.when["warning: signals without a record. (type=pelkant num=1)"] = [] { monp_sighandler1(SIGUSR2); };
    EXPECT_EQ(0, monp_testflag(gbmonpend));
    EXPECT_EQ(YES, monp_testflag(gbmonpend));
    EXPECT_EQ(1u, journal.count("trace: catch signal. (type=pelkant sig=12)"));
    EXPECT_EQ(1024u, journal.count("trace: catch signal. (type=pelkant sig=1)"));
    EXPECT_EQ(1u, journal.count("warning: signals without a record. (type=pelkant num=1)"));
    EXPECT_EQ(1u, journal.count("error: mkdir"));
}

TEST_F(Monitor, ADrainEndsBeforeAStormDoes)
{
    int more = 100;
    std::function<void()> again = [&] {
        if (more-- > 0) {
            journal.when["trace: start - (type=trn sig=1)"] = again;
            monp_sighup(SIGHUP);
        }
    };

    again();
    monp_drainsignals();
    EXPECT_EQ(1u, journal.count("trace: catch signal. (type=trn sig=1)"));
}
