/*
 * monpctl check: what it says of policies, and whether the monitor does what it says.
 */
#include "monpctl_run.h"

#include <filesystem>
#include <fnmatch.h>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;
using sandbox::Installation;
using sandbox::Monitor;
using sandbox::monpctl;
using sandbox::Texts;

namespace {

/*
 * Exactly these lines, as patterns for what follows the home directory.
 */
void expect_lines(const Installation& in, const Texts& lines, const Texts& patterns)
{
    const std::string etc = (in.root / "etc").string();

    for (size_t i = 0; i < std::max(lines.size(), patterns.size()); i++) {
        const std::string line = i < lines.size() ? lines[i] : "(none)";
        const std::string pattern = i < patterns.size() ? patterns[i] : "(none)";
        EXPECT_EQ(0, fnmatch((pattern.starts_with('/') ? etc + pattern : pattern).c_str(), line.c_str(), 0))
            << "line " << i << ": " << line << "\nwanted: " << pattern;
    }
}

/*
 * What --explain says something is.
 */
std::string explained(const Texts& lines, const std::string& name)
{
    for (const auto& line : lines) {
        if (const auto mark = line.find(" = "); line.starts_with("  " + name + ' ') && mark < line.rfind("  [")) {
            return line.substr(mark + 3, line.rfind("  [") - mark - 3);
        }
    }
    return "(not explained)";
}

constexpr const char* BROKEN = R"(<root>
<monp>
<type>monitor</type>
<log><level>four</level>
<size>99999999999</size></log>
<elog><path>bin/down</path>
<arcpath>work/elog.tgz</arcpath>
<rotates>5</rotates></elog>
<service><dusko>
<action>2</action>
<param>1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 26 27 28 29 30 31</param>
<restarttime>0</restarttime>
<parent_timeout>-1</parent_timeout>
<child_timeout>soon</child_timeout>
</dusko><ghost>
<action>1</action></ghost></service>
</monp>
</root>
)";

} // namespace

TEST(Check, TellsEveryFaultInOneRun)
{
    Installation in("dusko");
    in.values.erase("all/core");
    in.values.erase("all/env/lang");
    in.values["all/env/alloc"] = "12345678";
    in.values["cl/path"] = "bin/missing";
    in.values.erase("down/type");
    in.values.erase("dummyconf");
    in.values["pm/lockf"] = (in.root / "none/lock").string();
    in.write();
    in.script("service", "");
    std::ofstream(in.root / "etc/policy/monp.xml") << BROKEN;
    fs::permissions(in.root / "etc/policy/pm.xml", fs::perms(0664));
    fs::permissions(in.root / "bin/down", fs::perms(0666));
    ASSERT_EQ(0, chown((in.root / "bin/service").c_str(), 1000, 0));

    const auto run = monpctl(in, "check");
    EXPECT_EQ(1, run.status);
    expect_lines(in, run.lines,
                 {
                     "/config.xml: warning: it does not exist; the monitor goes on without it",
                     "/policy/all.xml: error: all/core is missing; the monitor ends",
                     "/policy/all.xml: note: all/env/lang is missing; the inherited value stays",
                     "/policy/all.xml:2: warning: all/env/alloc is \"12345678\": *not fit*; the default 0 applies",
                     "/policy/cl.xml:2: note: * does not exist; the recovery action 3 would fail",
                     "/policy/down.xml: note: down/type is missing; each of the recovery actions 4 and 5 would fail",
                     "/policy/down.xml:2: warning: */bin/down is not executable; * 4 and 5 would call shutdown instead",
                     "/policy/down.xml:2: warning: */bin/down is writable by group or others (mode 0666), *",
                     "/policy/dusko.xml:2: warning: */bin/service belongs to the user 1000 instead of root, *",
                     "/policy/dusko.xml:2: warning: */bin/service is a script, so a running one is never adopted*",
                     "/policy/monp.xml: warning: monp/elog/pattern is missing; the default 1 applies",
                     "/policy/monp.xml: warning: monp/elog/rotate is missing; the default 5 applies",
                     "/policy/monp.xml: warning: monp/md/dirpath is missing; the default work/service applies",
                     "/policy/monp.xml: warning: monp/md/filename is missing; the default init_md applies",
                     "/policy/monp.xml: error: monp/path is missing; the monitor ends",
                     "/policy/monp.xml: error: monp/service/dusko/waittime is missing; the monitor ends",
                     "/policy/monp.xml:4: error: monp/log/level is \"four\": * no whole decimal number; the monitor ends",
                     "/policy/monp.xml:5: error: monp/log/size is \"99999999999\": * out of range; the monitor ends",
                     "/policy/monp.xml:6: warning: */bin/down is not executable; no error logs are collected",
                     "/policy/monp.xml:6: warning: */bin/down is writable by group or others (mode 0666), *",
                     "/policy/monp.xml:8: note: monp/elog/rotates is not a key of the monitor; did you mean monp/elog/rotate?",
                     "/policy/monp.xml:11: warning: argument reached the maximum. (* max=30 curnum=30); the service is *",
                     "/policy/monp.xml:12: warning: restarttime is 0; the service is restarted without limit",
                     "/policy/monp.xml:13: warning: monp/service/dusko/parent_timeout is -1; it is replaced by 13",
                     "/policy/monp.xml:14: warning: monp/service/dusko/child_timeout is \"soon\": *; the default 10 applies",
                     "/policy/monp.xml:16: warning: */ghost.xml does not exist; a monitor of the type ghost would end",
                     "/policy/pm.xml: error: it is writable by group or others (mode 0664); the monitor ends",
                     "/policy/pm.xml:2: warning: */none is not a directory; there can be no lock file",
                 });
    EXPECT_EQ("", run.errors);
}

TEST(Check, JudgesTheCommandLineAsTheMonitorDoes)
{
    Installation in("lenk");
    in.own("action") = "9";
    in.values["lenk/use"] = "0";
    in.write();
    const std::string line = "/policy/monp.xml:*: error: the action 9 is none of 1 to 5; the monitor ends with status 4 *";
    const std::string unused = "/policy/lenk.xml:*: note: use is 0; the service is not started";

    auto run = monpctl(in, "check lenk");
    EXPECT_EQ(1, run.status);
    expect_lines(in, run.lines, { unused, line });
    run = monpctl(in, "check lenk -- -A 2 -r 1");
    EXPECT_EQ(0, run.status); // a note
    expect_lines(in, run.lines, { unused });
    run = monpctl(in, "check lenk -- -r 1 -x");
    EXPECT_EQ(1, run.status);
    expect_lines(in, run.lines, { unused, line, "command line: error: unknown option. (val=-x); the monitor does not start" });
    for (const char* refused : { "check ../policy/lenk", "check cl", "check nosuch", "check -- -a 2",
                                 "check lenk extra", "check lenk extra -- -a 2", "start lenk extra" }) {
        EXPECT_EQ(2, monpctl(in, refused).status) << refused;
    }
}

TEST(Check, TellsTypesThatShareAProgramAndWhatTheUnitDoesNotAwait)
{
    Installation in("dusko");
    for (const std::string key : { "action", "param", "restarttime", "waittime", "parent_timeout", "child_timeout" }) {
        in.values["monp/service/goru/" + key] = in.values["monp/service/hard/" + key] = in.own(key);
    }
    in.values["goru/type"] = "goru";
    in.values["goru/path"] = "bin/link";
    in.values["hard/type"] = "hard";
    in.values["hard/path"] = "bin/hard";
    in.values["monp/service/hard/waittime"] = "106"; // and 5 to start
    in.write();
    fs::create_symlink("service", in.root / "bin/link");
    fs::create_hard_link(in.root / "bin/service", in.root / "bin/hard");

    const auto run = monpctl(in, "check");
    EXPECT_EQ(0, run.status);
    expect_lines(
        in, run.lines,
        {
            "/policy/goru.xml:2: warning: */bin/link is also the program of the type dusko; each monitor would *",
            "/policy/hard.xml:2: note: */bin/hard is a hard link to the program of the type dusko",
            "/policy/hard.xml:2: note: */bin/hard is a hard link to the program of the type goru",
            "/policy/monp.xml:*: note: child_timeout and waittime are 111 seconds together, * raise its TimeoutStopSec",
        });
    EXPECT_EQ(1, monpctl(in, "check --explain >/dev/full").status);
    EXPECT_EQ(4, monpctl(in, "status >/dev/full").status);
}

/*
 * Each key in turn missing, no number, empty, or too long for any field.
 */
TEST(Check, EndsWithOneIfTheMonitorDoes)
{
    Installation in("lenk");
    in.values["lenk/use"] = "1";
    const auto good = in.values;
    int ended = 0;

    for (const auto& [key, value] : good) {
        for (const std::string& fault : { std::string("-"), std::string("x"), std::string(), std::string(1500, '1') }) {
            in.values = good;
            in.values[key] = fault;
            if (fault == "-") {
                in.values.erase(key);
            }
            in.write();
            const auto run = monpctl(in, "check lenk -- -n");
            Monitor monp(in, { "-n" });
            const int status = monp.launched();
            EXPECT_EQ(status, run.status) << key << " = " << fault << '\n' << testing::PrintToString(run.lines);
            ended += status;
        }
    }
    EXPECT_LT(40, ended);
}

TEST(Check, ExplainsWhatTheMonitorWouldDo)
{
    Installation in("dusko");
    in.own("param") = "--ctl  ../work/ctl  report";
    in.values["monp/elog/pattern"] = "3";
    in.write();
    const std::string root = in.root;
    const std::pair<const char*, std::string> settings[] = {
        { "service", root + "/bin/service" },
        { "service arguments", "service --ctl ../work/ctl report" },
        { "collector arguments", "collect -t monitor-dusko_policy -l -d -o " + root + "/work/elog.tgz -r 5" },
        { "recovery 3 arguments", "cl -t --type monitor --nochk" },
        { "monp/service/dusko/action", "3" },
        { "lock file", root + "/work/lock_trn" },
        { "marker file", "none" },
    };

    const auto run = monpctl(in, "check dusko --explain -- -a 3");
    EXPECT_EQ(0, run);
    for (const auto& [name, value] : settings) {
        EXPECT_EQ(value, explained(run.lines, name)) << name;
    }
}
