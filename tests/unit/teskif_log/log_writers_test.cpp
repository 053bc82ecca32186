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

    // so much that not even a taken lock keeps the file in its place
    void writeFull() const
    {
        std::ofstream(path(), std::ios::app) << std::string(40000, 'x') << "\n";
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

TEST_F(LogRotate, NeitherObstaclesNorAFastWriterStopIt)
{
    fs::create_directories(path("monp.log.2"));
    open(0, 1, 2);
    for (const char* text : { "one", "two", "three" }) {
        writeFull();
        WRITE("%s", text);
        EXPECT_EQ(text, texts("monp.log.1").back());
    }
    writeFull();
    fs::remove(path()); // as writers do that fill all generations
    WRITE("written once more");
    EXPECT_EQ(Texts{ "written once more" }, texts());
}

TEST_F(LogRotate, PutsTheFileAsideWhileAnotherHasTheLock)
{
    const auto aside = [this] {
        return std::count_if(fs::directory_iterator(home / "log"), fs::directory_iterator(), [](const auto& entry) {
            return entry.path().filename().string().starts_with("monp.log.aside.");
        });
    };
    open(0, 1, 3);
    const int lock = ::open(path("monp.log.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const auto putAside = [&](const Texts& texts) {
        flock(lock, LOCK_EX);
        for (const std::string& text : texts) {
            writeFull();
            WRITE("%s", text.c_str());
            EXPECT_EQ(Texts{}, lines());
        }
        flock(lock, LOCK_UN);
    };
    const auto expectNumbered = [&](const Texts& newestFirst) {
        EXPECT_EQ(0, aside());
        for (size_t number = 0; number < newestFirst.size(); number++) {
            const Texts found = texts("monp.log." + std::to_string(number + 1));
            ASSERT_FALSE(found.empty());
            EXPECT_EQ(newestFirst[number], found.back());
        }
    };
    std::ofstream(path("monp.log.aside.1.x")) << "somebody's";
    putAside({ "one", "two" });
    EXPECT_EQ(3, aside());
    fs::remove(path("monp.log.aside.1.x"));
    writeFull();
    WRITE("three");
    expectNumbered({ "three", "two", "one" });
    putAside({ "four" });
    log_term(handle);
    open(0, 1, 3);
    expectNumbered({ "four", "three", "two" });
    EXPECT_FALSE(fs::exists(path("monp.log.4")));
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

struct Storm {
    const char* name;
    const char* killedAt; // in the name to which the victim has just renamed a file when it is killed
    bool plainRename = false;
    bool lockHeld = false; // until the victim is dead
};

class LogWriters : public LogTest, public testing::WithParamInterface<Storm> {
protected:
    void writeUntilKilled(const fs::path& report)
    {
        int number = 0;
        logSystem.onRename = [&, renames = 0](const std::string& to) mutable {
            if (++renames >= 5 && to.find(GetParam().killedAt) != std::string::npos) {
                std::ofstream(report) << number + 1 << " 0 0"; // its last record set off the rotation
                raise(SIGKILL);
            }
        };
        for (; number < 1000 * COUNT; number++) {
            writeOne("main", number);
        }
    }

    int holdLock() const
    {
        const int lock = ::open(path("monp.log.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        flock(lock, LOCK_EX);
        return lock;
    }
};

TEST_P(LogWriters, NineLoseNothingAndKeepTheLimit)
{
    constexpr int limit = 64 * 1024;
    std::vector<pid_t> children;
    std::multiset<std::string> expected{ printed("pid=%d opener 0", getpid()) };
    std::multiset<std::string> found;
    logSystem.clock = 0;
    logSystem.plainRename = GetParam().plainRename;
    ::handle = open(0, limit, 1000);
    writeOne("opener", 0); // so that each child has something to forget
    const int lock = GetParam().lockHeld ? holdLock() : -1;
    for (int writer = 0; writer < 9; writer++) {
        children.push_back(fork());
        if (children.back() == 0) {
            close(lock);
            const fs::path report = home / std::to_string(getpid());
            writer == 0 /* the victim */ ? writeUntilKilled(report) : writeAll(report);
            _exit(0);
        }
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(child == children[0] ? SIGKILL : 0, status); // a status of SIGKILL: ended by it
        if (child == children[0]) {
            close(lock);
        }
        std::ifstream report(home / std::to_string(child));
        for (const char* who : { "main", "thread", "handler" }) {
            int count = -1;
            report >> count;
            for (int number = 0; number < count; number++) {
                expected.insert(printed("pid=%d %s %d", child, who, number));
            }
        }
    }
    log_term(::handle);
    open(0, limit, 1000); // numbers what the victim left
    for (const auto& entry : fs::directory_iterator(home / "log")) {
        const std::string name = entry.path().filename();
        EXPECT_EQ(std::string::npos, name.find(".aside."));
        EXPECT_LE(entry.file_size(), 2U * limit) << name;
        for (const std::string& line : name.starts_with("monp.log") ? lines(name) : Texts()) {
            const std::string text = line.substr(line.find("pid="));
            EXPECT_EQ(37U, line.find(text.substr(4, text.find(' ') - 4) + "/")) << line; // behind time and level
            found.insert(text);
        }
    }
    EXPECT_EQ(expected, found);
}

INSTANTIATE_TEST_SUITE_P(Killed, LogWriters,
                         testing::Values(Storm{ .name = "InTheMiddle", .killedAt = ".log.1" },
                                         Storm{ .name = "WithPlainRenames", .killedAt = ".log.2", .plainRename = true },
                                         Storm{ .name = "PuttingAside", .killedAt = ".aside.", .lockHeld = true }),
                         [](const auto& row) { return std::string(row.param.name); });
