/*
 * The daemon's life between start and end: failed starts, waiting, reloads, restarts, collections, the marker file.
 */
#include "sandbox_monitor.h"

#include <csignal>
#include <fstream>
#include <sys/stat.h>

namespace fs = std::filesystem;
using sandbox::eventually;
using sandbox::Installation;
using sandbox::Monitor;

namespace {

void write_script(const fs::path& file, const std::string& text)
{
    fs::remove(file); // what runs it keeps the old one
    std::ofstream(file) << text;
    fs::permissions(file, fs::perms(0755));
}

unsigned mode(const fs::path& file)
{
    struct stat status = {};

    return stat(file.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

} // namespace

/*
 * A service that does not report is ended, one that cannot be executed or started counts as failed, and each waits for
 * a start request. A start that failed shows in the exit status whatever comes later.
 */
TEST(Supervise, FailedStartsWaitForARequest)
{
    Installation in("dusko");
    in.own("param") = "--ctl ../work/ctl silent";
    in.own("child_timeout") = "2";
    in.write();
    Monitor monp(in);
    in.command("end ignored");
    EXPECT_EQ(0, monp.launched());
    monp.wait_for("event1 *");
    EXPECT_TRUE(monp.logged({ "info throw exit signal. (type=dusko_policy pid=* sig=10)",
                              "info throw exit signal. (type=dusko_policy pid=* sig=9)",
                              "error process exited for term signal. (type=dusko_policy pid=* stat=9 sig=9)",
                              "info end - (type=dusko_policy ret=0 pid=* stat=101)",
                              "error initialize error. (type=dusko_policy stat=101 path=*/bin/service)",
                              "event1 *dusko_policy*(status 101)." }));

    const std::string program = sandbox::file_content(in.root / "bin/service");
    write_script(in.root / "bin/service", "no program\n");
    monp.signal(SIGUSR1);
    monp.wait_for("event1 *", 2);
    EXPECT_TRUE(monp.logged({ "error execv() failed. (type=dusko_policy path=*/bin/service errno=8)",
                              "info throw exit signal. (type=dusko_policy pid=* sig=10)",
                              "info throw exit signal. (type=dusko_policy pid=* sig=9)",
                              "info process exited. (type=dusko_policy pid=* stat=4)",
                              "error initialize error. (type=dusko_policy stat=4 path=*/bin/service)" }));

    fs::permissions(in.root / "bin/service", fs::perms(0644));
    monp.signal(SIGUSR1);
    monp.wait_for("event1 *", 3);
    EXPECT_TRUE(monp.logged({ "error access() failed. (type=dusko_policy errno=13)",
                              "error start of processing failed. (type=dusko_policy ret=4 path=*/bin/service)",
                              "event2 *dusko_policy*(status -1).",
                              "error initialize error. (type=dusko_policy stat=-1 path=*/bin/service)" }));

    write_script(in.root / "bin/service", program);
    monp.signal(SIGUSR1);
    in.service();
    in.command("report exit 0");
    EXPECT_EQ(4, monp.ended());
    EXPECT_TRUE(monp.logged({ "error process dusko_policy exited. recover is 1. (stat=0 path=*)",
                              "info recovery is none. (type=dusko_policy pact=1 fact=1)" }));
    EXPECT_EQ(0, monp.count("info waiting for a service start request.*")); // the time-out had released the launcher
    EXPECT_EQ(0, monp.count("event3 *"));
}

/*
 * Restarts are counted up to the limit. A collection that is still running turns the next ones away, and lives on when
 * the monitor ends.
 */
TEST(Supervise, RestartsUpToTheLimitAndCollectsOnce)
{
    Installation in("dusko");
    in.own("action") = "2";
    in.own("restarttime") = "2";
    in.own("param") = "report exit 3";
    in.values["monp/elog/pattern"] = "3";
    in.values["monp/elog/rotate"] = "12345678";
    write_script(in.root / "bin/collect",
                 "#!/bin/sh\necho \"$0 $*\" >>../work/collected\necho $$ >../work/collector\nexec sleep 1000\n");
    in.write();
    Monitor monp(in);
    ASSERT_EQ(0, monp.launched());

    EXPECT_EQ(0, monp.ended());
    EXPECT_EQ(3, monp.count("error process dusko_policy exited. recover is 2. (stat=3 path=*"));
    EXPECT_EQ(2, monp.count("event3 *"));
    EXPECT_TRUE(monp.logged(
        { "info recovery reached maximum. (type=dusko_policy time=3 max=2)", "info end - (type=dusko_policy ret=0)" }));
    EXPECT_GE(monp.count("info now elog collecting. (type=dusko_policy exec=-1)"), 1);
    EXPECT_TRUE(monp.logged(
        { "error small buffer. (figure=8 wrpos=0 len=8)", "info cs_itoasc() failed. (ret=6 rotate=12345678)" }));
    const std::string root = in.root;
    EXPECT_EQ(root + "/bin/collect -t monitor-dusko_policy -l -d -o " + root + "/work/elog.tgz\n",
              sandbox::file_content(in.root / "work/collected"));
    EXPECT_EQ(0, kill(std::stoi(sandbox::file_content(in.root / "work/collector")), 0));
}

/*
 * The kinds of end that the service can have, each with a collection of its own: one that cannot be run, one that fails,
 * and one that works.
 */
TEST(Supervise, TellsTheKindsOfEnd)
{
    Installation in("dusko");
    in.own("action") = "2";
    in.own("param") = "--ctl ../work/ctl --coredir ../work report";
    in.values["monp/elog/pattern"] = "0";
    in.values["monp/elog/rotate"] = "-5";
    in.values["all/core"] = "1";
    fs::permissions(in.root / "bin/collect", fs::perms(0644));
    in.write();
    Monitor monp(in);
    ASSERT_EQ(0, monp.launched());

    in.command("signal SEGV");
    monp.wait_for("error monp_create_process() failed. (type=dusko_policy ret=4 path=*/bin/collect)");
    monp.wait_for("info end - (type=dusko_policy ret=4 stat=-1)");
    monp.wait_for_report(2);
    fs::permissions(in.root / "bin/collect", fs::perms(0755));
    std::ofstream(in.root / "work/collect.status") << "1\n";
    in.command("core");
    monp.wait_for("info end - (type=dusko_policy ret=0 stat=1)");
    monp.wait_for_report(3);
    fs::remove(in.root / "work/collect.status");
    in.command("signal USR1");
    monp.wait_for("info end - (type=dusko_policy ret=0 stat=0)");
    monp.wait_for_report(4);
    monp.signal(SIGUSR2);
    EXPECT_EQ(0, monp.ended());

    EXPECT_TRUE(monp.logged({ "error process exited for term signal. (type=dusko_policy pid=* stat=11 sig=11)",
                              "error process dusko_policy exited. recover is 2. (stat=101 path=*)",
                              "error process exited for term signal. (type=dusko_policy pid=* stat=134 sig=6)",
                              "error process exited for core was outed. (type=dusko_policy pid=* stat=134 sig=6)",
                              "error process dusko_policy exited. recover is 2. (stat=102 path=*)",
                              "error process dusko_policy exited. recover is 2. (stat=-1 path=*)" }));
    const std::string call =
        "[-t] [monitor-dusko_policy] [-o] [" + (in.root / "work/elog.tgz").string() + "] [-r] [-5]";
    EXPECT_EQ((std::vector<std::string>{ call, call }), in.calls("collect"));
    EXPECT_EQ(0, monp.count("info now elog collecting.*"));
}

/*
 * A reload starts what nothing holds back any more, and only that.
 */
TEST(Supervise, ReloadPassesTheGates)
{
    Installation unused("tamzile");
    Installation dummy("goru");
    Installation unread("lenk");
    Installation held("dusko");

    unused.values["tamzile/use"] = "0";
    dummy.values["dummyconf"] = "1";
    held.values["dummyconf"] = "1";
    for (const auto* in : { &unused, &dummy, &unread, &held }) {
        in->write();
    }
    Monitor unused_run(unused);
    Monitor dummy_run(dummy);
    Monitor unread_run(unread);
    Monitor held_run(held, { "-n" });

    for (auto* run : { &unused_run, &dummy_run, &unread_run, &held_run }) {
        ASSERT_EQ(0, run->launched());
        run->wait_for("info waiting for a service start request.*");
        run->signal(SIGHUP);
    }
    unused_run.wait_for("info service is disabled. (type=tamzile)");
    dummy_run.wait_for("info dummyconf detected.");
    unread_run.wait_for("info service is disabled. (type=lenk)"); // without a key it is not in use
    held_run.wait_for("info service is not started. (type=dusko)");
    held_run.signal(SIGUSR1);
    held_run.wait_for_report();
    for (const auto* in : { &unused, &dummy, &unread, &held }) {
        EXPECT_EQ(std::vector<pid_t>{}, in->services()) << in->type;
    }

    unused.values["tamzile/use"] = "1";
    unused.own("restarttime") = "9";
    dummy.values["dummyconf"] = "0";
    unread.values["lenk/use"] = "1";
    held.values.erase("all/core");
    for (const auto* in : { &unused, &dummy, &unread, &held }) {
        in->write();
    }
    for (auto* run : { &unused_run, &dummy_run, &unread_run, &held_run }) {
        run->signal(SIGHUP);
    }
    for (auto* run : { &unused_run, &dummy_run, &unread_run }) {
        run->wait_for_report();
        EXPECT_EQ(1, run->count("info waiting for a service start request.*"));
    }
    EXPECT_EQ(0, unused_run.count("info restart -> 9")); // settings of the first load stay
    EXPECT_EQ(1, held_run.ended());
    EXPECT_TRUE(held_run.logged({ "error monp_xml_getallpolicy() failed. (ret=4 type=all)",
                                  "error monp_getconfig() failed. (type=dusko ret=4)",
                                  "info end - (type=dusko_policy ret=1)" }));
    EXPECT_TRUE(
        sandbox::file_content(held.root / "work/stderr").starts_with("monp : monp_getconfig() failed. (ret=4 "));
}

/*
 * Neither a dummy configuration nor a missing use flag holds back the other types. A reload requested while the service
 * runs waits until it has ended.
 */
TEST(Supervise, ReloadWaitsForTheEndOfTheService)
{
    Installation in("sorvin");
    in.values["dummyconf"] = "1";
    in.own("param") = "--ctl ../work/ctl report";
    in.own("action") = "2";
    in.own("child_timeout") = "2";
    in.write();
    Monitor monp(in);
    ASSERT_EQ(0, monp.launched());
    monp.signal(SIGHUP);
    monp.wait_for("trace catch signal. (type=sorvin_policy sig=1)");
    EXPECT_EQ(0, monp.count("info reload configuration.*"));

    write_script(in.root / "bin/service", "no program\n");
    in.command("exit 3");
    monp.wait_for("info reload configuration. (type=sorvin)");
    EXPECT_TRUE(monp.logged({ "event3 *", "event1 *", "info reload configuration. (type=sorvin)",
                              "info start - (type=sorvin_policy path=*/bin/service *" }));
    EXPECT_EQ(0, monp.count("info service is disabled.*"));
    EXPECT_EQ(0, monp.count("info dummyconf detected."));
}

/*
 * The marker file's life: removed at start-up, made by the report, removed and made again at a reload, under the name
 * that the reload brought.
 */
TEST(Supervise, KeepsTheMarkerFile)
{
    Installation in("pelkant");
    const fs::path marker = in.root / "work/marker/made";
    in.own("param") = "--ctl ../work/ctl silent";
    in.write();
    Monitor first(in);
    in.service();
    EXPECT_EQ(1, first.count("error Not exist file. (file=" + in.root.string() + "/work/marker/made errno=2)"));
    EXPECT_FALSE(fs::exists(marker.parent_path()));
    in.command("report");
    EXPECT_EQ(0, first.launched());
    eventually("the marker file", [&] { return fs::exists(marker); });
    EXPECT_EQ(0744U, mode(marker.parent_path()));
    EXPECT_EQ(0666U, mode(marker));
    in.command("exit 3");
    EXPECT_EQ(0, first.ended());

    in.values["dummyconf"] = "1";
    in.write();
    std::ofstream(marker, std::ios::app) << "stale";
    Monitor second(in);
    ASSERT_EQ(0, second.launched());
    second.wait_for("info waiting for a service start request. (type=pelkant)");
    eventually("a new marker file", [&] { return fs::exists(marker) && fs::is_empty(marker); });
    in.values["monp/md/filename"] = "renamed";
    in.write();
    second.signal(SIGHUP);
    eventually("the renamed marker file", [&] { return fs::exists(marker.parent_path() / "renamed"); });
    EXPECT_FALSE(fs::exists(marker));
    second.signal(SIGUSR2);
    EXPECT_EQ(0, second.ended());
}
