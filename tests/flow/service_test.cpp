/*
 * The services of the guide for their authors, taken from its text, under the real monitor.
 */
#include "sandbox_monitor.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <sys/wait.h>

namespace fs = std::filesystem;
using sandbox::eventually;
using sandbox::Installation;
using sandbox::Monitor;
using sandbox::Texts;

static void use_service(Installation& in, const std::string& name, const std::string& param)
{
    fs::copy_file(GUIDE_SERVICES + name, in.root / "bin/service", fs::copy_options::overwrite_existing);
    fs::permissions(in.root / "bin/service", fs::perms(0755));
    in.own("param") = param;
    in.write();
}

/*
 * With the action 3 any other end than the right one would call the cluster-control command.
 */
TEST(GuideService, ReportsAndEndsWhenAsked)
{
    const std::pair<const char*, const char*> services[] = { { "guide_c", "" },
                                                             { "guide_cpp", "" },
                                                             { "guide_wrapper", "/bin/sleep 1000" } };

    for (const auto& [name, param] : services) {
        Installation in("dusko");
        in.own("action") = "3";
        use_service(in, name, param);
        Monitor monp(in);
        EXPECT_EQ(0, monp.launched());
        monp.wait_for_report();
        monp.signal(SIGUSR2);
        EXPECT_EQ(0, monp.ended());
        EXPECT_TRUE(monp.logged({ "info monitor term. (type=dusko_policy stat=0 path=* act=3)" })) << name;
        EXPECT_EQ(Texts{}, in.calls()) << name;
    }
}

TEST(GuideService, WrapperTellsHowItsProgramEnded)
{
    const std::string defaults = "grep -q '^SigIgn:.*0000000000000000$' /proc/$$/status || exit 8\n";
    const std::pair<std::string, const char*> programs[] = {
        { defaults + "sleep 3\nexit 7\n", "error process dusko_policy exited. recover is 1. (stat=7 path=*" },
        { "exit 7\n", "error initialize error. (type=dusko_policy stat=1 path=*" },
    };

    for (const auto& [lines, line] : programs) {
        Installation in("dusko");
        in.own("child_timeout") = "3";
        in.script("program", lines);
        use_service(in, "guide_wrapper", "./program a");
        Monitor monp(in);
        monp.wait_for(line);
        const sandbox::Texts calls = in.calls(); // the collector's may be among them
        EXPECT_EQ(1, std::count(calls.begin(), calls.end(), "program [a]"));
    }
}

TEST(GuideService, WrapperRunsItsProgramOnceAndNotWithoutItself)
{
    Installation in("dusko");
    in.script("program", "echo $$ >../work/pid\nexec sleep 1000\n");
    use_service(in, "guide_wrapper", "");
    const std::string twice =
        "./service ./program & while [ ! -s ../work/pid ]; do sleep 0.1; done; ./service ./program;"
        " s=$?; kill -KILL $!; exit $s";
    EXPECT_EQ(1, WEXITSTATUS(std::system(("cd " + (in.root / "bin").string() + "; " + twice).c_str())));
    EXPECT_EQ(1U, in.calls().size());
    const pid_t program = std::stoi(sandbox::file_content(in.root / "work/pid"));
    eventually("the program's end", [program] { return waitpid(program, nullptr, WNOHANG) == program; });
}
