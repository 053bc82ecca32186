/*
 * Faults that bring supervisors down: storms, failures in great number, an environment or an installation in disorder.
 * MONP_ROUNDS in the environment is how often a test repeats what takes turns, for a soak.
 */
#include "sandbox_monitor.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <linux/sched.h>

namespace fs = std::filesystem;
using sandbox::eventually;
using sandbox::Installation;
using sandbox::Monitor;
using sandbox::Texts;

namespace {

int rounds(int usual)
{
    const char* given = std::getenv("MONP_ROUNDS");

    return given == nullptr ? usual : std::atoi(given);
}

/*
 * An executable file that is no program, in the place of one.
 */
void spoil(const fs::path& program)
{
    fs::rename(program, program.string() + ".good");
    std::ofstream(program) << "garbage";
    fs::permissions(program, fs::perms(0755));
}

/*
 * A service that reports and ends, with what it does in between.
 */
void dying_service(const Installation& in, const std::string& between = "")
{
    in.script("service", "kill -USR1 $PPID\n" + between + "\nexit 3\n");
}

} // namespace

/*
 * At about 1 kHz, while the service runs and while the monitor waits. Each delivered signal leaves its three lines, and
 * the end request is not lost among them.
 */
TEST(Fault, StormOfSignals)
{
    for (const Texts& arguments : { Texts{}, Texts{ "-n" } }) {
        Installation in("dusko");
        in.write();
        Monitor monp(in, arguments);
        ASSERT_EQ(0, monp.launched());
        for (int i = 0; i < rounds(700); i++) {
            monp.signal(i % 2 == 0 ? SIGHUP : SIGUSR1);
            usleep(1000);
        }
        monp.signal(SIGUSR2);
        EXPECT_EQ(0, monp.ended());

        Texts told;
        for (const auto& line : monp.lines()) {
            if (line.function.starts_with("monp_sigh")) { // sighup or sighandler1
                told.push_back(line.text.substr(0, line.text.find(' ')));
            }
        }
        EXPECT_GT(told.size(), static_cast<size_t>(rounds(700)) / 4);
        EXPECT_EQ(0U, told.size() % 3);
        for (size_t i = 0; i < told.size(); i++) {
            EXPECT_EQ((std::array{ "start", "catch", "end" }[i % 3]), told[i]) << i;
        }
        EXPECT_EQ(0, monp.count("warning *"));
    }
}

/*
 * Each round the service dies, the restart cannot start it, and a reload changes every text of the collector while the
 * collection begins and goes on: it keeps to those of the moment when the service died.
 */
TEST(Fault, ReloadBesideACollection)
{
    Installation in("dusko");
    const auto collector = [](int round) { return std::string(200, round % 2 == 0 ? 'a' : 'b'); };
    const auto configure = [&](int round) {
        const std::string name = collector(round);
        in.values["monp/elog/path"] = "bin/" + name;
        in.values["monp/elog/arcpath"] = "work/" + name;
        in.values["monp/type"] = name.substr(0, 10);
        in.values["dusko/type"] = name.substr(0, 15);
        in.write();
    };
    in.hurried = true;
    in.own("action") = "2";
    in.own("child_timeout") = "4000";
    in.script(collector(0), "");
    in.script(collector(1), "");
    dying_service(in, "chmod 644 \"$0\"\nwhile [ ! -e ../work/go ]; do sleep 0.01; done\nkill -HUP $PPID");
    configure(0);
    Monitor monp(in);
    ASSERT_EQ(0, monp.launched());
    const fs::path held = "/proc/" + std::to_string(monp.daemon()) + "/fd";
    const auto descriptors = std::distance(fs::directory_iterator(held), {});
    for (int round = 0;; round++) {
        monp.wait_for_report(2 * round + 1);
        configure(round + 1);
        std::ofstream(in.root / "work/go").flush();
        monp.wait_for("info end - (* stat=0)", round + 1, "monp_elog_collect");
        monp.wait_for("error access() failed. *", 2 * round + 2);
        if (round == rounds(15)) {
            EXPECT_LE(std::distance(fs::directory_iterator(held), {}), descriptors + 2) << "reloads leave some open";
            break;
        }
        fs::remove(in.root / "work/go");
        fs::permissions(in.root / "bin/service", fs::perms(0755));
        monp.signal(SIGUSR1);
        monp.wait_for_report(2 * round + 2);
    }
    monp.signal(SIGUSR2);
    EXPECT_EQ(4, monp.ended());

    int round = 0;
    for (const auto& call : in.calls()) {
        if (!call.starts_with("service ")) {
            const std::string name = collector(round);
            EXPECT_EQ(name + " [-t] [" + name.substr(0, 10) + '-' + name.substr(0, 15) + "] [-l] [-o] [" +
                          (in.root / "work" / name).string() + "] [-r] [5]",
                      call);
            round++;
        }
    }
    EXPECT_GE(round, rounds(15));
}

/*
 * A service that reports and dies, again and again, with a collector that cannot be executed: each instance notes the
 * descriptors, children, threads and memory of its monitor.
 */
TEST(Fault, RestartStorm)
{
    const int restarts = rounds(80);
    Installation in("dusko");
    in.launcher = [] { // what was freed, a sanitizer would count as held
        setenv("ASAN_OPTIONS", (std::getenv("ASAN_OPTIONS") + std::string(":quarantine_size_mb=1")).c_str(), 1);
    };
    in.hurried = true;
    in.own("action") = "2";
    in.own("restarttime") = std::to_string(restarts);
    in.own("child_timeout") = "4000";
    spoil(in.root / "bin/collect");
    dying_service(in, "set -- /proc/$PPID/fd/*\n"
                      "echo $# $(wc -w </proc/$PPID/task/$PPID/children) "
                      "$(awk '/^(Threads|VmRSS)/ { print $2 }' /proc/$PPID/status) >>../work/held");
    in.write();
    Monitor monp(in);
    ASSERT_EQ(0, monp.launched());
    eventually("the last restart", [&] { return monp.count("event3 *") == restarts; });
    EXPECT_EQ(0, monp.ended());
    EXPECT_EQ(restarts + 1, monp.count("event2 *"));
    EXPECT_TRUE(monp.logged({ "info recovery reached maximum. *" }));

    const Texts held = sandbox::file_lines(in.root / "work/held");
    ASSERT_EQ(static_cast<size_t>(restarts) + 1, held.size());
    int then[4];
    int now[4];
    std::istringstream(held[9]) >> then[0] >> then[1] >> then[2] >> then[3];
    std::istringstream(held.back()) >> now[0] >> now[1] >> now[2] >> now[3];
    EXPECT_EQ(then[0], now[0]) << "descriptors";
    EXPECT_LE(now[1], 2) << "children";
    EXPECT_LE(now[3], then[3] + 1) << "threads";
    EXPECT_LT(now[2], then[2] * 5 / 4) << "memory";

    // Each child that could not be executed leaves one line, and its collection the status; the last may be cut off.
    const int failed = monp.count("error execv() failed. (*/collect errno=8)");
    const int told = monp.count("info end - (* ret=0 stat=4)", "monp_elog_collect");
    EXPECT_GT(told, restarts / 4);
    EXPECT_TRUE(failed == told || failed == told + 1) << failed << " and " << told;
}

/*
 * The monitor ends while the collection has just begun, after a recovery command that is no program or without one.
 */
TEST(Fault, EndsBesideACollection)
{
    for (int round = 0; round < rounds(10); round++) {
        const bool stops = round % 2 == 0;
        Installation in("dusko");
        in.hurried = true;
        in.own("action") = stops ? "3" : "1";
        in.own("child_timeout") = "4000";
        spoil(in.root / "bin/cl");
        dying_service(in);
        in.write();
        Monitor monp(in);
        ASSERT_EQ(0, monp.launched());
        EXPECT_EQ(stops ? 4 : 0, monp.ended());
        EXPECT_EQ(stops ? 1 : 0, monp.count("error execv() failed. (*/cl errno=8)"));
        EXPECT_EQ(stops ? 1 : 0, monp.count("error stop of cluster failed. (* stat=0x4)"));
        EXPECT_EQ(stops ? 1 : 0, monp.count("event5 *(status 4)."));
        EXPECT_EQ(1, monp.count("info end - (type=dusko_policy ret=*)", "main"));
    }
}

/*
 * The executable is replaced while the service runs, by something that is no program, and so is the collector; somebody
 * else reports for it, but for the last time. Then the program is back.
 */
TEST(Fault, ReplacedExecutable)
{
    const int starts = rounds(40);
    Installation in("dusko");
    in.hurried = true;
    in.own("action") = "2";
    in.own("child_timeout") = "400"; // two seconds
    in.own("param") = "report";
    in.write();
    Monitor monp(in);
    ASSERT_EQ(0, monp.launched());
    const pid_t service = in.service();
    spoil(in.root / "bin/collect");
    spoil(in.root / "bin/service");
    kill(service, SIGKILL);
    for (int start = 1; start < starts; start++) {
        monp.wait_for("info monp_getservice(*", start + 1);
        monp.signal(SIGUSR1);
    }
    monp.wait_for("event1 *");
    EXPECT_TRUE(monp.logged({ "event3 *", "error execv() failed. (* errno=8)", "info process exited. (* stat=4)",
                              "error initialize error. (* stat=4 *)", "event1 *(status 4)*" }));
    EXPECT_EQ(starts, monp.count("error execv() failed. (*/service errno=8)"));
    EXPECT_EQ(starts, monp.count("info end - (* ret=0 pid=* stat=4)", "monp_create_process_svc"));
    EXPECT_EQ(starts - 1, monp.count("event2 *(status 4)*"));
    fs::rename(in.root / "bin/service.good", in.root / "bin/service");
    monp.signal(SIGUSR1);
    monp.wait_for_report(starts + 2);
    monp.signal(SIGUSR2);
    EXPECT_EQ(0, monp.ended());
}

/*
 * What is in the way of the marker and of the lock file.
 */
TEST(Fault, Obstacles)
{
    const struct {
        const char* directory; // of the marker file
        const char* line;
    } cases[] = {
        { "work/file", "error fopen failed. (* errno=20)" },
        { "work/nowhere", "error mkdir failed. (* errno=17)" },
        { "work/link", "" },
    };

    for (const auto& c : cases) {
        Installation in("pelkant");
        in.hurried = true;
        in.values["monp/md/dirpath"] = c.directory;
        in.values["all/stacksize"] = "4096"; // what it has by then stays
        std::ofstream(in.root / "work/file").flush();
        fs::create_symlink("none", in.root / "work/nowhere");
        fs::create_directory_symlink("../log", in.root / "work/link");
        fs::create_directory(in.root / "work/lock_md");
        in.write();
        Monitor monp(in); // whose service dies of such a stack
        ASSERT_EQ(0, monp.launched());
        monp.wait_for("event1 *");
        monp.wait_for(*c.line == '\0' ? "info end - (type=pelkant)" : c.line, 2);
        EXPECT_EQ(*c.line == '\0', fs::exists(in.root / "log/made"));
        monp.signal(SIGUSR2);
        EXPECT_EQ(0, monp.ended());
        EXPECT_TRUE(monp.logged({ "error setrlimit(stacksize=4096) OK.", "error process exited for term signal. *",
                                  "error unlink() failed. (* err=21)", "info end - (type=pelkant ret=0)" }));
    }
}

/*
 * The launcher is killed, and somebody else has its pid when it would be told.
 */
TEST(Fault, LauncherIsGone)
{
    static volatile sig_atomic_t told = 0; // process 1, the daemon's parent now
    signal(SIGUSR1, [](int) { told = 1; });
    Installation in("dusko");
    in.launcher = [&in] { std::ofstream(in.root / "work/launcher") << getpid(); };
    in.own("param") = "--ctl ../work/ctl silent";
    in.write();
    Monitor monp(in);
    in.service();
    pid_t launcher = std::stoi(sandbox::file_content(in.root / "work/launcher"));
    kill(launcher, SIGKILL);
    EXPECT_EQ(128 + SIGKILL, monp.launched());
    clone_args args = {};
    args.exit_signal = SIGCHLD;
    args.set_tid = reinterpret_cast<uintptr_t>(&launcher);
    args.set_tid_size = 1;
    if (syscall(SYS_clone3, &args, sizeof(args)) == 0) {
        _exit(pause());
    }
    in.command("report");
    monp.wait_for_report();
    monp.signal(SIGUSR2);
    EXPECT_EQ(0, monp.ended());
    EXPECT_EQ(0, told);
    EXPECT_EQ(0, waitpid(launcher, nullptr, WNOHANG)) << "the bystander was signalled";
    kill(launcher, SIGKILL);
}

/*
 * Names that a shell or a format would read in another way, and numbers that overflow where they are multiplied.
 */
TEST(Fault, OddNamesAndNumbers)
{
    const std::string odd = "a %s%n \"'\\$(x);*";
    Installation in("pelkant");
    const fs::path work = in.root / "work" / odd;
    in.hurried = true;
    for (const char* key : { "parent_timeout", "child_timeout", "restarttime", "waittime" }) {
        in.own(key) = "2147483647";
    }
    for (const char* key : { "pelkant/path", "monp/elog/path", "cl/path" }) {
        in.values[key] = "bin/" + odd + key[0];
        in.script(odd + key[0], key[0] == 'p' ? "kill -USR1 $PPID\nexit 3\n" : "");
    }
    in.own("param") = in.values["monp/md/filename"] = odd;
    in.own("action") = "3";
    in.values["monp/elog/arcpath"] = in.values["monp/md/dirpath"] = "work/" + odd;
    in.values["monp/elog/rotate"] = "-2147483648";
    in.values["pm/lockf"] = work;
    std::ofstream(work.string() + "_md").flush();
    in.write();
    Monitor monp(in);
    ASSERT_EQ(0, monp.launched());
    EXPECT_EQ(0, monp.ended());
    EXPECT_TRUE(fs::exists(work / odd));
    EXPECT_FALSE(fs::exists(work.string() + "_md"));
    Texts calls;
    eventually("the collector", [&] { return (calls = in.calls()).size() == 3; });
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ((Texts{ odd + "c [-t] [--type] [monitor] [--nochk]",
                      odd + "m [-t] [monitor-pelkant] [-l] [-o] [" + work.string() + ']',
                      odd + "p [a] [%s%n] [\"'\\$(x);*]" }),
              calls);
}
