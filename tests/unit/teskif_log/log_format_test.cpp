// What a record looks like, and which ones are kept.
#include "log_fixture.h"

#include <climits>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

using LogFormat = LogTest;
using Texts = std::vector<std::string>;

TEST_F(LogFormat, LineSaysWhenWhoAndWhere)
{
    setenv("TZ", "XXX3:30", 1);
    logSystem.clock = 1795380668123456789;
    open();
    log_write(handle, TESKLOG_ERROR, 0, "src/monp_loop.cpp", 42, "monp_loop", "text of %d", 7);
    log_write(handle, 3, 0, nullptr, -1, nullptr, nullptr);
    const std::string who = printed(" %d/%d monp ", getpid(), gettid());
    EXPECT_EQ((Texts{ "2026-11-22T17:21:08.123456-0330 error" + who + "monp_loop src/monp_loop.cpp:42 text of 7",
                      "2026-11-22T17:21:08.123456-0330 3" + who + "- -:-1 " }),
              lines());
}

TEST_F(LogFormat, DatesAgreeWithTheCalendar)
{
    open();
    // ends of months, years and centuries, with and without a leap day
    for (const time_t second : { 951782399L, 951868799L, 951868800L, 1709251199L, 1735689599L, 1735689600L, 4107542399L,
                                 4107542400L, 86399L }) {
        char expected[32];
        struct tm utc = {};
        logSystem.clock = second * 1000000000;
        strftime(expected, sizeof(expected), "%Y-%m-%dT%H:%M:%S.", gmtime_r(&second, &utc));
        WRITE("x");
        EXPECT_EQ(expected, lines().back().substr(0, 20));
    }
}

#define SAME(...)                                          \
    do {                                                   \
        char expected[512];                                \
        snprintf(expected, sizeof(expected), __VA_ARGS__); \
        WRITE(__VA_ARGS__);                                \
        EXPECT_EQ(expected, texts().back());               \
    } while (0)

TEST_F(LogFormat, ConversionsAgreeWithPrintf)
{
    open();
    void* const pointer = this;
    SAME("%d %i %u %x %X %#x %#X %o %#o %c%%", INT_MIN, INT_MAX, UINT_MAX, 0xbeefU, 0xbeefU, 255U, 255U, 8U, 8U, 'c');
    SAME("%ld %lld %lu %zu %jd %td", LONG_MIN, LLONG_MAX, ULONG_MAX, sizeof(int), intmax_t{ -1 }, ptrdiff_t{ -2 });
    SAME("%hd %hu %hhd %hhu", static_cast<short>(-3), static_cast<unsigned short>(65535), static_cast<signed char>(-4),
         static_cast<unsigned char>(255));
    SAME("[%5d] [%-5d] [%05d] [%+d] [% d] [%.3d] [%8.3d] [%-8.3d] [%08x]", 42, 42, -42, 42, 42, 7, 7, 7, 0xabcU);
    SAME("[%#06x] [%#x] [%.0d] [%#o] [%#.0o] [%*d] [%-*d] [%*d] [%.*d]", 1U, 0U, 0, 0U, 0U, 6, 1, 6, 2, -6, 3, -1, 4);
    SAME("[%s] [%10s] [%-10s] [%.2s] [%5.1s] [%*.*s]", "abc", "abc", "abc", "abc", "abc", 4, 2, "abc");
    SAME("[%p] [%20p] [%p] [%8p]", pointer, pointer, static_cast<void*>(nullptr), static_cast<void*>(nullptr));
}

TEST_F(LogFormat, NullStringAndUnknownConversionTouchNoMemory)
{
    const char* const null = nullptr;
    open();
    WRITE("(type=%s) %8s", null, null);
    WRITE("%s %f %s", "a", 1.0, "b");
    // the compiler would refuse these
    log_write(handle, TESKLOG_INFO, 0, "f", 1, "f", "%d%", 1);
    log_write(handle, TESKLOG_INFO, 0, "f", 1, "f", "%d %n", 1, nullptr);
    EXPECT_EQ((Texts{ "(type=(null))   (null)", "a %f %s", "1%", "1 %n" }), texts());
}

TEST_F(LogFormat, NoValueCanForgeALineOrCommandATerminal)
{
    open();
    for (const auto& [value, expected] : {
             std::pair{ "a\nb\rc\td\\e", R"(a\nb\rc\td\\e)" },
             std::pair{ "\x1b[2J\x07\x7f", R"(\x1b[2J\x07\x7f)" },
             std::pair{ "gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80",
                        "gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80" },
             std::pair{ "\xc2\x9b"
                        "2J",
                        R"(\xc2\x9b2J)" }, // a control character of two bytes
             std::pair{ "\xc0\xaf \xed\xa0\x80 \xf4\x90\x80\x80", R"(\xc0\xaf \xed\xa0\x80 \xf4\x90\x80\x80)" },
             std::pair{ "cut \xe2\x82", R"(cut \xe2\x82)" },
             std::pair{ "\"quoted\"", "\"quoted\"" },
         }) {
        WRITE("%s", value);
        EXPECT_EQ(expected, texts().back());
    }
    log_write(handle, TESKLOG_INFO, 0, "f\n", 1, "g\n", "literal\n%c", '\0');
    EXPECT_TRUE(lines().back().ends_with(R"( g\n f\n:1 literal\n\x00)"));
}

TEST_F(LogFormat, LongLineIsCutWithAMark)
{
    const std::string endless(1 << 20, '\x1b');
    const char open_ended[3] = { 'a', 'b', 'c' };
    open();
    WRITE("%s", endless.c_str());
    WRITE("%999999999d|%.999999999d", 1, 1);
    WRITE("[%.3s]", open_ended);
    WRITE("%s", std::string(3000, 'x').c_str());
    WRITE("%4090s", endless.c_str());
    ASSERT_EQ(5U, lines().size());
    for (const size_t cut : { 0U, 1U }) {
        EXPECT_LT(lines()[cut].size(), 4096U);
        EXPECT_GT(lines()[cut].size(), 4000U);
        EXPECT_TRUE(lines()[cut].ends_with("...[cut]"));
    }
    EXPECT_TRUE(lines()[0].ends_with("\\x1b...[cut]")); // never in the middle of an escape
    EXPECT_EQ("[abc]", texts()[2]);
    EXPECT_EQ(std::string(3000, 'x'), texts()[3]);
    EXPECT_EQ("\\x1b", texts()[4].substr(0, 4)); // not filled up to a width that it exceeds
}

TEST_F(LogFormat, LevelDecidesWhatIsKept)
{
    for (const auto& [level, kept] :
         { std::pair{ 0, Texts{ "1", "2", "4" } }, std::pair{ 1, Texts{ "1" } }, std::pair{ 4, Texts{ "1", "2", "4" } },
           std::pair{ 7, Texts{ "1", "2", "4" } }, std::pair{ 8, Texts{ "1", "2", "4", "8" } },
           std::pair{ -1, Texts{} }, std::pair{ 31, Texts{ "1", "2", "4", "8", "16" } },
           std::pair{ INT_MAX, Texts{ "1", "2", "4", "8", "16" } } }) {
        open(level);
        for (const int word : { 1, 2, 4, 8, 16 }) {
            TESKLOG_LINE(handle, word, "%d", word);
        }
        EXPECT_EQ(kept, texts()) << "level " << level;
        log_term(handle);
        std::filesystem::remove(path());
    }
}
