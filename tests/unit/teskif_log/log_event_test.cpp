// Events: their texts, the events file and the system's log. They run in a mount namespace of their own, so that the
// machine's log does not hear of a halt that never was.
#include "log_fixture.h"

#include <cstring>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

class LogEvent : public LogTest {
protected:
    void SetUp() override
    {
        if (geteuid() != 0 || unshare(CLONE_NEWNS) != 0) {
            GTEST_SKIP() << "needs root for a mount namespace";
        }
        ASSERT_EQ(0, mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr));
        for (const char* place : { "/run", "/dev" }) {
            ASSERT_EQ(0, mount("none", place, "tmpfs", 0, nullptr));
            mounted.emplace_back(place);
        }
        logSystem.clock = 1795380668123456789;
        open(-1);
    }

    void TearDown() override
    {
        for (const std::string& place : mounted) { // never the machine's own
            umount2(place.c_str(), MNT_DETACH);
        }
    }

    template <class... Arguments> void raise(int event, Arguments... arguments)
    {
        log_write(handle, TESKLOG_EVENT, event, "src/a.cpp", 7, "loop", nullptr, arguments...);
    }

    static int receiver(const char* path)
    {
        struct sockaddr_un address = {};
        const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(0, bind(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof(address)));
        return fd;
    }

    static std::string received(int fd)
    {
        char text[4096];
        const ssize_t size = recv(fd, text, sizeof(text), 0);
        return { text, size > 0 ? static_cast<size_t>(size) : 0 };
    }

    std::vector<std::string> mounted;
};

TEST_F(LogEvent, EachTakesItsOwnArguments)
{
    raise(1, "dusko", 3);
    raise(2, "dusko", -1);
    raise(3, "dusko", 101);
    raise(4, "dusko");
    raise(5, 9);
    raise(6, "dusko");
    raise(7, 4);
    raise(8, "dusko");
    raise(9, -1);
    raise(77, reinterpret_cast<const char*>(1), 2); // reading either argument as a string would crash
    log_write(handle, TESKLOG_EVENT, 2, "f", 1, "f", "own text %d", 5);
    log_write(handle, TESKLOG_ERROR, 2, "f", 1, "f", nullptr);
    EXPECT_EQ((std::vector<std::string>{
                  "[1 FAIL_INIT] The service dusko did not report its initialisation (status 3).",
                  "[2 FAIL_MON] The service dusko could not be started or ended by itself (status -1).",
                  "[3 ACT_RESTART] The service dusko is about to be restarted; its last run ended with status 101.",
                  "[4 ACT_STOP_DAEMON] The cluster daemons are being stopped because of the service dusko.",
                  "[5 FAIL_STOP_DAEMON] The cluster daemons could not be stopped (status 9).",
                  "[6 ACT_HALT_SYSTEM] The system is being halted because of the service dusko.",
                  "[7 FAIL_HALT_SYSTEM] The system could not be halted (status 4).",
                  "[8 ACT_REBOOT_SYSTEM] The system is being rebooted because of the service dusko.",
                  "[9 FAIL_REBOOT_SYSTEM] The system could not be rebooted (status -1).",
                  "[77 UNKNOWN] Unknown event.",
                  "[2 FAIL_MON] own text 5",
              }),
              texts());
    EXPECT_NE(std::string::npos, lines()[0].find("+0000 event "));
    EXPECT_EQ(11U, lines("monp.events.jsonl").size());
}

TEST_F(LogEvent, ObjectInTheEventsFile)
{
    const std::string who =
        printed(R"({"time":"2026-11-22T20:51:08.123456+0000","ident":"monp","pid":%d,"tid":%d)", getpid(), gettid());
    const std::string where = R"("function":"loop","file":"src/a.cpp","line":7,"text":"The )";
    raise(2, "a\"b\\c\n\x1b\xff\xc3\xbc", -1);
    raise(9, 4);
    raise(4, nullptr);
    EXPECT_EQ((std::vector<std::string>{
                  who +
                      R"(,"event":2,"name":"FAIL_MON","severity":"error","type":"a\"b\\c\n\u001b\ufffd)"
                      "\xc3\xbc"
                      R"(","status":-1,)" +
                      where +
                      R"(service a\"b\\c\n\u001b\ufffd)"
                      "\xc3\xbc"
                      R"( could not be started or ended by itself (status -1)."})",
                  who + R"(,"event":9,"name":"FAIL_REBOOT_SYSTEM","severity":"critical","status":4,)" + where +
                      R"(system could not be rebooted (status 4)."})",
                  who + R"(,"event":4,"name":"ACT_STOP_DAEMON","severity":"critical","type":null,)" + where +
                      R"(cluster daemons are being stopped because of the service (null)."})",
              }),
              lines("monp.events.jsonl"));
}

TEST_F(LogEvent, LongValuesLeaveTheObjectWhole)
{
    const std::string giant(5000, '\x01');
    log_write(handle, TESKLOG_EVENT, 2, giant.c_str(), 7, giant.c_str(), nullptr, giant.c_str(), 1);
    const std::string line = lines("monp.events.jsonl").at(0);
    EXPECT_LT(line.size(), 4096U);
    for (const char* whole : { R"(\u0001...[cut]","status":1,"function":")", R"(\u0001...[cut]","file":")",
                               R"(\u0001...[cut]","line":7,"text":"The service \u0001)" }) {
        EXPECT_NE(std::string::npos, line.find(whole)) << whole;
    }
    EXPECT_TRUE(line.ends_with(R"(...[cut]"})"));
}

TEST_F(LogEvent, LostOnesAreReportedAsAnObject)
{
    std::filesystem::remove(path("monp.events.jsonl"));
    std::filesystem::create_directory(path("monp.events.jsonl"));
    logSystem.advance(1);
    raise(9, 1);
    raise(9, 2);
    std::filesystem::remove(path("monp.events.jsonl"));
    logSystem.advance(1);
    raise(9, 3);
    const auto found = lines("monp.events.jsonl");
    ASSERT_EQ(2U, found.size());
    EXPECT_TRUE(found[0].ends_with(R"(,"lost":2})")) << found[0];
    EXPECT_EQ(3U, lines().size()); // the log has them all
}

TEST_F(LogEvent, SystemLogHearsOfIt)
{
    const int classic = receiver("/dev/log");
    raise(2, "du\nsko", 4);
    EXPECT_EQ(
        printed("<27>Nov 22 20:51:08 monp[%d]: [2 FAIL_MON] The service du\\nsko could not be started or ended by "
                "itself (status 4).",
                getpid()),
        received(classic));

    std::filesystem::create_directories("/run/systemd/journal");
    const int journal = receiver("/run/systemd/journal/socket");
    raise(6, "du\nsko");
    EXPECT_EQ(printed("MESSAGE=The system is being halted because of the service du\\nsko.\nPRIORITY=2\n"
                      "SYSLOG_FACILITY=3\nSYSLOG_IDENTIFIER=monp\nSYSLOG_PID=%d\nTESK_EVENT=6\n"
                      "TESK_EVENT_NAME=ACT_HALT_SYSTEM\nCODE_LINE=7\nCODE_FUNC=loop\nCODE_FILE=src/a.cpp\n",
                      getpid()),
              received(journal));
    EXPECT_EQ("", received(classic));

    for (int event = 0; event < 1000; event++) {
        raise(9, 1); // a receiver that does not read must not hold anybody up
    }
    EXPECT_EQ(1002U, lines().size());
    close(classic);
    close(journal);
}
