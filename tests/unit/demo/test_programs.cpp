/*
 * The collector and the two recording commands, run from a small installation as the monitor runs them.
 */
#include "demo_support.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <set>

using namespace demo;

namespace {

class Programs : public testing::Test {
protected:
    void SetUp() override
    {
        for (const char* directory : { "bin", "log", "work", "work/dump", "archive" }) {
            fs::create_directory(home / directory);
        }
        for (const char* program : { "sample_collect", "sample_cl", "sample_down" }) {
            fs::copy(BIN / program, home / "bin");
        }
        write_file(home / "log/a.log", "a\n");
    }

    std::vector<std::string> collector(const std::vector<std::string>& more) const
    {
        std::vector<std::string> words = { home / "bin/sample_collect", "-t", "monp-dusko", "-l", "-o", archive };
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
    Outcome collect(const std::vector<std::string>& more = {}) const
    {
        return run(collector(more), home / "bin");
    }
    std::set<std::string> members(const std::string& name) const
    {
        std::istringstream text(run({ "/bin/tar", "tzf", name }, home).text);
        std::set<std::string> names;
        for (std::string line; std::getline(text, line);) {
            names.insert(line);
        }
        return names;
    }
    std::string member(const std::string& name, const std::string& file) const
    {
        return run({ "/bin/tar", "xzOf", name, file }, home).text;
    }
    /* Archives without their common beginning; a working directory left behind would show here too. */
    std::set<std::string> archives() const
    {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(home / "archive")) {
            names.insert(entry.path().filename());
        }
        return names;
    }

    TempDir temp;
    fs::path home = temp.path;
    std::string archive = home / "archive/e.tgz";
};

using Names = std::set<std::string>;

TEST_F(Programs, CollectorPacksPlainFilesOnly)
{
    fs::create_directory(home / "log/old");
    write_file(home / "log/old/b c.log", "b\n");
    write_file(home / "work/dump/core", "c\n");
    write_file(home / "secret", "s\n");
    fs::create_symlink("../secret", home / "log/link");
    fs::create_directory_symlink("..", home / "log/linkdir");
    ASSERT_EQ(0, mkfifo((home / "log/fifo").c_str(), 0600));

    EXPECT_EQ(0, collect().status);
    EXPECT_EQ((Names{ "about.txt", "log/a.log", "log/old/b c.log" }), members(archive));
    EXPECT_EQ("b\n", member(archive, "log/old/b c.log"));
    EXPECT_NE(std::string::npos, member(archive, "about.txt").find("types: monp-dusko\n"));
    EXPECT_EQ(fs::perms(0600), fs::status(archive).permissions());

    EXPECT_EQ(0, collect({ "-d" }).status);
    EXPECT_TRUE(members(archive).contains("work/dump/core"));
}

TEST_F(Programs, CollectorLeavesOutWhatIsTooBigAndSaysSo)
{
    write_file(home / "log/big.log", "");
    fs::resize_file(home / "log/big.log", 65 << 20);
    EXPECT_EQ(0, collect().status);
    EXPECT_EQ((Names{ "about.txt", "log/a.log" }), members(archive));
    EXPECT_NE(std::string::npos, member(archive, "about.txt").find("log/big.log (68157440 bytes)"));
}

TEST_F(Programs, CollectorRotates)
{
    for (const char* text : { "1", "2", "3", "4" }) {
        write_file(home / "log/a.log", text);
        EXPECT_EQ(0, collect({ "-r", "2" }).status);
    }
    EXPECT_EQ((Names{ "e.tgz", "e.tgz.1", "e.tgz.2" }), archives());
    EXPECT_EQ("4", member(archive, "log/a.log"));
    EXPECT_EQ("3", member(archive + ".1", "log/a.log"));
    EXPECT_EQ("2", member(archive + ".2", "log/a.log"));

    EXPECT_EQ(0, collect({ "-r", "1" }).status);
    EXPECT_EQ("4", member(archive + ".1", "log/a.log"));
    EXPECT_EQ((Names{ "e.tgz", "e.tgz.1" }), archives());
    EXPECT_EQ(0, collect({ "-r", "0" }).status);
    EXPECT_EQ(Names{ "e.tgz" }, archives());
}

TEST_F(Programs, CollectorTakesAMissingOrNegativeCountAsFive)
{
    for (int i = 1; i <= 6; i++) {
        write_file(archive + "." + std::to_string(i), "");
    }
    EXPECT_EQ(0, collect({ "-r", "-5" }).status);
    EXPECT_FALSE(fs::exists(archive + ".6"));
    EXPECT_TRUE(fs::exists(archive + ".5"));
    EXPECT_EQ(0, collect().status);
    EXPECT_TRUE(fs::exists(archive + ".1"));
    EXPECT_FALSE(fs::exists(archive + ".6"));
}

TEST_F(Programs, CollectorsAtOnceLoseNoArchive)
{
    std::array<pid_t, 4> pids = {};
    for (pid_t& pid : pids) {
        pid = spawn(collector({ "-r", "9" }), home);
    }
    for (const pid_t pid : pids) {
        EXPECT_EQ(0, wait_for_end(pid));
    }
    EXPECT_EQ((Names{ "e.tgz", "e.tgz.1", "e.tgz.2", "e.tgz.3" }), archives());
    for (const std::string& name : archives()) {
        EXPECT_EQ((Names{ "about.txt", "log/a.log" }), members(home / "archive" / name));
    }
}

TEST_F(Programs, FailedCollectionLeavesTheOldArchive)
{
    ASSERT_EQ(0, collect().status);
    write_file(home / "log/a.log", "new\n");
    /* A tar that fails half-way, as on a full disk: $2 is the file to write. */
    write_file(home / "bin/tar", "#!/bin/sh\necho half >\"$2\"\nexit 2\n");
    fs::permissions(home / "bin/tar", fs::perms(0755));
    const std::string path = std::getenv("PATH");
    setenv("PATH", ((home / "bin").string() + ":" + path).c_str(), 1);
    const Outcome outcome = collect();
    setenv("PATH", path.c_str(), 1);

    EXPECT_EQ(1, outcome.status);
    EXPECT_NE(std::string::npos, outcome.text.find(archive)) << outcome.text;
    EXPECT_EQ(Names{ "e.tgz" }, archives());
    EXPECT_EQ("a\n", member(archive, "log/a.log"));
}

TEST_F(Programs, CollectorRefusesWrongArguments)
{
    const std::string program = home / "bin/sample_collect";
    const std::vector<std::vector<std::string>> mistakes = {
        { program },
        { program, "-t", "monp-dusko" },
        { program, "-o", archive },
        { program, "-t", "monp/dusko", "-o", archive },
        { program, "-t", "monp-dusko", "-o", home / "archive" },
        { program, "-t", "monp-dusko", "-o", archive, "-r" },
        { program, "-t", "monp-dusko", "-o", archive, "-r", "5x" },
        { program, "-t", "monp-dusko", "-o", archive, "-x" },
        { program, "-t", "monp-dusko", "-o", archive, "more" },
    };
    for (const auto& words : mistakes) {
        const Outcome outcome = run(words, home);
        EXPECT_EQ(2, outcome.status) << words.back() << ": " << outcome.text;
        EXPECT_NE(std::string::npos, outcome.text.find("usage: ")) << words.back();
    }
    EXPECT_EQ(1, run({ program, "-t", "monp-dusko", "-o", home / "missing/e.tgz" }, home).status);
    EXPECT_TRUE(archives().empty());
}

TEST_F(Programs, CommandsRecordWhatTheyWereAskedToDo)
{
    EXPECT_EQ(0, run({ home / "bin/sample_cl", "-t", "--type", "monp", "--nochk" }, "/").status);
    EXPECT_EQ(0, run({ home / "bin/sample_down", "-r", "--type", "monp" }, "/").status);
    EXPECT_EQ(0, run({ home / "bin/sample_down", "--type", "a b" }, "/").status);

    EXPECT_TRUE(read_file(home / "work/sample_cl.log").ends_with(" [-t] [--type] [monp] [--nochk]\n"));
    const std::string down = read_file(home / "work/sample_down.log");
    EXPECT_NE(std::string::npos, down.find(" [-r] [--type] [monp]\n"));
    EXPECT_TRUE(down.ends_with(" [--type] [a b]\n"));
}

TEST_F(Programs, CommandsEndWithTheStatusOfTheirFile)
{
    for (const auto& [text, status] : { std::pair{ "3\n", 3 }, { "255", 255 }, { "256\n", 125 }, { "x\n", 125 } }) {
        write_file(home / "work/sample_down.status", text);
        EXPECT_EQ(status, run({ home / "bin/sample_down" }, "/").status) << text;
    }
    EXPECT_EQ(0, run({ home / "bin/sample_cl" }, "/").status);
}

} // namespace
