// Everybody at once: threads, a signal handler, a forked child, and handles that are closed under a writer.
#include "log_fixture.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

using LogConcurrent = LogTest;

static void* gHandle;
static std::atomic<int> gHandled;
static std::atomic<bool> gDisturbed;

static void onTimer(int)
{
    log_write(gHandle, TESKLOG_INFO, 0, "f", 1, "handler", "who=h number=%d.", gHandled++);
}

static constexpr int count = 4000;

static void writeAll(char who)
{
    for (int number = 0; number < count; number++) {
        errno = EDOM;
        TESKLOG_LINE(gHandle, TESKLOG_INFO, "who=%c number=%d.", who, number);
        gDisturbed = gDisturbed || errno != EDOM;
    }
}

TEST_F(LogConcurrent, ThreadsHandlerAndForkedChildLoseNothing)
{
    struct sigaction action = {};
    struct itimerval often = { { 0, 500 }, { 0, 500 } };
    gHandle = open(0, 16 * 1024, 1000);
    gHandled = 0;
    action.sa_handler = onTimer;
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    WRITE("before the fork, so that there is something to forget");

    const pid_t child = fork();
    if (child == 0) {
        writeAll('c');
        _exit(gDisturbed ? 1 : 0);
    }
    setitimer(ITIMER_REAL, &often, nullptr);
    std::thread first(writeAll, '1');
    writeAll('m');
    first.join();
    often = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    int status = -1;
    while (waitpid(child, &status, 0) < 0) {}
    EXPECT_EQ(0, status);
    EXPECT_FALSE(gDisturbed);
    EXPECT_GT(gHandled, 0);

    std::set<std::string> found;
    const std::string parents = printed(" %d/", getpid());
    const std::string childs = printed(" %d/%d ", child, child);
    for (const auto& entry : fs::directory_iterator(home / "log")) {
        for (const std::string& line : lines(entry.path().filename())) {
            const auto text = line.find("who=");
            if (text != std::string::npos) {
                EXPECT_TRUE(line.starts_with("2") && line.ends_with(".")) << line;
                EXPECT_NE(std::string::npos, line.find(line[text + 4] == 'c' ? childs : parents)) << line;
                EXPECT_TRUE(found.insert(line.substr(text)).second) << line;
            }
        }
    }
    EXPECT_EQ(static_cast<size_t>(3 * count + gHandled), found.size());
}

TEST_F(LogConcurrent, ClosedHandleStaysClosed)
{
    void* const closed = open();
    log_term(closed);
    open(); // in the same place
    EXPECT_NE(closed, handle);
    log_term(closed);
    log_write(closed, TESKLOG_ERROR, 0, "f", 1, "f", "too late");
    log_write(reinterpret_cast<void*>(~uintptr_t{ 0 }), TESKLOG_ERROR, 0, "f", 1, "f", "no handle at all");
    WRITE("one");
    EXPECT_EQ(std::vector<std::string>{ "one" }, texts());
}

TEST_F(LogConcurrent, OpeningAndClosingLeavesNothingBehind)
{
    const auto descriptors = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    const auto before = descriptors();
    void* handles[33];
    for (int round = 0; round < 10000; round++) {
        ASSERT_EQ(0, log_init("monp", &handles[0], 0, 0, 0));
        log_term(handles[0]);
    }
    for (int number = 0; number < 33; number++) {
        EXPECT_EQ(number < 32 ? 0 : EMFILE, log_init("monp", &handles[number], 0, 0, 0));
    }
    for (void* one : handles) {
        log_term(one);
    }
    EXPECT_EQ(before, descriptors());
}

TEST_F(LogConcurrent, ClosingUnderAWriterTakesNoDescriptorFromIt)
{
    struct stat found = {};
    int other = -1;
    open();
    WRITE("one");
    logSystem.onClock = [&] {
        log_term(handle);
        other = ::open((home / "other").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    };
    WRITE("begun before the end");
    WRITE("too late");
    EXPECT_EQ((std::vector<std::string>{ "one", "begun before the end" }), texts());
    EXPECT_EQ(0, fstat(other, &found));
    EXPECT_EQ(0, found.st_size);
    close(other);
}

TEST_F(LogConcurrent, ThreadMayWriteWhileTheLogIsClosedAndOpenedAgain)
{
    std::atomic<void*> current = nullptr;
    std::atomic<bool> stop = false;
    std::thread writer([&] {
        while (!stop) {
            log_write(current, TESKLOG_INFO, 0, "f", 1, "f", "late");
        }
    });
    for (int round = 0; round < 300; round++) {
        void* second = nullptr;
        current = open(0, 1, 1);
        std::this_thread::yield();
        log_term(handle);
        EXPECT_EQ(0, log_init("second", &second, 0, 0, 0));
        std::this_thread::yield();
        log_term(second);
    }
    stop = true;
    writer.join();
    EXPECT_TRUE(lines("second.log").empty());
}
