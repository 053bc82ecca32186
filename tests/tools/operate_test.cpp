/*
 * monpctl status, start, stop and reload, with the monitors that they are for.
 */
#include "monpctl_run.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using nlohmann::json;
using sandbox::eventually;
using sandbox::file_content;
using sandbox::Installation;
using sandbox::monpctl;

namespace {

/* NOLINTNEXTLINE(bugprone-exception-escape): the linter doubts that an empty json is made without one */
struct Status {
    int result;
    json report;

    [[nodiscard]] std::string state() const
    {
        return report["state"];
    }
    [[nodiscard]] pid_t pid(const char* of) const
    {
        return report[of].is_null() ? 0 : report[of]["pid"].get<pid_t>();
    }
    [[nodiscard]] bool warns(const std::string& text) const
    {
        return report["warnings"].dump().find(text) != text.npos;
    }
};

Status status_of(const Installation& in)
{
    const auto run = monpctl(in, "status " + in.type + " --json");

    return { run.status, json::parse(file_content(in.root / "work/monpctl.out")).at(0) };
}

Status wait_for_state(const Installation& in, const std::string& state, int result)
{
    Status status;

    eventually(state, [&] { return (status = status_of(in)).state() == state; });
    EXPECT_EQ(result, status.result) << state;
    return status;
}

void expect_told(const sandbox::Run& run, int status, const std::string& text)
{
    EXPECT_EQ(status, run);
    EXPECT_NE(std::string::npos, run.errors.find(text)) << run.errors;
}

sandbox::Run stop_by_force(const Installation& in)
{
    return monpctl(in, "stop --yes " + in.type);
}

} // namespace

/*
 * What the starter leaves open, blocks, ignores or has in its environment must not reach the monitor, and a second
 * start at the same time must not make a second one.
 */
TEST(Operate, LivesAWholeLife)
{
    Installation in("dusko");
    in.own("action") = "2";
    in.own("param") = "--ctl ../work/ctl sleep 2 report";
    in.script("collect", "exec sleep 60\n"); // hangs, and is no service
    in.write();
    setenv("TESK_HOME", in.root.c_str(), 1);

    EXPECT_EQ(3, status_of(in).result);
    const std::string odd =
        "umask 0; STRAY=1 env --ignore-signal=RTMAX --ignore-signal=CHLD --block-signal=HUP " SANDBOX_MONPCTL
        " start dusko 9</dev/null";
    EXPECT_EQ(0, monpctl(in, "status; " + odd + " & " + odd + "; a=$?; wait $!; exit $((a + $?))"));
    const Status first = wait_for_state(in, "running", 0);
    EXPECT_EQ(std::vector<pid_t>{ first.pid("service") }, in.services());
    EXPECT_FALSE(first.warns("monitors of this type"));
    EXPECT_TRUE(fs::exists(in.root / "work/lock_trn"));
    EXPECT_EQ(fs::perms(0755), fs::status(in.root / "run").permissions());
    EXPECT_EQ(0, monpctl(in, "start dusko"));
    Installation other("dusko");
    other.write();
    EXPECT_EQ("stopped", status_of(other).state()) << "of another home";

    const fs::path proc = "/proc/" + std::to_string(first.pid("monitor"));
    EXPECT_EQ("PATH=/usr/sbin:/usr/bin:/sbin:/bin" + std::string(1, '\0') + "TESK_HOME=" + in.root.string() + '\0',
              file_content(proc / "environ"));
    for (const auto& fd : fs::directory_iterator(proc / "fd")) {
        const std::string target = fs::read_symlink(fd);
        EXPECT_TRUE(std::stoi(fd.path().filename()) > 2 ? target.find("/log/monp.") != target.npos
                                                        : target == "/dev/null")
            << fd << target;
    }
    const std::string masks = "SigBlk:\t0000000000000000\nSigIgn:\t0000000"; // but the C library's own 32 and 33
    EXPECT_NE(std::string::npos, file_content(proc / "status").find(masks)) << file_content(proc / "status");

    in.command("signal KILL");
    eventually("a restart", [&] { return status_of(in).report["restarts"] == 1; });
    const Status second = wait_for_state(in, "running", 0);
    EXPECT_EQ(101, second.report["last_status"]);
    EXPECT_EQ(first.pid("monitor"), second.pid("monitor"));
    EXPECT_NE(first.pid("service"), second.pid("service"));

    EXPECT_EQ(0, monpctl(in, "reload dusko"));
    EXPECT_EQ(0, monpctl(in, "stop dusko"));
    EXPECT_EQ(3, status_of(in).result);
    EXPECT_EQ(std::vector<pid_t>{}, in.services());
    EXPECT_FALSE(fs::exists(in.root / "work/lock_trn"));
    EXPECT_EQ(3, monpctl(in, "reload dusko"));
}

/*
 * The states in between, each held for as long as it takes to see it.
 */
TEST(Operate, TellsTheStatesInBetween)
{
    Installation in("dusko");
    in.script("cl", "sleep 2\n");
    in.own("action") = "3";
    in.own("waittime") = "2";
    in.own("param") = "--ctl ../work/ctl sleep 1 end ignored report";
    in.write();

    EXPECT_EQ(0, monpctl(in, "start --wait 0 dusko"));
    wait_for_state(in, "starting", 3);
    kill(wait_for_state(in, "running", 0).pid("monitor"), SIGUSR2);
    wait_for_state(in, "ending", 3);
    wait_for_state(in, "stopped", 3);

    EXPECT_EQ(0, monpctl(in, "start dusko"));
    in.command("exit 3");
    wait_for_state(in, "recovering", 3);
    eventually("its status", [&] { return status_of(in).report["last_status"] == 3; });
    EXPECT_EQ("recovering", status_of(in).state());
    wait_for_state(in, "gave up", 1);
}

/*
 * The monitor waits after a failed start, and nothing that would end it may reach it.
 */
TEST(Operate, TellsWhyAStartFailed)
{
    Installation in("dusko");
    in.own("param") = "--ctl ../work/ctl silent";
    in.own("child_timeout") = "1";
    in.write();

    for (int attempt = 1; attempt <= 2; attempt++) {
        const auto start = monpctl(in, "start dusko");
        expect_told(start, 3, "its monitor waits");
        expect_told(start, 3, "[1 FAIL_INIT]");
    }
    const Status waits = wait_for_state(in, "waiting", 3);
    EXPECT_TRUE(waits.warns("waits after a failed start"));

    in.own("action") = "none"; /* matters to a start only */
    in.write();
    EXPECT_EQ(0, monpctl(in, "reload dusko"));
    in.values["monp/log/level"] = "none";
    in.write();
    expect_told(monpctl(in, "reload dusko"), 1, "monp.xml:");
    EXPECT_EQ(waits.pid("monitor"), status_of(in).pid("monitor"));
    EXPECT_EQ(0, stop_by_force(in));
    EXPECT_EQ(1, monpctl(in, "start dusko"));
    EXPECT_EQ("stopped", status_of(in).state());
}

/*
 * Without lines of the level info a report leaves no trace, so the service counts as starting until it is certain.
 */
TEST(Operate, CallsStartingWhatCannotBeTold)
{
    Installation in("dusko");
    in.values["monp/log/level"] = "1";
    in.own("action") = "2";
    in.own("child_timeout") = "2";
    in.write();

    EXPECT_EQ(0, monpctl(in, "start dusko"));
    in.command("signal KILL");
    eventually("a restart", [&] { return status_of(in).report["restarts"] == 1; });
    wait_for_state(in, "starting", 3);
    wait_for_state(in, "running", 0);

    setenv("TESK_HOME", in.root.c_str(), 1);
    const auto others = monpctl(in, "status; setpriv --reuid=65534 --clear-groups " SANDBOX_MONPCTL " status dusko");
    EXPECT_EQ(4, others.status) << "others than root see that it runs, but not what";
    EXPECT_EQ(0, stop_by_force(in));
}

TEST(Operate, WarnsOfWhatMayGoWrong)
{
    Installation in("dusko");
    in.write();

    ASSERT_EQ(0, monpctl(in, "start dusko"));
    Status status = status_of(in);
    EXPECT_EQ(json::array(), status.report["warnings"]);
    const pid_t service = status.pid("service");
    kill(service, SIGSTOP);
    sandbox::Monitor second(in, { "-n" });
    second.launched();
    status = status_of(in);
    EXPECT_TRUE(status.warns("process " + std::to_string(service) + ", is held")) << status.report;
    EXPECT_TRUE(status.warns("2 monitors of this type run")) << status.report;
    kill(service, SIGCONT);
    second.signal(SIGKILL); /* would else remove the lock file of both */
    second.ended();
    const pid_t stray = fork();
    if (stray == 0) {
        setsid();
        execl((in.root / "bin/service").c_str(), "service", "silent", nullptr);
        _exit(127);
    }
    eventually("a second copy", [&] { return in.services().size() == 2; });
    EXPECT_TRUE(status_of(in).warns("second copy of the service runs, process " + std::to_string(stray)));
    fs::copy_file(in.root / "bin/service", in.root / "bin/new");
    fs::rename(in.root / "bin/new", in.root / "bin/service");
    EXPECT_TRUE(status_of(in).warns("replaced on disk"));

    /* What is left of a monitor that is killed, and how it is taken up again. */
    kill(stray, SIGKILL);
    kill(status.pid("monitor"), SIGKILL);
    eventually("its end", [&] { return waitpid(status.pid("monitor"), nullptr, WNOHANG) > 0; });
    status = wait_for_state(in, "dead", 1);
    EXPECT_TRUE(status.warns("process " + std::to_string(service))) << status.report;
    EXPECT_EQ(3, monpctl(in, "stop dusko"));
}

/*
 * A service that does not end is killed in its time; one that dies of its exit signal comes back, and is named.
 */
TEST(Operate, NamesWhatSurvivesAStop)
{
    Installation in("dusko");
    in.own("action") = "2";
    in.own("waittime") = "1";
    in.own("param") = "--ctl ../work/ctl end ignored report";
    in.write();
    EXPECT_EQ(0, monpctl(in, "start dusko"));
    EXPECT_EQ(0, monpctl(in, "stop dusko"));
    EXPECT_EQ(std::vector<pid_t>{}, in.services());

    EXPECT_EQ(0, monpctl(in, "start dusko -- -o '--ctl ../work/ctl end signal report'"));
    const std::string monitor = std::to_string(status_of(in).pid("monitor"));
    expect_told(monpctl(in, "stop dusko --wait 3"), 3, "process " + monitor);
}

/*
 * No terminal, no answer: the node stays up.
 */
TEST(Operate, AsksBeforeTheNodeMayGoDown)
{
    Installation in("dusko");
    in.own("action") = "5";
    in.write();

    EXPECT_EQ(0, monpctl(in, "start dusko"));
    expect_told(monpctl(in, "stop dusko </dev/null"), 1, "reboot");
    EXPECT_EQ("running", status_of(in).state());

    /* The monitor keeps the action that it has read, whatever the policy says by now. */
    in.own("action") = "1";
    in.write();
    for (const char* file : { "monp.xml", "" }) { /* as restored from an old copy */
        fs::last_write_time(in.root / "etc/policy" / file, fs::file_time_type::clock::now() - std::chrono::hours(1));
    }
    EXPECT_EQ(1, monpctl(in, "stop dusko </dev/null"));
    fs::remove(in.root / "etc/policy/dusko.xml");
    EXPECT_EQ(0, stop_by_force(in));
    EXPECT_EQ(sandbox::Texts{}, in.calls());
}
