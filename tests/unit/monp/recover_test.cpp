// Stop of the cluster, halt and reboot: the commands they run, what they fall back to, and the events they raise.
#include "stage.h"

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
    const std::string run = fmt("execv /opt/x/sbin/cmd cmd %s--type own --nochk; ", c.options);
    const bool falls_back = c.shutdown[0] != '\0';

    Recover()
    {
        xml.values = { { root + "/type", "stated" }, { root + "/path", "sbin/cmd" } };
        put(gmonppol.type, "own");
    }

    std::string bad(int status) const
    {
        return fmt("event: %d %d; ", c.event + 1, status);
    }

    std::string complaint(int code, int status) const
    {
        return fmt("error: %s failed. (type=trn ret=%d path=/opt/x/sbin/cmd stat=%#x); ", c.words, code,
                   static_cast<unsigned>(status));
    }

    // The fall-back, with how it went.
    std::string retry(const std::string& line) const
    {
        return falls_back ? fmt("info: retry, path=%s; system %s; ", c.shutdown, c.shutdown) + line + "; " : "";
    }

    // Runs the action and compares all that it says and runs behind its first event.
    void expect(int ret, const std::string& course) const
    {
        journal.entries.clear();
        EXPECT_EQ(ret, c.run());
        EXPECT_EQ(fmt("trace: start - (type=trn); event: %d trn; ", c.event) + course +
                      fmt("trace: end - (type=trn ret=%d)", ret),
                  journal.only("trace: error: info: event: execv system kill",
                               { "type=dusko", "ldtype=cl pol=", "ldtype=down pol=", "trn ret=0 pid", "trn ret=4 pid",
                                 "argv=", "process exited", "path=/opt/x/sbin/cmd bin=cmd" }));
    }
};

static const Action ACTIONS[] = {
    { monp_stop_cluster, "cl", "-t ", "stop of cluster", "", 4 },
    { monp_os_halt, "down", "", "system halt", "/sbin/shutdown -h now", 6 },
    { monp_os_reboot, "down", "-r ", "system reboot", "/sbin/shutdown -r now", 8 },
};

INSTANTIATE_TEST_SUITE_P(Actions, Recover, testing::ValuesIn(ACTIONS));

TEST_P(Recover, RunsTheCommandWhateverItTakes)
{
    const std::string read = "trace: end - (type=trn ret=0); ";
    const int ret = falls_back ? MONP_RET_SUCCESS : MONP_RET_FAIL_UNKNOWN;
    const std::string otherwise = falls_back ? retry(fmt("info: cmd(%s) success.", c.shutdown)) : "";

    gbmonpend = YES; // nor is it signalled
    sys.next = { { .runs = 20 }, { .runs = 1, .status = exited(3) } };
    expect(MONP_RET_SUCCESS, read + run);
    EXPECT_NE(std::string::npos, journal.only("info:").find(" wait=0 pid=(nil) stat=")); // so that it waits for ever
    expect(ret, read + run + complaint(0, 3) + (falls_back ? otherwise : bad(3)));
    journal.fails["access"] = EACCES;
    expect(ret, read + "error: access() failed. (type=trn errno=13); " +
                    "error: monp_create_process() failed. (type=trn ret=4 path=/opt/x/sbin/cmd); " +
                    (falls_back ? complaint(4, -1) + otherwise : bad(-1)));
    xml.values.erase(root + "/path");
    expect(MONP_RET_FAIL_UNKNOWN,
           fmt("error: xmllib_get_value() failed. (type=trn ret=0x105 key=%s/path); ", root.c_str()) +
               "trace: end - (type=trn ret=4); " +
               fmt("error: monp_xml_getcprocpolicy() failed. (type=trn ret=4 ldtype=%s); ", c.section) + bad(-1));
}

TEST_P(Recover, AFailedFallbackKeepsTheStatusOfTheCommand)
{
    for (const auto& [result, line] :
         { std::pair{ exited(5), fmt("error: cmd(%s) failed (ret=5 errno=0).", c.shutdown) },
           { SIGKILL, fmt("error: system(%s) failed. (ret:9,errno:0)", c.shutdown) },
           { -1, fmt("error: system(%s) failed. (ret:-1,errno:1)", c.shutdown) } }) {
        sys.systemresult = result;
        journal.when[fmt("info: retry, path=%s", c.shutdown)] = [] { errno = EEXIST; }; // an older one
        sys.next = { { .runs = 1, .status = SIGUSR1 } };
        expect(MONP_RET_FAIL_UNKNOWN,
               "trace: end - (type=trn ret=0); " + run + complaint(0, -1) + retry(line) + bad(-1));
    }
}
