/*
 * What follows the end of the service: recovery actions with their commands, failures and fall-backs, and the answers
 * to an end request.
 */
#include "sandbox_monitor.h"

#include <csignal>

using sandbox::Installation;
using sandbox::Monitor;
using sandbox::Texts;

namespace {

constexpr int CANNOT_RUN = -1;
constexpr const char* ENDS = "report exit 3";
constexpr const char* REBOOT = "down [-r] [--type] [monitor] [--nochk]";

struct Ending {
    const char* name;
    int action;
    const char* param; // what the service does
    int requests;      // end requests, each to another run of the service; 0: it ends by itself
    int command;       // status of the policy command down
    int shutdown;      // status of the system's shutdown command
    int status;        // of the monitor
    Texts calls;
    Texts lines;
};

// clang-format off
const Ending ENDINGS[] = {
    { "unknown action", 7, ENDS, 0, 0, 0, 4, {}, { "error unknown recovery. (type=dusko_policy pact=7 fact=0)" } },
    { "halt fails", 4, ENDS, 0, CANNOT_RUN, 2, 4, {},
        { "event6 *", "error cmd(/sbin/shutdown -h now) failed (ret=2 errno=*).", "event7 *(status -1).",
          "error recovery failed. (*act=4 *" } },
    { "reboot falls back", 5, ENDS, 0, 3, 0, 0, { REBOOT },
        { "event8 *dusko_policy*", "info cmd(/sbin/shutdown -r now) success." } },
    { "request answered badly under reboot", 5, "end 1 report", 1, 0, 0, 0, { REBOOT },
        { "info monitor term. (type=dusko_policy stat=1 path=* act=5)", "event8 *" } },
    { "requests end by the signal", 2, "end signal report", 2, 0, 0, 0, {},
        { "error process dusko_policy killed. recover is 2. (stat=-1 path=*)", "event3 *dusko_policy*status -1.",
          "info recovery reached maximum. (type=dusko_policy time=2 max=1)" } },
    { "request ignored", 1, "end ignored report", 1, 0, 0, 0, {},
        { "info throw exit signal. (* sig=10)", "info throw exit signal. (* sig=9)", "info monitor term. (* act=1)" } },
};
// clang-format on

} // namespace

TEST(Recovery, FollowsTheEndOfTheService)
{
    for (const Ending& ending : ENDINGS) {
        SCOPED_TRACE(ending.name);
        const int by_itself = ending.requests == 0 ? 1 : 0;
        Installation in("dusko");
        in.hurried = true;
        in.own("action") = std::to_string(ending.action);
        in.own("param") = ending.param;
        in.own("restarttime") = "1";
        in.own("waittime") = "200";
        in.own("child_timeout") = "4000";
        in.script("down", "exit " + std::to_string(ending.command));
        if (ending.command == CANNOT_RUN) {
            std::filesystem::permissions(in.root / "bin/down", std::filesystem::perms(0644));
        }
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
        EXPECT_EQ(by_itself,
                  monp.count("error process dusko_policy exited. recover is " + in.own("action") + ". (stat=3 *"));
        EXPECT_EQ(by_itself, monp.count("event2 *dusko_policy*(status 3)."));
        Texts calls = in.calls();
        std::erase_if(calls, [](const auto& call) { return call.starts_with("collect "); });
        EXPECT_EQ(ending.calls, calls);
        // The monitor does not wait for one that it had to kill.
        sandbox::eventually("the service's end", [&in] { return in.services().empty(); });
    }
    EXPECT_EQ((Texts{ "/sbin/shutdown -h now", "/sbin/shutdown -r now" }), sandbox::shutdown_calls());
}
