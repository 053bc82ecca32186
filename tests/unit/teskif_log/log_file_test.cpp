// The file: how it is opened, and what becomes of records while it cannot be written.
#include "log_fixture.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using Texts = std::vector<std::string>;
namespace fs = std::filesystem;

class LogFile : public LogTest {
protected:
    void SetUp() override
    {
        logSystem.clock = 1795380668000000000;
    }

    static int descriptorOf(const fs::path& file)
    {
        std::error_code none;
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            if (fs::read_symlink(entry.path(), none) == file) {
                return std::stoi(entry.path().filename());
            }
        }
        return -1;
    }
};

TEST_F(LogFile, PrivateModeAndADescriptorThatIsNobodyElses)
{
    const pid_t child = fork();
    if (child == 0) {
        umask(077);
        close(0);
        close(1);
        close(2);
        open();
        WRITE("one");
        const int fd = descriptorOf(path());
        const bool standardClosed = fcntl(0, F_GETFD) < 0 && fcntl(1, F_GETFD) < 0 && fcntl(2, F_GETFD) < 0;
        _exit(fd > 2 && standardClosed && (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0 ? 0 : 1);
    }
    int status = -1;
    struct stat made = {};
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    ASSERT_EQ(0, stat(path().c_str(), &made));
    EXPECT_EQ(0640U, made.st_mode & 07777);
    EXPECT_EQ(Texts{ "one" }, texts());
}

TEST_F(LogFile, InitRefusesWhatItCannotUse)
{
    fs::create_directories(home / "log");
    fs::create_symlink(home / "target", path("link.log"));
    fs::create_directory(path("directory.log"));
    mkfifo(path("pipe.log").c_str(), 0600);
    const std::string longest(64, 'x');
    const std::string tooLong(65, 'x');
    for (const auto& [ident, code] : { std::pair<const char*, int>{ "link", ELOOP },
                                       { "directory", EISDIR },
                                       { "pipe", ENOTSUP },
                                       { nullptr, EINVAL },
                                       { "", EINVAL },
                                       { ".hidden", EINVAL },
                                       { "../monp", EINVAL },
                                       { "mo np", EINVAL },
                                       { tooLong.c_str(), EINVAL },
                                       { longest.c_str(), 0 } }) {
        handle = this;
        EXPECT_EQ(code, log_init(ident, &handle, 0, 0, 0)) << ident;
        EXPECT_EQ(code == 0, handle != nullptr) << ident;
        log_write(handle, TESKLOG_ERROR, 0, "f", 1, "f", "null handle");
        log_term(handle);
    }
    EXPECT_EQ(EINVAL, log_init("monp", nullptr, 0, 0, 0));
    EXPECT_FALSE(fs::exists(home / "target"));
    setenv("TESK_HOME", (home / "missing").c_str(), 1);
    EXPECT_EQ(ENOENT, log_init("monp", &handle, 0, 0, 0));
    setenv("TESK_HOME", (home / std::string(1000, 'x')).c_str(), 1);
    EXPECT_EQ(ENAMETOOLONG, log_init("monp", &handle, 0, 0, 0));
}

TEST_F(LogFile, NewFileWithinASecondAfterTheOldOneWasTakenAway)
{
    open();
    WRITE("one");
    fs::rename(path(), path("taken"));
    logSystem.advance(0.999);
    WRITE("two");
    logSystem.advance(0.001);
    WRITE("three");
    EXPECT_EQ((Texts{ "one", "two" }), texts("taken"));
    EXPECT_EQ(Texts{ "three" }, texts());
    fs::remove_all(home / "log");
    logSystem.clock -= 3600000000000; // a clock that is set back is no reason to wait for an hour
    WRITE("four");
    EXPECT_EQ(Texts{ "four" }, texts());
}

TEST_F(LogFile, ObstacleInItsPlaceIsNotFollowedAndNotFinal)
{
    for (const bool link : { true, false }) {
        open();
        WRITE("one");
        fs::rename(path(), path("taken"));
        if (link) {
            fs::create_symlink(home / "target", path());
        } else {
            fs::create_directory(path());
        }
        logSystem.advance(1);
        WRITE("kept, as its file still has a name");
        EXPECT_EQ((Texts{ "one", "kept, as its file still has a name" }), texts("taken"));
        fs::remove(path("taken"));
        logSystem.advance(1);
        WRITE("lost");
        WRITE("lost");
        EXPECT_FALSE(fs::exists(home / "target"));
        fs::remove(path());
        logSystem.advance(1);
        WRITE("three");
        EXPECT_EQ((Texts{ "2 records lost.", "three" }), texts());
        log_term(handle);
        fs::remove(path());
    }
}

TEST_F(LogFile, FullDiskLosesRecordsAndSaysSo)
{
    struct rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    const struct rlimit before = limit;
    limit.rlim_cur = 1 << 20;
    setrlimit(RLIMIT_FSIZE, &limit);
    open();
    WRITE("one");
    limit.rlim_cur = fs::file_size(path()) + 20; // the next record breaks off, the one after that does not begin
    setrlimit(RLIMIT_FSIZE, &limit);
    errno = EDOM;
    WRITE("two");
    WRITE("three"); // would end the process by SIGXFSZ
    EXPECT_EQ(EDOM, errno);
    setrlimit(RLIMIT_FSIZE, &before);
    WRITE("four");
    WRITE("five");
    const Texts found = texts();
    ASSERT_EQ(5U, found.size());
    EXPECT_EQ(20U, found[1].size()); // what was written of "two", on a line of its own
    EXPECT_EQ((Texts{ "2 records lost.", "four", "five" }), Texts(found.begin() + 2, found.end()));
}

TEST_F(LogFile, LineThatACrashCutOffIsEnded)
{
    fs::create_directories(home / "log");
    std::ofstream(path()) << "half a li";
    open();
    WRITE("one");
    EXPECT_EQ((Texts{ "half a li", "one" }), texts());
}

TEST_F(LogFile, DescriptorTakenByTheProgramStaysTheProgramsOwn)
{
    open();
    WRITE("one");
    const int taken = descriptorOf(path());
    close(taken);
    WRITE("dropped");
    WRITE("two");
    const int again = descriptorOf(path());
    const int other = ::open((home / "other").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    dup3(other, again, O_CLOEXEC);
    logSystem.advance(1);
    WRITE("three");
    log_term(handle);
    struct stat first = {};
    struct stat second = {};
    EXPECT_EQ(0, fstat(other, &first));
    EXPECT_EQ(0, fstat(again, &second));
    EXPECT_EQ(first.st_ino, second.st_ino);
    EXPECT_EQ(0, first.st_size);
    EXPECT_EQ((Texts{ "one", "1 records lost.", "two", "three" }), texts());
    close(again);
    close(other);
}
