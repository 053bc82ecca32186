// Rotation: nothing is lost, whoever dies in it.
#include "log_fixture.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <set>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

using LogRotate = LogTest;

TEST_F(LogRotate, KeepsTheNewestGenerationsUnderTheLimit)
{
    open(0, 1, 2); // raised to 4096 bytes
    for (int number = 0; number < 200; number++) {
        WRITE("%04d %s", number, std::string(100, 'x').c_str());
    }
    int expected = 199;
    for (const char* name : { "monp.log", "monp.log.1", "monp.log.2" }) {
        const auto found = texts(name);
        EXPECT_LT(fs::file_size(path(name)), 4096U + 300U);
        for (auto line = found.rbegin(); line != found.rend(); ++line) {
            EXPECT_EQ(expected--, std::stoi(*line));
        }
    }
    EXPECT_LT(expected, 199 - 30);
    EXPECT_FALSE(fs::exists(path("monp.log.3")));
}

TEST_F(LogRotate, ClosesAGapAndWaitsForNobody)
{
    open(0, 1, 9);
    for (const char* name : { "monp.log.1", "monp.log.3" }) {
        std::ofstream(path(name)) << name << "\n";
    }
    fs::create_directory(path("monp.log.lock")); // cannot be locked: the file grows, the caller goes on
    for (int number = 0; number < 60; number++) {
        WRITE("%s", std::string(100, 'x').c_str());
    }
    EXPECT_EQ(60U, lines().size());
    fs::remove(path("monp.log.lock"));
    logSystem.clock = 4000000000000000000;
    WRITE("last of the old file");
    WRITE("first of the new one");
    EXPECT_EQ(61U, lines("monp.log.1").size());
    EXPECT_EQ("monp.log.1", lines("monp.log.2").front());
    EXPECT_EQ("monp.log.3", lines("monp.log.3").front());
    EXPECT_EQ(1U, lines().size());
}

TEST_F(LogRotate, InterruptedByAHandlerAndAFork)
{
    const std::string filler(100, 'x');
    int pipe[2];
    pid_t child = -1;
    ASSERT_EQ(0, ::pipe(pipe));
    open(0, 1, 1000);
    logSystem.onRename = [&](const std::string&) {
        WRITE("handler");
        child = fork();
        if (child == 0) {
            char none;
            close(pipe[1]);
            EXPECT_EQ(0, read(pipe[0], &none, 1)); // until the parent has left its rotation
            for (int number = 0; number < 100; number++) {
                WRITE("child %d %s", number, filler.c_str());
            }
            _exit(0);
        }
        return true;
    };
    while (child < 0) {
        WRITE("parent %s", filler.c_str());
    }
    close(pipe[1]);
    waitpid(child, nullptr, 0);
    close(pipe[0]);

    int found = 0;
    int files = 1;
    for (; fs::exists(path(printed("monp.log.%d", files))); files++) {}
    EXPECT_GT(files, 4); // the child has rotated too
    for (int file = files; file-- > 0;) {
        for (const std::string& text : texts(file == 0 ? "monp.log" : printed("monp.log.%d", file))) {
            if (!text.starts_with("parent")) {
                const std::string expected = found == 0 ? "handler" : printed("child %d %s", found - 1, filler.c_str());
                EXPECT_EQ(expected, text);
                found++;
            }
        }
    }
    EXPECT_EQ(101, found);
}

// Where the killed writer is in its rotation, and what the file system can do.
struct Killed {
    const char* name;
    bool last; // killed by the rename to .1, else by one between two generations
    bool plainRename;
};

class LogRotateKilled : public LogTest, public testing::WithParamInterface<Killed> {};

TEST_P(LogRotateKilled, NineWritersLoseNothing)
{
    static constexpr int writers = 9;
    static constexpr int count = 3000;
    static constexpr int victim = 4;
    auto* done = static_cast<int*>(
        mmap(nullptr, writers * sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::vector<pid_t> children;
    std::set<std::pair<int, int>> found;

    for (int writer = 0; writer < writers; writer++) {
        children.push_back(fork());
        if (children.back() == 0) {
            logSystem.plainRename = GetParam().plainRename;
            if (writer == victim) {
                logSystem.onRename = [renames = 0](const std::string& to) mutable {
                    return ++renames >= 10 && to.ends_with("log.1") == GetParam().last && raise(SIGKILL) == 0;
                };
            }
            alarm(30);
            open(0, 64 * 1024, 1000);
            for (int number = 0; number < count || writer == victim; number++) {
                WRITE("writer=%d number=%d.", writer, number);
                done[writer] = number + 1;
            }
            _exit(0);
        }
    }
    for (int writer = 0; writer < writers; writer++) {
        int status = -1;
        waitpid(children.at(static_cast<size_t>(writer)), &status, 0);
        EXPECT_EQ(writer == victim ? SIGKILL : 0, status) << writer; // a status of SIGKILL: ended by it
    }

    int files = 0;
    for (const auto& entry : fs::directory_iterator(home / "log")) {
        const std::string name = entry.path().filename();
        files += name.starts_with("monp.log") ? 1 : 0;
        for (const std::string& line : name.starts_with("monp.log") ? lines(name) : std::vector<std::string>()) {
            int writer = -1;
            int number = -1;
            int length = 0;
            const auto text = line.find("writer=");
            ASSERT_NE(std::string::npos, text) << line;
            sscanf(line.c_str() + text, "writer=%d number=%d.%n", &writer, &number, &length);
            ASSERT_EQ(line.size(), text + static_cast<size_t>(length)) << "torn: " << line;
            ASSERT_EQ('2', line[0]) << "torn: " << line;
            ASSERT_TRUE(found.insert({ writer, number }).second) << "twice: " << line;
        }
    }
    // the victim was killed after the write of the record that it had not counted yet
    EXPECT_EQ(static_cast<size_t>((writers - 1) * count + done[victim] + 1), found.size());
    EXPECT_GT(files, 10); // not one for each 64 KiB: while one rotates, the others write on
    munmap(done, writers * sizeof(int));
}

INSTANTIATE_TEST_SUITE_P(Between, LogRotateKilled,
                         testing::Values(Killed{ "TwoGenerations", false, false },
                                         Killed{ "RenameAndNewFile", true, false },
                                         Killed{ "PlainRenames", false, true }),
                         [](const auto& where) { return where.param.name; });
