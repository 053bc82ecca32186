// The number-to-text routine, the collection of error logs and the marker file.
#include "monp_log.h"
#include "monp_signal.h"
#include "stage.h"

#include <climits>
#include <cstring>
#include <future>
#include <thread>

static void write_late()
{
    MONP_INFO("late");
}

// Closes the log while another thread is writing a line, for these milliseconds or as long as it takes.
static std::string close_beside_a_writer(int milliseconds)
{
    std::promise<void> begun;
    std::promise<void> ended;
    journal.when["info: late"] = [&] {
        begun.set_value();
        ended.get_future().wait();
    };
    std::thread writer(write_late);
    const auto end = [&] {
        ended.set_value();
        writer.join();
    };

    begun.get_future().wait();
    if (milliseconds != FOREVER) {
        sys.at(milliseconds / 1000.0, end);
    }
    monp_log_close();
    std::string course = journal.only("log_term");
    if (milliseconds == FOREVER) {
        end();
    }
    return course;
}

TEST_F(Monitor, TheLogIsNotClosedUnderAWriter)
{
    EXPECT_EQ("log_term", close_beside_a_writer(900));
    EXPECT_EQ(900, sys.clock);
    monp_log_open(4, 5000);
    journal.entries.clear();
    EXPECT_EQ("", close_beside_a_writer(FOREVER)) << "one that hangs does not keep the monitor";
    EXPECT_EQ(900 + 1000, sys.clock);
    MONP_INFO("later");
    EXPECT_EQ(0u, journal.count("info: later"));
}

TEST_F(Monitor, ItoascWritesOrRefuses)
{
    for (const auto& [number, len, text, error] :
         { std::tuple{ 0, 8, "0", "" },
           { 9999999, 8, "9999999", "" },
           { -999999, 8, "-999999", "" },
           { INT_MAX, 11, "2147483647", "" },
           { 10000000, 8, "", "error: small buffer. (figure=8 wrpos=0 len=8)" },
           { -1000000, 8, "", "error: small buffer. (figure=7 wrpos=1 len=8)" },
           { 0, 1, "", "error: small buffer. (figure=1 wrpos=0 len=1)" },
           { INT_MIN, 16, "", "error: convert failed." } }) {
        std::string buffer = x(16, '#');
        journal.entries.clear();
        EXPECT_EQ(*error != '\0' ? CS_RET_FAIL_UNKOWN : CS_RET_SUCCESS, cs_itoasc(number, len, buffer.data(), &sys));
        EXPECT_EQ(x(16 - static_cast<size_t>(len), '#'), buffer.substr(static_cast<size_t>(len)));
        EXPECT_TRUE(*error != '\0' || strcmp(text, buffer.data()) == 0) << buffer;
        EXPECT_EQ(error, journal.only("error:", { "end - " }));
    }
}

struct Elog : Monitor {
    Elog()
    {
        put(gmonppol.type, "own");
        gmonppol.elog = { "sbin/elog", "e.tgz", 5, 1 };
    }

    static int collect()
    {
        journal.entries.clear();
        sys.next = { { .runs = 3, .status = exited(1) } };
        return monp_elog_collect(nullptr);
    }
};

TEST_F(Elog, ArgumentsFollowTheSettings)
{
    for (auto [pattern, rotate, arguments] : { std::tuple{ 1, 5, "-l -o /opt/x/e.tgz -r 5" },
                                               { 2, -5, "-d -o /opt/x/e.tgz -r -5" },
                                               { 7, 9999999, "-l -d -o /opt/x/e.tgz -r 9999999" },
                                               { 4, 12345678, "-o /opt/x/e.tgz" },
                                               { 4, INT_MIN, "-o /opt/x/e.tgz" } }) {
        gmonppol.elog.pattern = pattern;
        gmonppol.elog.rotate = rotate;
        EXPECT_EQ(MONP_RET_SUCCESS, collect()) << "whatever the collector says";
        EXPECT_EQ(std::string("execv /opt/x/sbin/elog elog -t own-trn ") + arguments, journal.only("execv"));
    }
    EXPECT_EQ(1u, journal.count("info: cs_itoasc() failed. (ret=6 rotate=-2147483648)"));
    EXPECT_EQ("info: end - (type=trn ret=0 stat=1)", journal.entries.back());
}

TEST_F(Elog, OneCollectionAtATimeWhichNobodySignals)
{
    journal.fails["access"] = ENOENT; // a failed one does not block the next
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, collect());
    EXPECT_EQ(1u, journal.count("error: monp_create_process() failed. (type=trn ret=4 path=/opt/x/sbin/elog)"));
    journal.fails.clear();
    gbmonpend = YES;
    sys.at(1, [] { EXPECT_EQ(MONP_RET_SUCCESS, monp_elog_collect(nullptr)); });
    EXPECT_EQ(MONP_RET_SUCCESS, collect());
    EXPECT_EQ(1u, journal.count("fork"));
    EXPECT_EQ(0u, journal.count("kill"));
    EXPECT_EQ(1u, journal.count("info: now elog collecting. (type=trn exec=-1)"));
}

TEST_F(Elog, TextsThatDoNotFitAreNeverCut)
{
    put(gmonppol.type, x(28, 'm')); // the type pair is the service type alone
    EXPECT_EQ(MONP_RET_SUCCESS, collect());
    EXPECT_EQ("execv /opt/x/sbin/elog elog -t trn -l -o /opt/x/e.tgz -r 5", journal.only("execv"));
    journal.fails["access  1"] = ENOENT;
    for (char* field : { gmonppol.elog.scr, gmonppol.elog.arc }) {
        for (size_t length : { 1023u, 1024u }) {
            gmonppol.elog = { "sbin/elog", "e.tgz", 5, 1 };
            const std::string path = x(length - strlen("/opt/x//end")) + "/end";
            memcpy(field, path.c_str(), path.size() + 1);
            EXPECT_EQ(length == 1023 ? MONP_RET_SUCCESS : MONP_RET_FAIL_UNKNOWN, collect());
            EXPECT_EQ(length == 1023 ? 1u : 0u, journal.count("execv"));
        }
    }
}

TEST_F(Monitor, TheMarkerIsMadeOnceAndFailuresAreTriedAgain)
{
    // In directories that are there; the first operation is the making.
    for (auto [make, dir, file, made, line] :
         { std::tuple{ true, "none/md", "made", 0, "error: mkdir failed. (dir=/none/md errno=2)" },
           { true, "proc", "none", 0, "error: fopen failed. (file=/proc/none errno=2)" },
           { true, "proc/self/root/dev", "null", YES, "" }, // a link
           { true, "dev", "null", YES, "" },
           { false, "dev", "null", 0, "unlink /dev/null" },
           { false, "proc", "none", 0, "error: Not exist file. (file=/proc/none errno=2)" },
           { false, "proc", "self", 0, "unlink /proc/self; error: unlink failed. (file=/proc/self errno=1)" } }) {
        gmonpmonpol = {};
        put(gmonpmonpol.type, "pelkant");
        put(gmonpallpol.instpath, "/");
        put(gmonppol.mddirpath, dir);
        put(gmonppol.mdfilename, file);
        gmdfilemaked = 0;
        journal.entries.clear();
        journal.fails["unlink /proc/self"] = EPERM;
        EXPECT_EQ(0, make ? monp_make_mdfile() : monp_delete_mdfile());
        EXPECT_EQ(made, gmdfilemaked);
        EXPECT_EQ(line, journal.only("", { "info: start - (type=pelkant)", "info: end - (type=pelkant)" }));
    }
    for (size_t length : { 1020u, 1023u }) { // of the directory: without its file, or not even itself
        put(gmonppol.mddirpath, x(length));
        EXPECT_EQ(0, monp_make_mdfile());
        EXPECT_EQ(0, monp_delete_mdfile());
        EXPECT_EQ(0, gmdfilemaked);
    }
    journal.entries.clear();
    put(gmonpparam.type, "pelkant"); // the policy type counts
    put(gmonpmonpol.type, "trn");
    EXPECT_EQ(0, monp_make_mdfile());
    EXPECT_EQ(0, monp_delete_mdfile());
    put(gmonpmonpol.type, "pelkant");
    gmdfilemaked = YES;
    EXPECT_EQ(0, monp_make_mdfile());
    EXPECT_EQ("", journal.only(""));
}

TEST_F(Monitor, TheMarkerIsMadeOnTheMainThreadOnly)
{
    break_marker();
    std::thread(monp_make_mdfile).join();
    EXPECT_EQ("", journal.only(""));
    monp_drainsignals();
    monp_drainsignals();
    EXPECT_EQ(1u, journal.count("error: mkdir"));
}
