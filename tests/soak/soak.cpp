/*
 * One monitor that restarts its service without limit, while faults come in random order; then its log and its events
 * are held against what was done to it. Run by tests/soak.sh, which sets SOAK_SECONDS and SOAK_SEED in the environment.
 */
#include "sandbox_monitor.h"

#include <csignal>
#include <fnmatch.h>
#include <fstream>
#include <iostream>
#include <random>
#include <unistd.h>

namespace fs = std::filesystem;
using sandbox::Texts;
using std::to_string;

namespace {

constexpr int RUNS = -2; // the service reports
constexpr const char* REPORT = "trace catch signal. (* sig=10)";

/* How a start goes, or the end of a running service: the status of the failed start or of the end, and the command or
   the signal to the service. */
struct Step {
    int status;
    const char* command = nullptr;
    int signal = 0;
};
// clang-format off
const Step STARTS[] = {
    { RUNS, "report" }, { RUNS, "sleep 1 report" }, { 0, "silent" }, { 101, "end ignored" }, { 7, "exit 7" } };
const Step ENDS[] = {
    { 101, nullptr, SIGKILL }, { 101, nullptr, SIGTERM }, { 101, nullptr, SIGUSR2 }, { 0, nullptr, SIGUSR1 },
    { 255, "exit 255" }, { 101, "signal SEGV" }, { -1, "signal USR1" } };
// clang-format on

long count(const Texts& lines, const std::string& pattern)
{
    return std::count_if(lines.begin(), lines.end(),
                         [&](const auto& line) { return fnmatch(pattern.c_str(), line.c_str(), 0) == 0; });
}

struct Soak : testing::Test {
    sandbox::Installation in{ "dusko" };
    std::unique_ptr<sandbox::Monitor> monp;
    std::mt19937 random{ static_cast<unsigned>(std::stoul(std::getenv("SOAK_SEED"))) };
    pid_t service = 0;
    bool reload = false;                 // is asked for, and comes when the monitor waits
    std::map<std::string, int> expected; // lines so far, by patterns
    Texts events;                        // "NUMBER STATUS", in their order

    Soak()
    {
        in.own("action") = "2";
        in.own("param") = "--ctl ../work/ctl silent";
        in.own("child_timeout") = "4";
        in.values["monp/log/size"] = "2000000000";
        std::ofstream(in.root / "work/lock_trn").flush();
        in.write();
        monp = std::make_unique<sandbox::Monitor>(in);
    }

    void TearDown() override
    {
        std::cout << (HasFailure() ? sandbox::file_content(in.root / "log/monp.log") : "");
    }

    void expect(const std::string& pattern)
    {
        monp->wait_for(pattern, ++expected[pattern]);
    }

    void expect_event(int number, int status)
    {
        events.push_back(to_string(number) + ' ' + to_string(status));
        expect("event" + to_string(number) + " *status " + to_string(status) + "[.)]*");
    }

    /* A start that the monitor has begun, and then those that it is asked for until one goes well, as most do. */
    void start()
    {
        for (;; reload = false) {
            const Step& how = STARTS[random() % 3 == 0 ? random() % std::size(STARTS) : 0];
            expect("info monp_getservice(*) not found. *");
            const int before = monp->count(REPORT);
            in.command(how.command);
            if (how.status == RUNS) {
                monp->wait_for(REPORT, before + 1);
                break;
            }
            expect_event(1, how.status);
            if (!reload) {
                ask(random() % 2 == 0 ? SIGUSR1 : SIGHUP);
            }
            if (reload) {
                expect("info reload configuration. *");
            }
        }
        service = in.service();
    }

    /* Asks for a start, or for a reload, which comes when the monitor waits and is a start, too. */
    void ask(int signal)
    {
        reload = reload || signal == SIGHUP;
        monp->signal(signal);
    }

    void end()
    {
        const Step& how = ENDS[random() % std::size(ENDS)];

        kill(service, how.signal);
        kill(service, SIGCONT);
        if (how.command != nullptr) {
            in.command(how.command);
        }
        expect_event(2, how.status);
        expect_event(3, how.status);
    }

    void round()
    {
        const auto kind = random() % 5;

        for (int i = 0; i < 300 && kind == 0; i++) {
            ask(random() % 2 == 0 ? SIGUSR1 : SIGHUP);
            usleep(1000);
        }
        if (kind == 1 && !reload) {
            ask(SIGHUP);
        } else if (kind == 2) {
            kill(service, SIGSTOP);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 1000));
        end();
        start();
    }

    void expect_agreement()
    {
        Texts sent_on;
        for (const auto& line : sandbox::file_lines(in.root / "log/monp.events.jsonl")) {
            sent_on.push_back(line.substr(line.find("\"event\":") + 8, 1) + ' ' +
                              to_string(std::stoi(line.substr(line.find("\"status\":") + 9))));
        }
        EXPECT_EQ(events, sent_on);
        EXPECT_EQ(monp->count("* start - (*") + 1,
                  monp->count("* end - (*")); // that of the program, which starts unlike
        EXPECT_EQ(events.size(), monp->count("event*"));
        EXPECT_EQ(count(events, "1 *"), monp->count("error initialize error. *"));
        EXPECT_EQ(count(events, "3 *"), monp->count("error process dusko_policy exited. recover is 2. *"));
        // An event follows a line of its own; there is one more for a deadly signal.
        EXPECT_EQ(count(events, "[12] *") + count(events, "[12] 101"),
                  monp->count("error *") + monp->count("warning *"));
        EXPECT_EQ(count(events, "3 *"), monp->count("info start - *", "monp_elog_collect"));
        EXPECT_EQ(count(events, "3 *") - monp->count("info now elog collecting. *"), count(in.calls(), "collect *"));
    }
};

} // namespace

TEST_F(Soak, RecordsAgree)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(std::stoi(std::getenv("SOAK_SECONDS")));
    int rounds = 0;

    start();
    for (; rounds <= 5 || std::chrono::steady_clock::now() < limit; rounds++) {
        round();
    }
    monp->signal(SIGUSR2);
    EXPECT_EQ(0, monp->ended());
    EXPECT_TRUE(in.services().empty() && !fs::exists(in.root / "work/lock_trn"));
    expect_agreement();
    std::cout << rounds << " rounds, " << events.size() << " events\n";
}
