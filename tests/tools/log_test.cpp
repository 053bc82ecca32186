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
 * What one in the background has printed by now.
 */
Texts followed(const Installation& in)
{
    return file_lines(in.root / "work/monpctl.out");
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

    const Texts all = file_lines(in.root / "log/monp.log");
    EXPECT_EQ(all, monpctl(in, "log --full").lines);
    Texts apart;
    for (const auto& [type, not_its] : { std::pair{ "dusko", "(type=lenk" }, { "lenk", "(type=dusko" } }) {
        const Texts lines = monpctl(in, std::string("log --full ") + type).lines;
        ASSERT_FALSE(lines.empty());
        EXPECT_NE(std::string::npos, lines[0].find("Start Process Monitor"));
        for (const auto& line : lines) {
            EXPECT_EQ(std::string::npos, line.find(not_its)) << line;
        }
        apart.insert(apart.end(), lines.begin(), lines.end());
    }
    EXPECT_TRUE(std::is_permutation(all.begin(), all.end(), apart.begin(), apart.end()));
    Texts severe = monpctl(in, "log --full dusko").lines;
    std::erase_if(severe, [](const auto& line) { // a time, the level
        return !std::set<std::string>{ "error", "warni", "event" }.contains(line.substr(line.find(' ') + 1, 5));
    });
    EXPECT_EQ(severe, monpctl(in, "log --full dusko --level warning").lines);
    EXPECT_EQ(2, monpctl(in, "log --level loud").status);

    const Texts objects = file_lines(in.root / "log/monp.events.jsonl");
    EXPECT_EQ(objects, monpctl(in, "events dusko --json").lines);
    const Texts events = monpctl(in, "events dusko").lines;
    ASSERT_EQ(3U, events.size());
    EXPECT_TRUE(events[2].ends_with("critical dusko_policy The cluster daemons could not be stopped (status 1)."));
    EXPECT_EQ(Texts{}, monpctl(in, "events lenk").lines);
}

/*
 * A line in two pieces, several rotations between two looks, a file that was removed, and one that was rotated out.
 */
TEST(Log, FollowsAcrossRotations)
{
    Installation in("dusko");
    in.write();
    const auto file = [&](int number) {
        return in.root / ("log/monp.log" + (number == 0 ? "" : '.' + std::to_string(number)));
    };
    const auto add = [&](const std::string& text) { std::ofstream(file(0), std::ios::app) << text; };
    const auto rotate = [&] {
        std::error_code missing;
        for (int number = 3; number > 0; number--) {
            fs::rename(file(number - 1), file(number), missing);
        }
    };
    Texts wanted;
    const auto expect = [&](const Texts& more) {
        wanted.insert(wanted.end(), more.begin(), more.end());
        eventually("the followed lines", [&] { return followed(in).size() >= wanted.size(); });
        EXPECT_EQ(wanted, followed(in));
    };

    monpctl(in, "log -f &"); // ends with the sandbox
    add("one\ntw");
    expect({ "one" });
    add("o\nthree\n");
    for (const char* line : { "four\n", "five\n" }) {
        rotate();
        add(line);
    }
    rotate();
    expect({ "two", "three", "four", "five" });
    add("six\n");
    expect({ "six" });
    fs::remove(file(0));
    add("seven\n");
    expect({ "seven" });
    for (const char* line : { "eight\n", "nine\n", "ten\n", "eleven\n" }) {
        rotate();
        add(line);
    }
    expect({ "eight", "nine", "ten", "eleven" });
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
    monpctl(in, "events dusko -f --json &");
    const Monitor monp(in);
    const size_t number = 7 + 6; // ends and restarts
    eventually("the events", [&] { return followed(in).size() >= number; });

    const Texts seen = followed(in);
    EXPECT_EQ(number, seen.size());
    EXPECT_TRUE(fs::exists(in.root / "log/monp.events.jsonl.1"));
    EXPECT_EQ(seen, monpctl(in, "events --json").lines);
}
