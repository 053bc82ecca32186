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

// What an action says and runs is put together from pieces that begin with "; ".
struct Recover : Monitor, testing::WithParamInterface<Action> {
    const Action& c = GetParam();
    const std::string path = std::string("/root/") + c.section + "/path";
    const std::string run = fmt("; execv /opt/x/sbin/cmd cmd %s--type own --nochk", c.options);
    const bool falls_back = c.shutdown[0] != '\0';

    Recover()
    {
        xml.values = { { std::string("/root/") + c.section + "/type", "stated" }, { path, "sbin/cmd" } };
        put(gmonppol.type, "own");
    }

    std::string bad(int status) const
    {
        return fmt("; event: %d %d", c.event + 1, status);
    }

    std::string complaint(int code, int status) const
    {
        return fmt("; error: %s failed. (type=trn ret=%d path=/opt/x/sbin/cmd stat=%#x)", c.words, code,
                   static_cast<unsigned>(status));
    }

    void expect(int ret, const std::string& course) const
    {
        journal.entries.clear();
        EXPECT_EQ(ret, c.run());
        EXPECT_EQ(fmt("event: %d trn", c.event) + course, journal.only("error: event: execv system kill"));
        EXPECT_EQ(fmt("trace: end - (type=trn ret=%d)", ret), journal.entries.back());
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
    const int ret = falls_back ? MONP_RET_SUCCESS : MONP_RET_FAIL_UNKNOWN;
    const std::string otherwise = fmt("; system %s", c.shutdown);

    gbmonpend = YES; // nor is it signalled
    sys.next = { { .runs = 20 }, { .runs = 1, .status = exited(3) } };
    expect(MONP_RET_SUCCESS, run);
    EXPECT_EQ(20000, sys.clock);
    expect(ret, run + complaint(0, 3) + (falls_back ? otherwise : bad(3)));
    journal.fails["access"] = EACCES;
    expect(ret, "; error: access() failed. (type=trn errno=13)"
                "; error: monp_create_process() failed. (type=trn ret=4 path=/opt/x/sbin/cmd)" +
                    (falls_back ? complaint(4, -1) + otherwise : bad(-1)));
    xml.values.erase(path);
    expect(MONP_RET_FAIL_UNKNOWN,
           fmt("; error: xmllib_get_value() failed. (type=trn ret=0x105 key=%s)", path.c_str()) +
               fmt("; error: monp_xml_getcprocpolicy() failed. (type=trn ret=4 ldtype=%s)", c.section) + bad(-1));
}

TEST_P(Recover, AFailedFallbackKeepsTheStatusOfTheCommand)
{
    for (const auto& [result, line] : { std::pair{ exited(5), fmt("cmd(%s) failed (ret=5 errno=0).", c.shutdown) },
                                        { SIGKILL, fmt("system(%s) failed. (ret:9,errno:0)", c.shutdown) },
                                        { -1, fmt("system(%s) failed. (ret:-1,errno:1)", c.shutdown) } }) {
        const std::string fallback = fmt("; system %s; error: ", c.shutdown) + line;
        sys.systemresult = result;
        journal.when[fmt("info: retry, path=%s", c.shutdown)] = [] { errno = EEXIST; }; // an older one
        sys.next = { { .runs = 1, .status = SIGUSR1 } };
        expect(MONP_RET_FAIL_UNKNOWN, run + complaint(0, -1) + (falls_back ? fallback : "") + bad(-1));
    }
}
