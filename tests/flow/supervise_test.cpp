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
    EXPECT_EQ(2, monp.count("event3 *"));
    EXPECT_TRUE(monp.logged({ "info recovery reached maximum. (type=dusko_policy time=3 max=2)" }));
    EXPECT_GE(monp.count("info now elog collecting. (type=dusko_policy exec=-1)"), 1);
    EXPECT_EQ(1U, in.calls().size());
    EXPECT_EQ(0, kill(std::stoi(sandbox::file_content(in.root / "work/collector")), 0));
}

/*
 * A reload starts what nothing holds back any more, and only that; one that fails ends the monitor.
 */
TEST(Supervise, ReloadPassesTheGates)
{
    const std::pair<const char*, const char*> gates[] = { { "tamzile/use", "info service is disabled. (type=tamzile)" },
                                                          { "dummyconf", "info dummyconf detected." } };

    for (const auto& [key, line] : gates) {
        const bool use = key != std::string("dummyconf");
        Installation in("tamzile");
        in.values["tamzile/use"] = "1";
        in.values[key] = use ? "0" : "1";
        in.write();
        Monitor monp(in);
        ASSERT_EQ(0, monp.launched());
        monp.signal(SIGHUP);
        monp.wait_for(line);
        EXPECT_EQ(std::vector<pid_t>{}, in.services()) << key;

        in.values[key] = use ? "1" : "0";
        in.write();
        monp.signal(SIGHUP);
        monp.wait_for_report();
    }

    Installation in("dusko");
    in.write();
    Monitor monp(in, { "-n" });
    ASSERT_EQ(0, monp.launched());
    monp.signal(SIGHUP);
    monp.wait_for("info service is not started. (type=dusko)");
    in.values.erase("all/core");
    in.write();
    monp.signal(SIGHUP);
    EXPECT_EQ(1, monp.ended());
    EXPECT_TRUE(monp.logged({ "error monp_getconfig() failed. (type=dusko ret=4)" }));
    EXPECT_TRUE(sandbox::file_content(in.root / "work/stderr").starts_with("monp : monp_getconfig() failed. (ret=4 "));
}

/*
 * The marker file's life: removed at start-up, made by the report; removed and made again at a reload, under the name
 * that the reload brought.
 */
TEST(Supervise, KeepsTheMarkerFile)
{
    Installation in("pelkant");
    const fs::path marker = in.root / "work/marker/made";
    in.own("param") = "--ctl ../work/ctl silent";
    in.write();
    fs::create_directory(marker.parent_path());
    std::ofstream(marker) << "stale";
    Monitor first(in);
    in.service();
    EXPECT_FALSE(fs::exists(marker));
    in.command("report");
    EXPECT_EQ(0, first.launched());
    eventually("the marker file", [&] { return fs::exists(marker); });
    in.command("exit 3");
    EXPECT_EQ(0, first.ended());

    Monitor second(in, { "-n" });
    ASSERT_EQ(0, second.launched());
    eventually("the marker file of one that waits", [&] { return fs::exists(marker); });
    in.values["monp/md/filename"] = "renamed";
    in.write();
    second.signal(SIGHUP);
    eventually("the renamed marker file", [&] { return fs::exists(marker.parent_path() / "renamed"); });
    EXPECT_FALSE(fs::exists(marker));
}
