/*
 * The daemon's life between start and end: reloads, restarts, collections, the marker file.
 */
#include "sandbox_monitor.h"

#include <csignal>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using sandbox::eventually;
using sandbox::Installation;
using sandbox::Monitor;

/*
 * Restarts are counted up to the limit. A collection that is still running turns the next ones away, and lives on when
 * the monitor ends. None of many zombies is taken for the service, be it one of its own, while they vanish.
 */
TEST(Supervise, RestartsUpToTheLimitAndCollectsOnce)
{
    Installation in("dusko");
    in.own("action") = "2";
    in.own("restarttime") = "2";
    in.own("param") = "report exit 3";
    in.script("collect", "echo $$ >../work/collector\nexec sleep 1000\n");
    in.write();
    std::vector<pid_t> zombies(300);
    for (pid_t& pid : zombies) {
        pid = fork();
        if (pid == 0) {
            _exit(&pid != &zombies[0] ? 0 : execl((in.root / "bin/service").c_str(), "", "exit", "0", nullptr));
        }
        siginfo_t ended;
        waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOWAIT);
    }
    Monitor monp(in);
    ASSERT_EQ(0, monp.launched());
    for (const pid_t pid : zombies) {
        waitpid(pid, nullptr, 0);
        usleep(5000);
    }

    EXPECT_EQ(0, monp.ended());
    EXPECT_EQ(3, monp.count("info service process is not found."));
    EXPECT_EQ(3, monp.count("error process dusko_policy exited. recover is 2. (stat=3 path=*"));
    EXPECT_TRUE(monp.logged({ "info recovery reached maximum. (type=dusko_policy time=3 max=2)" }));
    EXPECT_GE(monp.count("info now elog collecting. (type=dusko_policy exec=-1)"), 1);
    EXPECT_EQ(1U, in.calls().size());
    EXPECT_EQ(0, kill(std::stoi(sandbox::file_content(in.root / "work/collector")), 0));
}

/*
 * What a reload changes is followed at once; one that fails ends the monitor.
 */
TEST(Supervise, ReloadIsFollowedOrEndsTheMonitor)
{
    Installation in("pelkant");
    const fs::path directory = in.root / "work/marker";
    fs::create_directory(directory);
    std::ofstream(directory / "made") << "stale";
    in.values["dummyconf"] = "1";
    in.write();
    Monitor monp(in);
    ASSERT_EQ(0, monp.launched());
    monp.wait_for("info waiting for a service start request. *");
    std::error_code missing;
    eventually("the marker file of one that waits", [&] { return fs::is_empty(directory / "made", missing); });
    EXPECT_EQ(std::vector<pid_t>{}, in.services());

    in.values["dummyconf"] = "0";
    in.values["monp/md/filename"] = "renamed";
    in.write();
    monp.signal(SIGHUP);
    monp.wait_for_report();
    eventually("the renamed marker file", [&] { return fs::exists(directory / "renamed"); });
    EXPECT_FALSE(fs::exists(directory / "made"));

    monp.signal(SIGUSR2);
    EXPECT_EQ(0, monp.ended());

    Monitor waits(in, { "-n" });
    ASSERT_EQ(0, waits.launched());
    in.values.erase("all/core");
    in.write();
    waits.signal(SIGHUP);
    EXPECT_EQ(1, waits.ended());
    EXPECT_TRUE(waits.logged({ "error monp_getconfig() failed. (type=pelkant ret=4)" }));
    EXPECT_TRUE(sandbox::file_content(in.root / "work/stderr").starts_with("monp : monp_getconfig() failed. (ret=4 "));
}
