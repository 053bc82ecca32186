/*
 * monpctl log and monpctl events.
 */
#include "monpctl_run.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>

namespace fs = std::filesystem;
using sandbox::eventually;
using sandbox::file_lines;
using sandbox::Installation;
using sandbox::Monitor;
using sandbox::monpctl;
using sandbox::Texts;

namespace {

/*
 * Third word of a line, up to a slash.
 */
std::string process_of(const std::string& line)
{
    const auto begin = line.find(' ', line.find(' ') + 1) + 1;

    return line.substr(begin, line.find('/', begin) - begin);
}

} // namespace

/*
 * Two services share a log. What a process wrote before it named its service belongs to it, too, and so does an event
 * without a type.
 */
TEST(Log, TellsTheServicesApart)
{
    Installation in("dusko");
    in.script("cl", "exit 1\n");
    in.values["lenk/type"] = "lenk";
    in.values["lenk/path"] = "bin/other";
    for (const char* key : { "action", "param", "restarttime", "waittime" }) {
        in.values[std::string("monp/service/lenk/") + key] = in.own(key);
    }
    in.own("action") = "3";
    in.own("param") = "report exit 3";
    in.write();
    Installation other = in;
    other.type = "lenk";
    Monitor lenk(other, { "-n" });
    ASSERT_EQ(0, lenk.launched());
    Monitor dusko(in);
    ASSERT_EQ(0, dusko.launched());
    EXPECT_EQ(4, dusko.ended());
    lenk.signal(SIGUSR2);
    EXPECT_EQ(0, lenk.ended());

    Texts wanted;
    Texts severe;
    std::set<std::string> processes;
    const Texts all = file_lines(in.root / "log/monp.log");
    for (const auto& line : all) {
        if (line.find("(type=dusko") != std::string::npos) {
            processes.insert(process_of(line));
        }
    }
    for (const auto& line : all) {
        if (processes.contains(process_of(line))) {
            wanted.push_back(line);
            const auto level = line.substr(line.find(' ') + 1, 5);
            if (level == "error" || level == "warni" || level == "event") {
                severe.push_back(line);
            }
        }
    }
    ASSERT_LT(wanted.size(), all.size());
    EXPECT_NE(std::string::npos, wanted.at(0).find("Start Process Monitor"));
    EXPECT_EQ(wanted, monpctl(in, "log dusko").lines);
    EXPECT_EQ(severe, monpctl(in, "log dusko --level warning").lines);
    EXPECT_EQ(all, monpctl(in, "log").lines);
    EXPECT_EQ(2, monpctl(in, "log --level loud").status);

    const Texts objects = file_lines(in.root / "log/monp.events.jsonl");
    EXPECT_EQ(objects, monpctl(in, "events dusko --json").lines);
    const Texts events = monpctl(in, "events dusko").lines;
    ASSERT_EQ(3U, events.size());
    EXPECT_TRUE(
        events[2].ends_with("critical FAIL_STOP_DAEMON   The cluster daemons could not be stopped (status 1)."));
    EXPECT_EQ(Texts{}, monpctl(in, "events lenk").lines);
}

/*
 * A line in two pieces, several rotations between two looks, a file that was removed, and one that was rotated out.
 */
TEST(Log, FollowsAcrossRotations)
{
    Installation in("dusko");
    in.write();
    const fs::path log = in.root / "log/monp.log";
    const auto add = [&](const std::string& text) { std::ofstream(log, std::ios::app) << text; };
    const auto rotate = [&] {
        for (int number = 3; number > 0; number--) {
            const fs::path older = log.string() + '.' + std::to_string(number);
            const fs::path newer = number == 1 ? log : fs::path(log.string() + '.' + std::to_string(number - 1));
            if (fs::exists(newer)) {
                fs::rename(newer, older);
            }
        }
    };
    const auto followed = [&] { return file_lines(in.root / "work/monpctl.out"); };
    const auto expect = [&](const Texts& wanted) {
        eventually("the followed lines", [&] { return followed().size() >= wanted.size(); });
        EXPECT_EQ(wanted, followed());
    };

    monpctl(in, "log -f & echo $! >" + (in.root / "work/pid").string());
    add("one\ntw");
    expect({ "one" });
    add("o\nthree\n");
    rotate();
    add("four\n");
    rotate();
    add("five\n");
    rotate();
    expect({ "one", "two", "three", "four", "five" });
    add("six\n");
    expect({ "one", "two", "three", "four", "five", "six" });
    fs::remove(log);
    add("seven\n");
    expect({ "one", "two", "three", "four", "five", "six", "seven" });
    for (const char* line : { "eight\n", "nine\n", "ten\n", "eleven\n" }) {
        rotate();
        add(line);
    }
    expect({ "one", "two", "three", "four", "five", "six", "seven", "eight", "nine", "ten", "eleven" });
    kill(std::stoi(sandbox::file_content(in.root / "work/pid")), SIGTERM);
}

/*
 * Every event of a real service that is restarted again and again, through rotations of the smallest size.
 */
TEST(Events, FollowARealMonitorThroughRotations)
{
    Installation in("dusko");
    in.values["monp/log/size"] = "4096";
    in.own("action") = "2";
    in.own("restarttime") = "6";
    in.own("param") = "report exit 3";
    in.write();
    monpctl(in, "events dusko -f --json & echo $! >" + (in.root / "work/pid").string());
    const Monitor monp(in);
    const size_t number = 7 + 6; // ends and restarts
    eventually("the events", [&] { return file_lines(in.root / "work/monpctl.out").size() >= number; });

    Texts wanted;
    for (const char* name : { ".5", ".4", ".3", ".2", ".1", "" }) {
        const Texts part = file_lines(in.root / (std::string("log/monp.events.jsonl") + name));
        wanted.insert(wanted.end(), part.begin(), part.end());
    }
    ASSERT_TRUE(fs::exists(in.root / "log/monp.events.jsonl.1"));
    EXPECT_EQ(number, wanted.size());
    EXPECT_EQ(wanted, file_lines(in.root / "work/monpctl.out"));
    EXPECT_EQ(wanted.size(), monpctl(in, "events").lines.size());
    kill(std::stoi(sandbox::file_content(in.root / "work/pid")), SIGTERM);
}
