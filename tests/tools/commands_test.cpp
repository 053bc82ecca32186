/*
 * monpctl: starts that fail, stops that need force, and what several commands have in common.
 */
#include "monpctl_run.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/wait.h>

namespace fs = std::filesystem;
using sandbox::eventually;
using sandbox::Installation;
using sandbox::monpctl;
using testing::Contains;
using testing::HasSubstr;

namespace {

std::string field(const Installation& in, const std::string& name)
{
    const auto run = monpctl(in, "status " + in.type + " --fields " + name);

    return run.lines.empty() ? "" : run.lines.front();
}

pid_t pid_field(const Installation& in, const std::string& name)
{
    return std::atoi(field(in, name).c_str());
}

} // namespace

TEST(FailedStart, IsToldAtOnceWithItsCause)
{
    Installation in("dusko");
    in.own("child_timeout") = "8";
    in.own("param") = "exit 2";
    in.write();

    const auto begun = std::chrono::steady_clock::now();
    const auto run = monpctl(in, "start dusko");
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(6)) << "the monitor waits for the report";
    EXPECT_EQ(3, run);
    EXPECT_THAT(run.errors, HasSubstr("ended with status 2 before it reported"));
    eventually("the wait", [&] { return field(in, "state") == "waiting"; });
    EXPECT_EQ(0, monpctl(in, "stop dusko --yes"));
}

TEST(SecondCopy, IsStartedOnRequestOnly)
{
    Installation in("dusko");
    in.write();
    ASSERT_EQ(0, monpctl(in, "start dusko"));
    const pid_t monitor = pid_field(in, "monitor_pid");
    const pid_t service = pid_field(in, "service_pid");
    kill(monitor, SIGKILL);
    eventually("its end", [&] { return waitpid(monitor, nullptr, WNOHANG) > 0; });
    fs::copy_file(in.root / "bin/service", in.root / "bin/new");
    fs::rename(in.root / "bin/new", in.root / "bin/service");

    const auto refused = monpctl(in, "start dusko");
    EXPECT_EQ(1, refused);
    EXPECT_THAT(refused.errors, HasSubstr("process " + std::to_string(service) + ", and no monitor can take it over"));
    EXPECT_EQ("-", field(in, "monitor_pid"));
    EXPECT_EQ(0, monpctl(in, "start dusko --second-copy"));
    EXPECT_EQ("1", field(in, "copies"));

    /* The stop is for the monitor's own service; the copy is named. */
    const auto stopped = monpctl(in, "stop dusko --yes");
    EXPECT_EQ(3, stopped);
    EXPECT_THAT(stopped.errors, HasSubstr("process " + std::to_string(service)));
    kill(service, SIGKILL);
}

TEST(Stop, TellsThatForceWasNeeded)
{
    Installation in("dusko");
    in.own("param") = "--ctl ../work/ctl end ignored report";
    in.own("waittime") = "1";
    in.write();
    ASSERT_EQ(0, monpctl(in, "start dusko"));
    EXPECT_THAT(monpctl(in, "stop dusko --yes").lines, Contains(HasSubstr("had to kill the service")));

    in.own("waittime") = "0";
    in.write();
    ASSERT_EQ(0, monpctl(in, "start dusko"));
    const auto run = monpctl(in, "stop dusko --yes --kill-after 2");
    EXPECT_EQ(0, run);
    EXPECT_THAT(run.lines, Contains(HasSubstr("stopped by force, as it had not ended after 2 seconds")));
    EXPECT_EQ(std::vector<pid_t>{}, in.services());
}

TEST(Restart, GivesANewMonitorUnlessThePolicyIsBroken)
{
    Installation in("dusko");
    in.write();
    ASSERT_EQ(0, monpctl(in, "start dusko"));
    const pid_t first = pid_field(in, "monitor_pid");
    EXPECT_EQ(0, monpctl(in, "restart --all --yes"));
    const pid_t second = pid_field(in, "monitor_pid");
    EXPECT_NE(first, second);

    in.values["monp/log/level"] = "none";
    in.write();
    EXPECT_EQ(1, monpctl(in, "restart dusko --yes"));
    EXPECT_EQ(second, pid_field(in, "monitor_pid")) << "it goes on, as nothing would take its place";
    EXPECT_EQ(0, monpctl(in, "stop dusko --yes"));
}

TEST(CommandLine, NamesWhatIsWrong)
{
    Installation in("dusko");
    in.write();
    const struct {
        const char* arguments;
        int status;
        const char* text;
    } rows[] = {
        { "sart dusko", 2, "did you mean start?" },
        { "start dusk", 2, "did you mean dusko?" },
        { "start", 2, "a service type is missing" },
        { "stop dusko --all", 2, "excludes" },
        { "status dusko -- -n", 2, "takes no options of the monitor" },
        { "status --fields stat", 2, "did you mean state?" },
        { "log --level eror", 2, "did you mean error?" },
        { "log --since yesterdy", 2, "is not a time" },
        { "log", 1, "cannot be read" },
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.arguments);
        const auto run = monpctl(in, row.arguments);
        EXPECT_EQ(row.status, run);
        EXPECT_THAT(run.errors, HasSubstr(row.text));
    }
    fs::remove_all(in.root / "etc/policy");
    const auto run = monpctl(in, "status");
    EXPECT_NE(0, run.status);
    EXPECT_THAT(run.errors, HasSubstr("TESK_HOME must name the home directory"));
}
