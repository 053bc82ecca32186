// What is written: the lines, which of them are kept, and the events in the events file and the system's log.
#include "log_fixture.h"

#include <climits>
#include <cstring>
#include <ctime>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

using LogFormat = LogTest;

TEST_F(LogFormat, LineSaysWhenWhoAndWhere)
{
    setenv("TZ", "XXX3:30", 1);
    open();
    // ends of months, years and centuries, with and without a leap day
    for (const time_t second : { 951795199L, 951881599L, 951881600L, 1735702199L, 1735702200L, 4107555000L, 99999L }) {
        char when[64];
        logSystem.clock = second * SECOND + 123456789;
        strftime(when, sizeof(when), "%Y-%m-%dT%H:%M:%S.123456%z ", localtime(&second));
        std::thread([&] {
            const std::string who = printed("error %d/%d monp ", getpid(), gettid());
            log_write(handle, TESKLOG_ERROR, 0, "src/monp_loop.cpp", 42, "monp_loop", "text of %d", 7);
            EXPECT_EQ(when + who + "monp_loop src/monp_loop.cpp:42 text of 7", lines().back());
        }).join();
    }
    log_write(handle, 3, 0, nullptr, -1, "", nullptr);
    EXPECT_TRUE(lines().back().ends_with(" monp - -:-1 ")) << lines().back();
}

#define SAME(...)                                        \
    do {                                                 \
        WRITE(__VA_ARGS__);                              \
        EXPECT_EQ(printed(__VA_ARGS__), texts().back()); \
    } while (0)

TEST_F(LogFormat, ConversionsAgreeWithPrintf)
{
    void* const pointer = this;
    const char unterminated[3] = { 'a', 'b', 'c' };

    open();
    SAME("%d %i %u %x %X %#x %#X %o %#o %c%%", INT_MIN, INT_MAX, UINT_MAX, 0xbeefU, 0xbeefU, 255U, 255U, 8U, 8U, 'c');
    SAME("%ld %lld %lu %zu %jd %td", LONG_MIN, LLONG_MAX, ULONG_MAX, sizeof(int), intmax_t{ -1 }, ptrdiff_t{ -2 });
    SAME("%hd %hhd %hhu", short{ -3 }, static_cast<signed char>(-4), static_cast<unsigned char>(255));
    SAME("[%5d] [%-5d] [%05d] [%+d] [% d] [%.3d] [%8.3d] [%-8.3d] [%08x]", 42, 42, -42, 42, 42, 7, 7, 7, 0xabcU);
    SAME("[%#06x] [%#x] [%.0d] [%#o] [%#.0o] [%*d] [%-*d] [%*d] [%.*d]", 1U, 0U, 0, 0U, 0U, 6, 1, 6, 2, -6, 3, -1, 4);
    SAME("[%s] [%10s] [%-10s] [%.3s] [%5.1s] [%*.*s]", "abc", "abc", "abc", unterminated, "abc", 4, 2, "abc");
    SAME("[%p] [%20p] [%p] [%8p]", pointer, pointer, static_cast<void*>(nullptr), static_cast<void*>(nullptr));
}

TEST_F(LogFormat, NoValueForgesALineCommandsATerminalOrCrashes)
{
    static constexpr char wellFormed[] = "gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80 \xe2\x80\x93 \"quoted\"";
    open();
    for (const auto& [value, expected] :
         { std::pair{ "a\nb\rc\td\\e\x1b[2J\x7f", R"(a\nb\rc\td\\e\x1b[2J\x7f)" },
           { wellFormed, wellFormed },
           { "\xc2\x9b \xe2\x80\xa8\xe2\x80\xa9", R"(\xc2\x9b \xe2\x80\xa8\xe2\x80\xa9)" }, // control characters
           { "\xc0\xaf \xed\xa0\x80 \xf4\x90\x80\x80 \xe2\x82",
             R"(\xc0\xaf \xed\xa0\x80 \xf4\x90\x80\x80 \xe2\x82)" } }) {
        WRITE("%s", value);
        EXPECT_EQ(expected, texts().back());
    }
    WRITE("%s %8s %f %s", static_cast<const char*>(nullptr), static_cast<const char*>(nullptr), 1.0, "b");
    EXPECT_EQ("(null)   (null) %f %s", texts().back());
    log_write(handle, TESKLOG_INFO, 0, " f \n", 1, "g\n", "literal\n%c%", '\0');
    EXPECT_TRUE(lines().back().ends_with(R"( g\n \x20f\x20\n:1 literal\n\x00%)"));
}

TEST_F(LogFormat, LongLineIsCutWithAMark)
{
    open();
    WRITE("%s", std::string(1 << 20, '\x1b').c_str());
    EXPECT_TRUE(lines()[0].size() > 4000 && lines()[0].ends_with("\\x1b...[cut]")); // never in the middle of an escape
    WRITE("%s", "");
    const int text = 4079 - static_cast<int>(lines().back().size());
    WRITE("%*d", text, 7);
    WRITE("%*d", text + 1, 7);
    EXPECT_TRUE(lines()[2].ends_with(" 7") && lines()[3].ends_with(" ...[cut]"));
}

TEST_F(LogFormat, LevelDecidesWhatIsKept)
{
    const std::pair<int, Texts> cases[] = {
        { -1, {} }, { 1, { "1" } }, { 0, { "1", "2", "4" } }, { 8, { "1", "2", "4", "8" } }
    };

    for (const auto& [level, kept] : cases) {
        open(level);
        for (const int word : { 1, 2, 4, 8, 16 }) {
            TESKLOG_LINE(handle, word, "%d", word);
        }
        EXPECT_EQ(kept, texts()) << "level " << level;
        log_term(handle);
        fs::remove(path());
    }
}

// In a mount namespace of its own, so that the machine's log does not hear of a halt that never was.
class LogEvent : public LogTest {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, unshare(CLONE_NEWNS));
        ASSERT_EQ(0, mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr));
        for (const char* place : { "/run", "/dev" }) {
            ASSERT_EQ(0, mount("none", place, "tmpfs", 0, nullptr));
        }
        open(-1);
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
        char text[4096] = "";
        recv(fd, text, sizeof(text) - 1, 0);
        return text;
    }
};

TEST_F(LogEvent, EachTakesItsOwnArguments)
{
    for (const int event : { 1, 2, 3, 4, 6, 8 }) {
        raise(event, "dusko", -1);
        EXPECT_NE(std::string::npos, texts().back().find("service dusko")) << event;
    }
    for (const int event : { 5, 7, 9 }) {
        raise(event, -1);
        EXPECT_TRUE(texts().back().ends_with("(status -1).")) << event;
    }
}

TEST_F(LogEvent, ObjectInTheEventsFile)
{
    const std::string who =
        printed(R"({"time":"2026-11-22T20:51:08.123456+0000","ident":"monp","pid":%d,"tid":%d,)", getpid(), gettid());
    const std::string where = R"("function":"loop","file":"src/a.cpp","line":7,"text":)";
    const std::string type = "a\\\"b\\\\c\\n\\u001b\\u009b\\u2028\\ufffd\xc3\xbc";
    raise(2, "a\"b\\c\n\x1b\xc2\x9b\xe2\x80\xa8\xff\xc3\xbc", -1);
    raise(77, reinterpret_cast<const char*>(1), 2); // reading either argument as a string would crash
    EXPECT_EQ((Texts{
                  who + R"("event":2,"name":"FAIL_MON","severity":"error","type":")" + type + R"(","status":-1,)" +
                      where + R"("The service )" + type + R"( could not be started or ended by itself (status -1)."})",
                  who + R"("event":77,"name":"UNKNOWN","severity":"warning",)" + where + R"("Unknown event."})",
              }),
              lines("monp.events.jsonl"));
}

TEST_F(LogEvent, SystemLogHearsOfIt)
{
    const int classic = receiver("/dev/log");
    raise(2, "du\nsko", 4);
    EXPECT_EQ(printed("<27>Nov 22 20:51:08 monp[%d]: ", getpid()) +
                  "[2 FAIL_MON] The service du\\nsko could not be started or ended by itself (status 4).",
              received(classic));

    fs::create_directories("/run/systemd/journal");
    const int journal = receiver("/run/systemd/journal/socket");
    raise(6, "du\nsko");
    EXPECT_EQ(printed("MESSAGE=The system is being halted because of the service du\\nsko.\nPRIORITY=2\n"
                      "SYSLOG_FACILITY=3\nSYSLOG_IDENTIFIER=monp\nSYSLOG_PID=%d\nTESK_EVENT=6\n"
                      "TESK_EVENT_NAME=ACT_HALT_SYSTEM\nCODE_LINE=7\nCODE_FUNC=loop\nCODE_FILE=src/a.cpp\n",
                      getpid()),
              received(journal));

    for (int event = 0; event < 1000; event++) {
        raise(9, 1); // a receiver that does not read must not hold anybody up
    }
}
