// The number-to-text routine, the collection of error logs and the marker file.
#include "stage.h"

#include <climits>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>

namespace fs = std::filesystem;

struct Number {
    int number;
    int len;
    std::string text;
    const char* error;
};

struct Itoasc : Cases<Number> {};

TEST_P(Itoasc, WritesOrRefuses)
{
    std::string buffer(16, '#');

    int ret = cs_itoasc(c.number, c.len, buffer.data(), &sys);
    EXPECT_EQ(c.error == nullptr ? CS_RET_SUCCESS : CS_RET_FAIL_UNKOWN, ret);
    EXPECT_EQ(x(16 - static_cast<size_t>(c.len), '#'), buffer.substr(static_cast<size_t>(c.len)));
    std::string line = fmt("detail: start - (src=%d len=%d dest=%p loghdl=%p); ", c.number, c.len,
                           static_cast<void*>(buffer.data()), static_cast<void*>(&sys));
    if (c.error == nullptr) {
        std::string filled = c.text;
        filled.resize(static_cast<size_t>(c.len));
        EXPECT_EQ(filled, buffer.substr(0, static_cast<size_t>(c.len)));
        EXPECT_EQ(line + "detail: end - (dest=" + c.text + ")", journal.only());
    } else {
        EXPECT_EQ(line + "error: " + c.error + fmt("; error: end - (dest=%s)", buffer.c_str()), journal.only());
    }
}

static const Number NUMBERS[] = {
    { 0, 8, "0", nullptr },
    { 9, 2, "9", nullptr },
    { 9999999, 8, "9999999", nullptr },
    { -999999, 8, "-999999", nullptr },
    { INT_MAX, 11, "2147483647", nullptr },
    { -INT_MAX, 12, "-2147483647", nullptr },
    { 10000000, 8, "", "small buffer. (figure=8 wrpos=0 len=8)" },
    { -1000000, 8, "", "small buffer. (figure=7 wrpos=1 len=8)" },
    { 0, 1, "", "small buffer. (figure=1 wrpos=0 len=1)" },
    { INT_MIN, 16, "", "convert failed." },
};

INSTANTIATE_TEST_SUITE_P(Numbers, Itoasc, testing::ValuesIn(NUMBERS));

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
                                               { 4, 10000000, "-o /opt/x/e.tgz" },
                                               { 0, INT_MIN, "-o /opt/x/e.tgz" } }) {
        gmonppol.elog.pattern = pattern;
        gmonppol.elog.rotate = rotate;
        EXPECT_EQ(MONP_RET_SUCCESS, collect()) << "whatever the collector says";
        EXPECT_EQ(std::string("execv /opt/x/sbin/elog elog -t own-trn ") + arguments, journal.only("execv"));
    }
    EXPECT_EQ("info: start - (type=trn); info: path=/opt/x/sbin/elog bin=elog; error: convert failed.; "
              "info: cs_itoasc() failed. (ret=6 rotate=-2147483648); info: end - (type=trn ret=0 stat=1)",
              journal.but("info: error:", { "path=/opt/x/sbin/elog argv=", "process exited", "pid=", "dest=" }));
    EXPECT_NE(std::string::npos, journal.only("info:").find(" wait=0 pid=(nil) stat="));
}

TEST_F(Elog, AFailedLaunchDoesNotBlockTheNext)
{
    journal.fails["access"] = ENOENT;
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, collect());
    EXPECT_EQ("error: access() failed. (type=trn errno=2); "
              "error: monp_create_process() failed. (type=trn ret=4 path=/opt/x/sbin/elog)",
              journal.only("error:"));
    EXPECT_EQ("info: end - (type=trn ret=4 stat=-1)", journal.entries.back());
    journal.fails.clear();
    EXPECT_EQ(MONP_RET_SUCCESS, collect());
    EXPECT_EQ(1u, journal.count("execv"));
}

TEST_F(Elog, RefusesASecondCollectionAndAThirdAndSignalsNone)
{
    gbmonpend = YES;
    sys.at(1, [] { EXPECT_EQ(MONP_RET_SUCCESS, monp_elog_collect(nullptr)); });
    sys.at(2, [] { EXPECT_EQ(MONP_RET_SUCCESS, monp_elog_collect(nullptr)); });
    EXPECT_EQ(MONP_RET_SUCCESS, collect());
    EXPECT_EQ(1u, journal.count("fork"));
    EXPECT_EQ(0u, journal.count("kill"));
    EXPECT_EQ(2u, journal.count("info: now elog collecting. (type=trn exec=-1)"));
    EXPECT_EQ(2u, journal.count("info: end - (type=trn ret=0 stat=0)"));
}

TEST_F(Elog, ATypePairThatDoesNotFitIsTheServiceTypeAlone)
{
    put(gmonpmonpol.type, x(15, 's'));
    for (size_t length : { 15u, 16u }) {
        put(gmonppol.type, x(length, 'm'));
        EXPECT_EQ(MONP_RET_SUCCESS, collect());
        EXPECT_EQ("execv /opt/x/sbin/elog elog -t " + (length == 15 ? x(15, 'm') + "-" : "") + x(15, 's') +
                      " -l -o /opt/x/e.tgz -r 5",
                  journal.only("execv"));
        EXPECT_EQ(length - 15, journal.count("error:"));
    }
}

TEST_F(Elog, APathThatDoesNotFitIsNeverUsed)
{
    journal.fails["access  1"] = ENOENT;
    for (char* field : { gmonppol.elog.scr, gmonppol.elog.arc }) {
        for (size_t length : { 1023u, 1024u }) {
            gmonppol.elog = { "sbin/elog", "e.tgz", 5, 1 };
            const std::string path = x(length - strlen("/opt/x//end")) + "/end";
            memcpy(field, path.c_str(), path.size() + 1);
            EXPECT_EQ(length == 1023 ? MONP_RET_SUCCESS : MONP_RET_FAIL_UNKNOWN, collect());
            EXPECT_EQ(length == 1023 ? 1u : 0u, journal.count("execv"));
            EXPECT_EQ(length == 1023, journal.count("error:") == 0);
        }
    }
}

struct Marker : Monitor {
    Marker()
    {
        char name[] = "/tmp/monp_unit_XXXXXX";
        root = mkdtemp(name);
        sys.realdir = root;
        put(gmonpmonpol.type, "pelkant");
        put(gmonpallpol.instpath, root + "/");
        put(gmonppol.mddirpath, "md");
        put(gmonppol.mdfilename, "made");
        mask = umask(0);
    }

    ~Marker() override
    {
        umask(mask);
        fs::remove_all(root);
    }

    // What an operation says between its entry and its exit line.
    static std::string said(int (*operation)())
    {
        journal.entries.clear();
        EXPECT_EQ(0, operation());
        EXPECT_EQ("info: start - (type=pelkant)", journal.entries.front());
        EXPECT_EQ("info: end - (type=pelkant)", journal.entries.back());
        return journal.but("info: warning: error: trace:", { "info: start - ", "info: end - " });
    }

    mode_t mode(const char* path) const
    {
        struct stat status {};
        return stat((root + path).c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }

    std::string root;
    mode_t mask;
};

TEST_F(Marker, IsMadeOnceAndRemoved)
{
    EXPECT_EQ("", said(monp_make_mdfile));
    EXPECT_EQ(YES, gmdfilemaked);
    EXPECT_EQ(0744u, mode("/md"));
    EXPECT_EQ(0666u, mode("/md/made"));
    journal.entries.clear();
    EXPECT_EQ(0, monp_make_mdfile());
    EXPECT_TRUE(journal.entries.empty());
    EXPECT_EQ("", said(monp_delete_mdfile));
    EXPECT_TRUE(fs::is_empty(root + "/md"));
    EXPECT_EQ(YES, gmdfilemaked);
    // Without the flag, what is there is kept.
    gmdfilemaked = 0;
    fs::permissions(root + "/md", fs::perms::owner_all);
    fclose(fopen((root + "/md/made").c_str(), "w"));
    fs::resize_file(root + "/md/made", 3);
    EXPECT_EQ("", said(monp_make_mdfile));
    EXPECT_EQ(3u, fs::file_size(root + "/md/made"));
    EXPECT_EQ(0700u, mode("/md"));
    EXPECT_EQ(YES, gmdfilemaked);
}

TEST_F(Marker, IsForOneTypeOnly)
{
    put(gmonpparam.type, "pelkant");
    put(gmonpmonpol.type, "trn");
    EXPECT_EQ(0, monp_make_mdfile());
    EXPECT_EQ(0, monp_delete_mdfile());
    EXPECT_TRUE(journal.entries.empty() && fs::is_empty(root));
    EXPECT_EQ(0, gmdfilemaked);
}

TEST_F(Marker, FailuresAreReportedAndTriedAgain)
{
    const char* dir = root.c_str();

    put(gmonppol.mddirpath, "no/md");
    EXPECT_EQ(fmt("error: mkdir failed. (dir=%s/no/md errno=2)", dir), said(monp_make_mdfile));
    put(gmonppol.mddirpath, "md");
    fs::create_directories(root + "/md/made");
    EXPECT_EQ(fmt("error: fopen failed. (file=%s/md/made errno=21)", dir), said(monp_make_mdfile));
    EXPECT_EQ(0, gmdfilemaked);
    EXPECT_EQ(fmt("error: unlink failed. (file=%s/md/made errno=21)", dir), said(monp_delete_mdfile));
    fs::remove(root + "/md/made");
    EXPECT_EQ(fmt("error: Not exist file. (file=%s/md/made errno=2)", dir), said(monp_delete_mdfile));
}

TEST_F(Marker, APathThatDoesNotFitIsLeftAlone)
{
    for (size_t length : { 1020u, 1024u }) { // of the directory: without its file, or not even itself
        put(gmonppol.mddirpath, x(length - root.size() - 1));
        EXPECT_NE("", said(monp_make_mdfile));
        EXPECT_NE("", said(monp_delete_mdfile));
        EXPECT_EQ(0u, journal.count("unlink"));
        EXPECT_EQ(0, gmdfilemaked);
    }
}
