// Rotation and many writers: nothing is lost, whoever dies in it.
#include "log_fixture.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <set>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>

struct LogRotate : public LogTest {
    const int descriptor = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 100); // the number that the log will get
    const int freed = close(descriptor);

    void writeFull() const
    {
        std::ofstream(path(), std::ios::app) << std::string(5000, 'x') << "\n";
    }
};

TEST_F(LogRotate, WaitsForNobodyClosesAGapAndKeepsTheNewest)
{
    open(0, 1, 3); // raised to 4096 bytes
    for (const char* name : { "monp.log.1", "monp.log.3" }) {
        std::ofstream(path(name)) << name << "\n";
    }
    fs::create_directory(path("monp.log.lock")); // cannot be locked: the file grows, the caller goes on
    for (int number = 0; number < 60; number++) {
        WRITE("%100d", number);
        logSystem.clock += SECOND; // it is tried each time, and told once
    }
    fs::remove(path("monp.log.lock"));
    logSystem.clock += SECOND;
    WRITE("last of the old file");
    const Texts old = texts("monp.log.1");
    const std::string told = printed("log cannot be rotated. (path=%s errno=%d)", path().c_str(), EISDIR);
    EXPECT_EQ(62U, old.size());
    EXPECT_EQ(1, std::count(old.begin(), old.end(), told));
    EXPECT_EQ(Texts{ "monp.log.1" }, lines("monp.log.2"));
    EXPECT_EQ(Texts{ "monp.log.3" }, lines("monp.log.3"));

    for (int number = 0; number < 200; number++) {
        WRITE("%100d", number);
    }
    int expected = 199;
    for (const char* name : { "monp.log", "monp.log.1", "monp.log.2", "monp.log.3" }) {
        EXPECT_LT(fs::file_size(path(name)), 4096U + 300U);
        const Texts found = texts(name);
        for (auto text = found.rbegin(); text != found.rend(); ++text) {
            EXPECT_EQ(expected--, std::stoi(*text));
        }
    }
    EXPECT_LT(expected, 199 - 40);
    EXPECT_FALSE(fs::exists(path("monp.log.4")));
}

TEST_F(LogRotate, NeitherObstaclesNorASlowOrFastWriterStopIt)
{
    fs::create_directories(path("monp.log.2"));
    open(0, 1, 2);
    for (const char* text : { "one", "two", "three" }) {
        writeFull();
        WRITE("%s", text);
        EXPECT_EQ(text, texts("monp.log.1").back());
    }
    const int lock = ::open(path("monp.log.lock").c_str(), O_RDWR | O_CLOEXEC);
    flock(lock, LOCK_EX);
    writeFull();
    WRITE("not rotated");
    close(lock);
    WRITE("the lock is left alone for a while");
    EXPECT_EQ(3U, lines().size());
    logSystem.clock += SECOND / 100;
    WRITE("rotated");
    EXPECT_EQ(4U, lines("monp.log.1").size());
    writeFull();
    fs::remove(path()); // as writers do that fill all generations
    WRITE("written once more");
    EXPECT_EQ(Texts{ "written once more" }, texts());
}

static long openDescriptors()
{
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

// A child has the descriptors of one moment of a rotation, and the memory of that or of a later one.
TEST_F(LogRotate, ForkInTheMiddleNeitherDoublesARecordNorKeepsADescriptor)
{
    int old = -1; // the file that is rotated
    const auto writeInChild = [&, this](int number, bool oldDescriptors) {
        const pid_t child = fork();
        if (child == 0) {
            logSystem.onReplace = nullptr;
            writeFull();
            if (oldDescriptors) {
                syscall(SYS_dup3, old, descriptor, O_CLOEXEC);
            }
            close(old);
            WRITE("child %d", number);
            _exit(static_cast<int>(openDescriptors()));
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    };
    std::vector<int> descriptors;
    open(0, 1, 9);
    const long expected = openDescriptors();
    logSystem.onReplace = [&] {
        old = old < 0 ? fcntl(descriptor, F_DUPFD_CLOEXEC, 0) : old;
        descriptors.push_back(writeInChild(static_cast<int>(descriptors.size()), false));
    };
    writeFull();
    WRITE("rotates");
    logSystem.onReplace = nullptr;
    descriptors.push_back(writeInChild(2, true));
    close(old);
    EXPECT_EQ(std::vector<int>(3, static_cast<int>(expected)), descriptors);
    std::multiset<std::string> found;
    for (const auto& entry : fs::directory_iterator(home / "log")) {
        const Texts texts = this->texts(entry.path().filename());
        found.insert(texts.begin(), texts.end());
    }
    for (int number = 0; number < 3; number++) {
        EXPECT_EQ(1U, found.count(printed("child %d", number)));
    }
}

// A writer is a process whose main thread, second thread and signal handler write.
static constexpr int COUNT = 1500;
static void* handle; // hides that of the fixture, which a signal handler cannot reach
static std::atomic<int> handled;

static void writeOne(const char* who, int number)
{
    WRITE("pid=%d %s %d", getpid(), who, number);
}

static void writeAll(const fs::path& report)
{
    const auto writeMany = [](const char* who) {
        for (int number = 0; number < COUNT; number++) {
            writeOne(who, number);
        }
    };
    struct itimerval often = { { 0, 500 }, { 0, 500 } };
    signal(SIGALRM, [](int) { writeOne("handler", handled++); });
    setitimer(ITIMER_REAL, &often, nullptr);
    std::thread thread(writeMany, "thread");
    writeMany("main");
    thread.join();
    often = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    std::ofstream(report) << COUNT << " " << COUNT << " " << handled;
}

// Right after it renamed the file to a name with this ending, the victim is killed; and whether renames are plain.
class LogWriters : public LogTest, public testing::WithParamInterface<std::pair<const char*, bool>> {
protected:
    void writeUntilKilled(const fs::path& report)
    {
        int number = 0;
        logSystem.onRename = [&, renames = 0](const std::string& to) mutable {
            if (++renames >= 5 && to.ends_with(GetParam().first)) {
                std::ofstream(report) << number + 1 << " 0 0"; // its last record set off the rotation
                raise(SIGKILL);
            }
        };
        for (; number < 1000 * COUNT; number++) {
            writeOne("main", number);
        }
    }
};

TEST_P(LogWriters, NineLoseNothing)
{
    std::vector<pid_t> children;
    std::multiset<std::string> expected{ printed("pid=%d opener 0", getpid()) };
    std::multiset<std::string> found;
    logSystem.clock = 0;
    logSystem.plainRename = GetParam().second;
    ::handle = open(0, 64 * 1024, 1000);
    writeOne("opener", 0); // so that each child has something to forget
    for (int writer = 0; writer < 9; writer++) {
        children.push_back(fork());
        if (children.back() == 0) {
            const fs::path report = home / std::to_string(getpid());
            writer == 4 /* the victim */ ? writeUntilKilled(report) : writeAll(report);
            _exit(0);
        }
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(child == children[4] ? SIGKILL : 0, status); // a status of SIGKILL: ended by it
        std::ifstream report(home / std::to_string(child));
        for (const char* who : { "main", "thread", "handler" }) {
            int count = -1;
            report >> count;
            for (int number = 0; number < count; number++) {
                expected.insert(printed("pid=%d %s %d", child, who, number));
            }
        }
    }
    uintmax_t largest = 0;
    uintmax_t total = 0;
    for (const auto& entry : fs::directory_iterator(home / "log")) {
        largest = std::max(largest, entry.file_size());
        total += entry.file_size();
        const std::string name = entry.path().filename();
        for (const std::string& line : name.starts_with("monp.log") ? lines(name) : Texts()) {
            const std::string text = line.substr(line.find("pid="));
            EXPECT_EQ(37U, line.find(text.substr(4, text.find(' ') - 4) + "/")) << line; // behind time and level
            found.insert(text);
        }
    }
    EXPECT_EQ(expected, found);
    EXPECT_LT(largest, total / 4 * 3); // who renames may lose the processor meanwhile, but all others follow soon
}

INSTANTIATE_TEST_SUITE_P(Between, LogWriters,
                         testing::Values(std::pair{ ".log.1", false }, std::pair{ ".log.2", true }));
