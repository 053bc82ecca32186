/*
 * What follows the end of the service: every recovery action with its commands, failures and fall-backs, and every
 * answer to an end request.
 */
#include "sandbox_monitor.h"

#include <csignal>
#include <fstream>

using sandbox::Installation;
using sandbox::Monitor;

namespace {

using Texts = std::vector<std::string>;

/* The policy commands cl and down of a case: both work, end with 3, are not executable, or have no policy. */
enum class Commands { work, fail, cannot_run, unknown };

struct Ending {
    const char* name;
    int action;
    const char* param; // what the service does
    int requests;      // end requests, each to another run of the service; 0: it ends by itself
    Commands commands;
    int shutdown; // status of the system's shutdown command
    int status;   // of the monitor
    Texts calls;
    Texts lines;
};

void PrintTo(const Ending& ending, std::ostream* out)
{
    *out << ending.name;
}

void prepare(Installation& in, Commands commands)
{
    for (const std::string name : { "cl", "down" }) {
        if (commands == Commands::fail) {
            std::ofstream(in.root / "work" / (name + ".status")) << "3\n";
        } else if (commands == Commands::cannot_run) {
            std::filesystem::permissions(in.root / "bin" / name, std::filesystem::perms(0644));
        } else if (commands == Commands::unknown) {
            in.values.erase(name + "/type");
            in.values.erase(name + "/path");
        }
    }
}

Texts all_calls(const Installation& in)
{
    Texts all = sandbox::shutdown_calls();

    for (const std::string name : { "cl", "down" }) {
        for (const auto& call : in.calls(name)) {
            all.push_back(name);
            all.back().append(" ").append(call);
        }
    }
    return all;
}

class Recovery : public testing::TestWithParam<Ending> {};

} // namespace

TEST_P(Recovery, Follows)
{
    const Ending& ending = GetParam();
    const std::string action = std::to_string(ending.action);
    const int by_itself = ending.requests == 0 ? 1 : 0;
    const int failed = ending.status != 0 && ending.action <= 5 ? 1 : 0;
    Installation in("dusko");
    in.own("action") = action;
    in.own("param") = ending.param;
    in.own("restarttime") = "1";
    in.own("waittime") = "1";
    prepare(in, ending.commands);
    sandbox::shutdown_status(ending.shutdown);
    in.write();
    Monitor monp(in);
    ASSERT_EQ(0, monp.launched());
    for (int i = 1; i <= ending.requests; i++) {
        monp.wait_for_report(i);
        monp.signal(SIGUSR2);
    }

    EXPECT_EQ(ending.status, monp.ended());
    EXPECT_TRUE(monp.logged(ending.lines));
    EXPECT_EQ(by_itself, monp.count("error process dusko_policy exited. recover is " + action + ". (stat=3 path=*)"));
    EXPECT_EQ(by_itself, monp.count("event2 *dusko_policy*(status 3)."));
    EXPECT_EQ(failed, monp.count("error recovery failed. (type=dusko_policy act=" + action + " ret=4)"));
    EXPECT_EQ(failed, monp.count("event[579] *"));
    EXPECT_EQ(ending.calls, all_calls(in));
    EXPECT_EQ(std::vector<pid_t>{}, in.services());
}

// clang-format off
static const char* const ENDS = "report exit 3";

INSTANTIATE_TEST_SUITE_P(, Recovery, testing::Values(
    Ending{ "None", 1, ENDS, 0, Commands::work, 0, 0, {},
        { "info recovery is none. (type=dusko_policy pact=1 fact=1)", "info end - (type=dusko_policy ret=0)" } },
    Ending{ "UnknownAction", 7, ENDS, 0, Commands::work, 0, 4, {},
        { "error unknown recovery. (type=dusko_policy pact=7 fact=0)", "info end - (type=dusko_policy ret=4)" } },
    Ending{ "StopCluster", 3, ENDS, 0, Commands::work, 0, 0, { "cl [-t] [--type] [monitor] [--nochk]" },
        { "event4 *dusko_policy*", "info path=*/bin/cl bin=cl" } },
    Ending{ "StopClusterFails", 3, ENDS, 0, Commands::fail, 0, 4, { "cl [-t] [--type] [monitor] [--nochk]" },
        { "event4 *", "error stop of cluster failed. (type=dusko_policy ret=0 path=*/bin/cl stat=0x3)",
          "event5 *(status 3)." } },
    Ending{ "StopClusterCannotRun", 3, ENDS, 0, Commands::cannot_run, 0, 4, {},
        { "event4 *", "error monp_create_process() failed. (type=dusko_policy ret=4 path=*/bin/cl)",
          "event5 *(status -1)." } },
    Ending{ "StopClusterUnknown", 3, ENDS, 0, Commands::unknown, 0, 4, {},
        { "event4 *", "error monp_xml_getcprocpolicy() failed. (type=dusko_policy ret=4 ldtype=cl)",
          "event5 *(status -1)." } },
    Ending{ "Halt", 4, ENDS, 0, Commands::work, 1, 0, { "down [--type] [monitor] [--nochk]" },
        { "event6 *dusko_policy*", "info path=*/bin/down bin=down" } },
    Ending{ "HaltFallsBack", 4, ENDS, 0, Commands::fail, 0, 0,
        { "/sbin/shutdown -h now", "down [--type] [monitor] [--nochk]" },
        { "event6 *", "error system halt failed. (type=dusko_policy ret=0 path=*/bin/down stat=0x3)",
          "info retry, path=/sbin/shutdown -h now", "info cmd(/sbin/shutdown -h now) success." } },
    Ending{ "HaltFails", 4, ENDS, 0, Commands::cannot_run, 2, 4, { "/sbin/shutdown -h now" },
        { "event6 *", "error monp_create_process() failed. (type=dusko_policy ret=4 path=*/bin/down)",
          "error system halt failed. (type=dusko_policy ret=4 path=*/bin/down stat=0xffffffff)",
          "error cmd(/sbin/shutdown -h now) failed (ret=2 errno=*).", "event7 *(status -1)." } },
    Ending{ "HaltUnknown", 4, ENDS, 0, Commands::unknown, 0, 4, {},
        { "event6 *", "error monp_xml_getcprocpolicy() failed. (type=dusko_policy ret=4 ldtype=down)",
          "event7 *(status -1)." } },
    Ending{ "Reboot", 5, ENDS, 0, Commands::work, 1, 0, { "down [-r] [--type] [monitor] [--nochk]" },
        { "event8 *dusko_policy*", "info path=*/bin/down bin=down" } },
    Ending{ "RebootFallsBack", 5, ENDS, 0, Commands::cannot_run, 0, 0, { "/sbin/shutdown -r now" },
        { "event8 *", "error system reboot failed. (type=dusko_policy ret=4 path=*/bin/down stat=0xffffffff)",
          "info retry, path=/sbin/shutdown -r now", "info cmd(/sbin/shutdown -r now) success." } },
    Ending{ "RebootFails", 5, ENDS, 0, Commands::fail, 2, 4,
        { "/sbin/shutdown -r now", "down [-r] [--type] [monitor] [--nochk]" },
        { "event8 *", "error system reboot failed. (type=dusko_policy ret=0 path=*/bin/down stat=0x3)",
          "error cmd(/sbin/shutdown -r now) failed (ret=2 errno=*).", "event9 *(status 3)." } },
    Ending{ "RequestAnsweredWell", 5, "report", 1, Commands::work, 0, 0, {},
        { "info throw exit signal. (type=dusko_policy pid=* sig=10)",
          "info monitor term. (type=dusko_policy stat=0 path=* act=5)", "info end - (type=dusko_policy ret=0)" } },
    Ending{ "RequestAnsweredBadly", 2, "end 1 report", 1, Commands::work, 0, 0, {},
        { "info monitor term. (type=dusko_policy stat=1 path=* act=2)", "info end - (type=dusko_policy ret=0)" } },
    Ending{ "RequestAnsweredBadlyUnderReboot", 5, "end 1 report", 1, Commands::work, 0, 0,
        { "down [-r] [--type] [monitor] [--nochk]" },
        { "info monitor term. (type=dusko_policy stat=1 path=* act=5)", "event8 *" } },
    Ending{ "RequestEndsByTheSignal", 2, "end signal report", 2, Commands::work, 0, 0, {},
        { "error process dusko_policy killed. recover is 2. (stat=-1 path=*)", "event3 *dusko_policy*status -1.",
          "error process dusko_policy killed. recover is 2. (stat=-1 path=*)",
          "info recovery reached maximum. (type=dusko_policy time=2 max=1)" } },
    Ending{ "RequestIgnored", 1, "end ignored report", 1, Commands::work, 0, 0, {},
        { "info throw exit signal. (type=dusko_policy pid=* sig=10)",
          "info throw exit signal. (type=dusko_policy pid=* sig=9)",
          "info monitor term. (type=dusko_policy stat=0 path=* act=1)" } },
    Ending{ "RequestIgnoredUnderHalt", 4, "end ignored report", 1, Commands::work, 0, 0,
        { "down [--type] [monitor] [--nochk]" },
        { "info throw exit signal. (type=dusko_policy pid=* sig=9)",
          "error process dusko_policy killed. recover is 4. (stat=-1 path=*)", "event6 *" } }
    ), [](const auto& ending) { return ending.param.name; });
// clang-format on
