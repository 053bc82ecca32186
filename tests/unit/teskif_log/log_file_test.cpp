// The file and its handle: how it is opened, what becomes of records while it cannot be written, and when it is closed.
#include "log_fixture.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

struct LogFile : public LogTest {
    const int descriptor = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 100); // the number that the log will get
    const int freed = close(descriptor);
};

TEST_F(LogFile, PrivateModeAndADescriptorThatIsNobodyElses)
{
    const auto inChild = [this] {
        umask(077);
        close_range(0, 2, 0);
        open();
        WRITE("one");
        const bool standardClosed = fcntl(0, F_GETFD) < 0 && fcntl(1, F_GETFD) < 0 && fcntl(2, F_GETFD) < 0;
        _exit(standardClosed && (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0 ? 0 : 1);
    };
    EXPECT_EXIT(inChild(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(fs::perms(0640), fs::status(path()).permissions());
    EXPECT_EQ(Texts{ "one" }, texts());
}

TEST_F(LogFile, InitRefusesWhatItCannotUse)
{
    const std::string longest(64, 'x');
    for (const std::string& ident : { std::string(), std::string("../x"), longest + "x" }) {
        handle = this;
        EXPECT_EQ(EINVAL, log_init(ident.c_str(), &handle, 0, 0, 0)) << ident;
        EXPECT_EQ(nullptr, handle);
        WRITE("does nothing with a null handle");
    }
    EXPECT_EQ(EINVAL, log_init(nullptr, &handle, 0, 0, 0));
    EXPECT_EQ(0, log_init(longest.c_str(), &handle, 0, 0, 0));
    log_term(handle);
    setenv("TESK_HOME", (home / std::string(1000, 'x')).c_str(), 1);
    EXPECT_EQ(ENAMETOOLONG, log_init("monp", &handle, 0, 0, 0));
}

TEST_F(LogFile, WhatCannotBeOpenedIsTriedAgainAndEachLossReportedOnce)
{
    const auto inChild = [](auto write) { EXPECT_EXIT((write(), _exit(0)), testing::ExitedWithCode(0), ""); };
    fs::create_directories(home / "log");
    for (const auto& obstruct : { +[](const fs::path& path) { fs::create_symlink("target", path); },
                                  +[](const fs::path& path) { fs::create_directories(path); },
                                  +[](const fs::path& path) { fs::remove_all(path.parent_path().parent_path()); } }) {
        obstruct(path());
        open();
        WRITE("lost");
        log_term(handle);
        open();
        inChild([this] { WRITE("lost"); });
        fs::remove_all(path());
        fs::create_directory(home);
        inChild([this] { log_term(handle); });
        WRITE("one");
        EXPECT_EQ((Texts{ "2 records lost.", "one" }), texts());
        log_term(handle);
        fs::remove(path());
    }
}

TEST_F(LogFile, ReplacedAndRemovedFileIsFollowedWithinASecond)
{
    fs::create_directories(home / "log");
    std::ofstream(home / "target") << "not ours";
    std::ofstream(path()) << "cut off by a cra";
    open();
    WRITE("one");
    fs::rename(path(), path("taken"));
    fs::create_symlink(home / "target", path());
    logSystem.clock += SECOND;
    WRITE("kept, as its file still has a name");
    fs::remove(path());
    logSystem.clock += SECOND - 1;
    WRITE("two");
    logSystem.clock += 1;
    WRITE("three");
    EXPECT_EQ((Texts{ "cut off by a cra", "one", "kept, as its file still has a name", "two" }), texts("taken"));
    EXPECT_EQ(Texts{ "three" }, texts());
    EXPECT_EQ(Texts{ "not ours" }, lines("../target"));
    fs::remove_all(home / "log");
    logSystem.clock -= 3600 * SECOND; // a clock that is set back is no reason to wait for an hour
    WRITE("four");
    close(descriptor); // as a program does that closes all it does not know
    WRITE("dropped");
    WRITE("five");
    EXPECT_EQ((Texts{ "four", "1 records lost.", "five" }), texts());
}

TEST_F(LogFile, FullDiskLosesRecordsAndSaysSo)
{
    struct rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto limit = [&](rlim_t bytes) {
        const struct rlimit size = { bytes, before.rlim_max };
        setrlimit(RLIMIT_FSIZE, &size);
    };
    open();
    WRITE("one");
    limit(fs::file_size(path()) + 20); // the next record breaks off, the one after that does not begin
    logSystem.clock += SECOND;
    errno = EDOM;
    WRITE("two");
    WRITE("three"); // would end the process by SIGXFSZ
    EXPECT_EQ(EDOM, errno);
    limit(before.rlim_cur);
    std::ofstream(path(), std::ios::app) << "another writer's\n";
    logSystem.clock += SECOND;
    WRITE("four");
    EXPECT_EQ(19U, lines().at(1).size()); // what was written of "two", on a line of its own
    EXPECT_EQ((Texts{ "one", texts().at(1), "another writer's", "2 records lost.", "four" }), texts());
}

TEST_F(LogFile, ClosedHandleStaysClosedAndAWriterKeepsItsDescriptor)
{
    int fd = -1;
    void* const closed = open();
    log_term(closed);
    open(); // in the same place
    log_term(closed);
    log_write(closed, TESKLOG_ERROR, 0, "f", 1, "f", "too late");
    log_write(reinterpret_cast<void*>(~uintptr_t{ 0 }), TESKLOG_ERROR, 0, "f", 1, "f", "no handle at all");
    WRITE("one");
    const int other = ::open(path("other").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    logSystem.onClock = [&] {
        log_term(handle);
        fd = fd < 0 ? fcntl(other, F_DUPFD_CLOEXEC, descriptor) : fd; // the log's, if that were free
    };
    WRITE("begun before the end");
    WRITE("too late");
    EXPECT_EQ((Texts{ "one", "begun before the end" }), texts());
    EXPECT_EQ(0U, fs::file_size(path("other")));
    close(fd);
    close(other);
}
