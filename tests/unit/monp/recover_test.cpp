// Stop of the cluster, halt and reboot: the commands they run, what they fall back to, and the events they raise.
#include "stage.h"

#include <cstring>

struct Action {
    int (*run)();
    const char* section;
    const char* options; // in front of "--type"
    const char* words;   // of the failure line
    const char* shutdown;
    int event;
};

struct Recover : Cases<Action> {
    const std::string root = std::string("/root/") + c.section;
    const std::string begun = fmt("trace: start - (type=trn); event: %d trn; ", c.event);
    const std::string execv = fmt("execv /opt/x/sbin/cmd cmd %s--type own --nochk; ", c.options);
    const std::string fallback = fmt("info: retry, path=%s; system %s; ", c.shutdown, c.shutdown);
    const std::string good = "trace: end - (type=trn ret=0)";
    const bool falls_back = c.shutdown[0] != '\0';

    Recover()
    {
        xml.values = { { root + "/type", "stated" }, { root + "/path", "sbin/cmd" } };
        put(gmonppol.type, "own");
    }

    std::string bad(int status) const
    {
        return fmt("event: %d %d; trace: end - (type=trn ret=4)", c.event + 1, status);
    }

    std::string complaint(int code, int status) const
    {
        return fmt("error: %s failed. (type=trn ret=%d path=/opt/x/sbin/cmd stat=%#x); ", c.words, code,
                   static_cast<unsigned>(status));
    }

    // With a fallback that succeeds.
    std::string otherwise(int code, int status) const
    {
        return falls_back ? complaint(code, status) + fallback + fmt("info: cmd(%s) success.; ", c.shutdown) + good
                          : (code == 0 ? complaint(code, status) : "") + bad(status);
    }

    // What the action itself says and runs.
    static std::string course()
    {
        return journal.but("trace: error: info: event: execv system",
                           { "type=dusko", "pol=0x", "trn ret=0 pid", "trn ret=4 pid", "argv=", "process exited" });
    }

    int recover() const
    {
        journal.entries.clear();
        return c.run();
    }
};

static const Action ACTIONS[] = {
    { monp_stop_cluster, "cl", "-t ", "stop of cluster", "", 4 },
    { monp_os_halt, "down", "", "system halt", "/sbin/shutdown -h now", 6 },
    { monp_os_reboot, "down", "-r ", "system reboot", "/sbin/shutdown -r now", 8 },
};

INSTANTIATE_TEST_SUITE_P(Actions, Recover, testing::ValuesIn(ACTIONS));

TEST_P(Recover, RunsTheCommandAndNeverSignalsIt)
{
    gbmonpend = YES;
    sys.next = { { .runs = 20 } };
    EXPECT_EQ(MONP_RET_SUCCESS, recover());
    EXPECT_EQ(begun + "trace: end - (type=trn ret=0); info: path=/opt/x/sbin/cmd bin=cmd; " + execv + good, course());
    EXPECT_NE(std::string::npos, journal.only("info:").find(" wait=0 pid=(nil) stat=")); // so that it waits for ever
    EXPECT_EQ(0u, journal.count("kill"));
    EXPECT_FALSE(xml.open || !xml.loaded.empty());
}

TEST_P(Recover, WithoutAPolicyNothingRuns)
{
    xml.values.erase(root + "/path");
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, recover());
    EXPECT_EQ(begun + fmt("error: xmllib_get_value() failed. (type=trn ret=0x105 key=%s/path); ", root.c_str()) +
                  "trace: end - (type=trn ret=4); " +
                  fmt("error: monp_xml_getcprocpolicy() failed. (type=trn ret=4 ldtype=%s); ", c.section) + bad(-1),
              course());
}

TEST_P(Recover, AFailedCommandFailsOrFallsBack)
{
    sys.next = { { .runs = 1, .status = exited(3) } };
    EXPECT_EQ(falls_back ? MONP_RET_SUCCESS : MONP_RET_FAIL_UNKNOWN, recover());
    EXPECT_EQ(begun + "trace: end - (type=trn ret=0); info: path=/opt/x/sbin/cmd bin=cmd; " + execv + otherwise(0, 3),
              course());
    journal.fails["access"] = EACCES;
    EXPECT_EQ(falls_back ? MONP_RET_SUCCESS : MONP_RET_FAIL_UNKNOWN, recover());
    EXPECT_EQ(begun + "trace: end - (type=trn ret=0); info: path=/opt/x/sbin/cmd bin=cmd; " +
                  "error: access() failed. (type=trn errno=13); " +
                  "error: monp_create_process() failed. (type=trn ret=4 path=/opt/x/sbin/cmd); " + otherwise(4, -1),
              course());
}

TEST_P(Recover, AFailedFallbackKeepsTheStatusOfTheCommand)
{
    const std::map<int, std::string> results = {
        { exited(5), fmt("error: cmd(%s) failed (ret=5 errno=1).; ", c.shutdown) },
        { SIGKILL, fmt("error: system(%s) failed. (ret:9,errno:1); ", c.shutdown) },
        { -1, fmt("error: system(%s) failed. (ret:-1,errno:1); ", c.shutdown) },
    };
    for (const auto& [result, line] : results) {
        sys.systemresult = result;
        sys.next = { { .runs = 1, .status = SIGTERM } };
        EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, recover());
        std::string lines = execv + complaint(0, 101) + (falls_back ? fallback + line : "") + bad(101);
        EXPECT_EQ(begun + "trace: end - (type=trn ret=0); info: path=/opt/x/sbin/cmd bin=cmd; " + lines, course());
    }
}

TEST_P(Recover, APathThatDoesNotFitIsNeverRun)
{
    const size_t rest = 1023 - strlen(gmonpallpol.instpath) - strlen("/cmd");

    journal.fails["access  1"] = ENOENT; // of the empty path
    for (const auto& [path, fits] : { std::pair{ x(rest) + "/cmd", true },
                                      { x(rest + 1) + "/cmd", false },
                                      { "d/" + x(254), true },
                                      { "d/" + x(255), false } }) {
        xml.values[root + "/path"] = path;
        sys.next = { { .runs = 1 } };
        EXPECT_EQ(fits || falls_back ? MONP_RET_SUCCESS : MONP_RET_FAIL_UNKNOWN, recover());
        EXPECT_EQ(fits ? 1u : 0u, journal.count("execv"));
        EXPECT_EQ(fits, journal.count("error:") == 0);
        EXPECT_EQ(!fits && falls_back ? 1u : 0u, journal.count("system"));
    }
}
