/*
 * From the launcher's command to the running service: the handshake, what is handed down, adoption, the ways to end.
 */
#include "sandbox_monitor.h"

#include <csignal>
#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using sandbox::eventually;
using sandbox::Installation;
using sandbox::Monitor;
using sandbox::proc;

namespace {

void reap(pid_t pid)
{
    eventually("the end of a service", [&] { return waitpid(pid, nullptr, WNOHANG) == pid; });
}

} // namespace

/*
 * Each launcher is let go at its own moment and no later: the report, the time-out of the report, the first wait, and
 * the limit of its own patience.
 */
TEST(Launch, ReleasesTheLauncherInTime)
{
    Installation reports("dusko");
    Installation silent("sorvin");
    Installation waits("nm");
    Installation late("lenk");

    reports.own("param") = "sleep 2 report";
    silent.own("param") = "silent";
    silent.own("child_timeout") = "1";
    late.own("param") = "sleep 3 report";
    late.own("parent_timeout") = "1";
    late.values["lenk/use"] = "1";
    for (const auto* in : { &reports, &silent, &waits, &late }) {
        in->write();
    }
    Monitor first(waits, { "-n" });
    Monitor second(late);
    Monitor third(silent);
    Monitor fourth(reports);

    EXPECT_EQ(0, first.launched());
    EXPECT_LT(first.seconds(), 5.0);
    EXPECT_EQ(0, second.launched());
    EXPECT_GE(second.seconds(), 1.0);
    EXPECT_LT(second.seconds(), 2.8);
    EXPECT_EQ(0, third.launched());
    EXPECT_GE(third.seconds(), 1.0);
    EXPECT_LT(third.seconds(), 1.8); // not after the second that the silent service has to end
    EXPECT_EQ(0, fourth.launched());
    EXPECT_GE(fourth.seconds(), 2.0);
    EXPECT_LT(fourth.seconds(), 2.8); // not with the next poll of the service

    second.wait_for_report(); // the daemon goes on without its launcher
    third.wait_for("event1 *");
    first.wait_for("info waiting for a service start request. (type=nm)");
    EXPECT_EQ(0, third.count("info waiting for a service start request.*"));
}

/*
 * What a started program finds. The program is one that leaves everything as it was handed down.
 */
TEST(Launch, HandsDownToTheService)
{
    Installation in("dusko");
    Installation bare("nm");

    in.values["all/core"] = "1";
    in.values["all/stacksize"] = "16777216";
    in.own("param") = "  1000  0";
    for (const char* key : { "all/env/alloc", "all/env/path", "all/env/lang" }) {
        bare.values[key] = "";
    }
    bare.own("param") = "1000";
    for (int i = 1; i < 31; i++) {
        bare.own("param") += " 0";
    }
    for (const auto* each : { &in, &bare }) {
        fs::copy_file("/bin/sleep", each->root / "bin/service", fs::copy_options::overwrite_existing);
        each->write();
    }
    Monitor monp(in);
    Monitor other(bare);
    const pid_t service = in.service();
    const pid_t neighbour = bare.service();

    // 1 to 30 but HUP, ABRT, KILL, USR1, SEGV, USR2, TERM, CHLD and STOP
    EXPECT_EQ("000000003ffab0de", sandbox::process_status(service, "SigIgn"));
    EXPECT_EQ("0000000000000000", sandbox::process_status(service, "SigBlk"));
    EXPECT_EQ("000000003ffab0de", sandbox::process_status(monp.daemon(), "SigIgn"));
    EXPECT_EQ("0000", sandbox::process_status(service, "Umask"));
    EXPECT_EQ(in.root / "bin", fs::read_symlink(proc(service, "cwd")));
    EXPECT_EQ(in.root / "work/stderr", fs::read_symlink(proc(service, "fd/2")));
    EXPECT_EQ(monp.daemon(), getsid(service));
    EXPECT_EQ(std::string("service\0001000\0000\0", 15), sandbox::file_content(proc(service, "cmdline")));

    const std::string environment = '\0' + sandbox::file_content(proc(service, "environ"));
    for (const char* variable : { "MALLOC_CHECK_=2", "PATH=/usr/bin:/bin", "LANG=C.UTF-8" }) {
        EXPECT_NE(std::string::npos, environment.find('\0' + std::string(variable) + '\0')) << variable;
    }
    const std::string kept = '\0' + sandbox::file_content(proc(neighbour, "environ"));
    for (const char* variable : { "MALLOC_CHECK_=", "PATH=/inherited", "LANG=inherited" }) {
        EXPECT_NE(std::string::npos, kept.find('\0' + std::string(variable) + '\0')) << variable;
    }

    const std::string limits = sandbox::file_content(proc(service, "limits"));
    EXPECT_NE(std::string::npos, limits.find("Max core file size        unlimited            unlimited "));
    EXPECT_NE(std::string::npos, limits.find("Max stack size            16777216             unlimited "));
    EXPECT_TRUE(monp.logged({ "error getrlimit(stacksize:cur=*,max=*)", "error setrlimit(stacksize=16777216) OK." }));
    EXPECT_EQ(sandbox::file_content("/proc/self/limits"), sandbox::file_content(proc(neighbour, "limits")));

    const std::string words = sandbox::file_content(proc(neighbour, "cmdline"));
    EXPECT_EQ(31, std::count(words.begin(), words.end(), '\0'));
    EXPECT_EQ(1, other.count("warning argument reached the maximum. (type=nm_policy max=30 curnum=30)"));
}

/*
 * The lock file of each type is removed at an orderly end, and nobody else's.
 */
TEST(Launch, RemovesTheLockFileOfItsType)
{
    const std::map<std::string, std::string> suffixes = {
        { "pm", "" },
        { "event", "_evt" },
        { "dusko", "_trn" },
        { "pelkant", "_md" },
        { "sorvin", "_sorvin" },
        { "goru", "_ib" },
        { "tamzile", "_tamzsync" },
        { "lenk", "_api" },
        { "nm", "_nm" },
        { "other", "" },
    };
    std::vector<Installation> installations;
    std::vector<Monitor> monitors;

    for (const auto& [type, suffix] : suffixes) {
        Installation in(type);
        in.write();
        for (const auto& [name, each] : suffixes) {
            std::ofstream(in.root / ("work/lock" + each)).flush();
        }
        installations.push_back(in);
        monitors.emplace_back(in, std::vector<std::string>{ "-n" });
    }
    for (size_t i = 0; i < monitors.size(); i++) {
        const Installation& in = installations[i];
        ASSERT_EQ(0, monitors[i].launched());
        monitors[i].wait_for("info waiting for a service start request.*");
        monitors[i].signal(SIGUSR2);
        EXPECT_EQ(0, monitors[i].ended());
        for (const auto& [name, each] : suffixes) {
            const bool own = each == suffixes.at(in.type) && in.type != "other";
            EXPECT_EQ(!own, fs::exists(in.root / ("work/lock" + each))) << in.type << each;
        }
        EXPECT_TRUE(monitors[i].logged({ "info end - (type=" + in.policy_type + " ret=0)" }));
        EXPECT_EQ(0, monitors[i].count("error access() failed.*"));
        EXPECT_EQ(0, monitors[i].count("info monitor term.*"));
    }
}

/*
 * SIGTERM ends the monitor without its exit path. The service lives on, and the next monitor takes it over: it notices
 * its end, and passes on an end request.
 */
TEST(Launch, AdoptsTheServiceOfItsPredecessor)
{
    Installation in("dusko");
    in.own("action") = "2";
    in.write();
    std::ofstream(in.root / "work/lock_trn").flush();
    Monitor first(in);
    ASSERT_EQ(0, first.launched());
    const pid_t service = in.service();
    first.signal(SIGTERM);
    EXPECT_EQ(128 + SIGTERM, first.ended());
    EXPECT_TRUE(fs::exists(in.root / "work/lock_trn"));
    EXPECT_EQ(0, first.count("info end - (type=dusko_policy ret=0)"));

    Monitor second(in);
    EXPECT_EQ(0, second.launched());
    EXPECT_LT(second.seconds(), 5.0);
    EXPECT_TRUE(second.logged({ "info service process is found. (pid=" + std::to_string(service) + ")",
                                "info service process is already started. (type=dusko_policy)" }));
    kill(service, SIGKILL);
    reap(service);
    const pid_t successor = in.service();
    second.wait_for_report(2);
    EXPECT_TRUE(second.logged({ "error process dusko_policy exited. recover is 2. (stat=-1 path=*)", "event2 *",
                                "event3 *", "info monp_getservice(*/bin/service) not found. (ret:4)" }));
    second.signal(SIGTERM);
    second.ended();

    Monitor third(in);
    ASSERT_EQ(0, third.launched());
    third.wait_for("info service process is already started.*", 2);
    third.signal(SIGUSR2);
    reap(successor);
    EXPECT_EQ(0, third.ended());
    EXPECT_TRUE(third.logged(
        { "info throw exit signal. (type=dusko_policy pid=" + std::to_string(successor) + " sig=10)",
          "info monitor term. (type=dusko_policy stat=0 path=* act=2)", "info end - (type=dusko_policy ret=0)" }));
    EXPECT_FALSE(fs::exists(in.root / "work/lock_trn"));
}
