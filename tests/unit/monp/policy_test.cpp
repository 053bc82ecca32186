// The policy: the library's wrappers and their list, the keys of every record, and the load of the whole configuration.
#include "stage.h"

// The names noted; the list is a null pointer exactly when it is empty.
static std::string listed()
{
    std::string names;
    EXPECT_EQ(gmonpldpolnum <= 0, gpmonpldpol == nullptr);
    for (int i = 0; i < gmonpldpolnum; i++) {
        names += std::string(gpmonpldpol[i]) + " ";
    }
    return names;
}

static void load(const std::vector<std::string>& names)
{
    for (const std::string& name : names) {
        ASSERT_EQ(MONP_RET_SUCCESS, monp_xml_loadpolicy(arg(name.c_str())));
    }
    journal.entries.clear();
}

TEST_F(Monitor, XmlRefusesWhatItCannotRelease)
{
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_loadconfig(arg("/c"), nullptr));
    EXPECT_EQ("error: invalid handle. (type=dusko hdl=(nil))", journal.only("", { "trace:" }));
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_loadpolicy(arg(x(32).c_str())));
    EXPECT_EQ(0u, journal.count("xmllib_load_policy"));
    EXPECT_EQ(2u, journal.count("error:"));
    void* handle = nullptr;
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_loadconfig(arg("/c"), &handle));
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_unloadconfig(handle));
    EXPECT_EQ("xmllib_load_pathconfig /c; xmllib_unload_pathconfig", journal.only("", { ": " }));
}

TEST_F(Monitor, XmlListTakesOutTheFirstOfAName)
{
    load({ "all", "monp", x(31), "monp" });
    for (const auto& [name, left] : { std::pair{ "monp", "all " + x(31) + " monp " },
                                      { "other", "all " + x(31) + " monp " },
                                      { "all", x(31) + " monp " },
                                      { "monp", x(31) + " " } }) {
        EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_unloadpolicy(arg(name)));
        EXPECT_EQ(left, listed());
    }
    journal.fails["xmllib_unload_policy"] = 0x21;
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_unloadpolicy(arg(x(31).c_str())));
    EXPECT_EQ(x(31) + " ", listed());
    journal.fails.clear();
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_unloadpolicy(arg(x(31).c_str())));
    EXPECT_EQ("", listed());
}

TEST_F(Monitor, XmlListStaysWithoutMemory)
{
    load({ "all", "pm" });
    journal.fails["calloc"] = ENOMEM;
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_loadpolicy(arg("monp")));
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_unloadpolicy(arg("pm")));
    EXPECT_EQ("all pm ", listed());
    EXPECT_EQ("xmllib_load_policy monp; calloc; error: calloc() failed. (type=dusko errno=12); "
              "xmllib_unload_policy pm; calloc; error: calloc() failed. (type=dusko errno=12)",
              journal.only("", { "trace:" }));
}

TEST_F(Monitor, XmlUnloadOfAllKeepsTheFailedNamesInOrder)
{
    const std::string failed = "error: xmllib_unload_policy() failed. (type=dusko ";

    load({ "all", "pm", "monp", "dusko", "pm" });
    journal.fails = { { "xmllib_unload_policy pm", 0x21 }, { "xmllib_unload_policy dusko", 0x22 } };
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_unloadpolicy(nullptr));
    EXPECT_EQ("trace: start - (type=dusko udtype=(nil)); xmllib_unload_policy all; xmllib_unload_policy pm; " + failed +
                  "ret=0x21 untype=pm); xmllib_unload_policy monp; xmllib_unload_policy dusko; " + failed +
                  "ret=0x22 untype=dusko); xmllib_unload_policy pm; " + failed +
                  "ret=0x21 untype=pm); trace: end - (type=dusko ret=4)",
              journal.only(""));
    EXPECT_EQ("pm dusko pm ", listed());
    journal.fails.clear();
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_unloadpolicy(nullptr));
    EXPECT_EQ("", listed());
}

// ---- the keys ----

static int own()
{
    return monp_xml_getmypolicy(arg("monp"), &gmonppol);
}

static int service()
{
    return monp_xml_getmonpolicy(arg("dusko"), &gmonpmonpol);
}

static void start_load()
{
    gmonpparam = { "dusko", -1, "", -1, -1 };
    gmonppol = {};
    xml.fill("dusko");
}

struct Keys {
    int (*read)();
    const char* level; // null: without such a key nothing more is read
    const char* keys;  // separated by bars
};

static const Keys KEYS[] = {
    { monp_xml_getallpolicy, nullptr, "all/path|all/core" },
    { monp_xml_getallpolicy, "error: ", "all/stacksize|dummyconf" },
    { monp_xml_getallpolicy, "warning: ", "all/env/alloc|all/env/path|all/env/lang" },
    { own, nullptr, "monp/service/dusko/action|monp/service/dusko/param|monp/service/dusko/restarttime" },
    { own, nullptr, "monp/service/dusko/waittime|monp/type|monp/path|monp/log/level|monp/log/size" },
    { own, nullptr, "monp/elog/path|monp/elog/arcpath" },
    { own, "error: ", "monp/elog/rotate|monp/elog/pattern|pm/lockf|monp/md/dirpath|monp/md/filename" },
    { own, "error: ", "monp/service/dusko/parent_timeout|monp/service/dusko/child_timeout" },
    { service, nullptr, "dusko/type|dusko/path" },
};

TEST_F(Monitor, AMissingKeyEndsTheReadingOrHasADefault)
{
    for (const Keys& keys : KEYS) {
        for (const std::string& key : Words(keys.keys).list) {
            start_load();
            xml.values.erase("/root/" + key);
            journal.entries.clear();
            const bool fatal = keys.level == nullptr;
            const std::string line = std::string(fatal ? "error: " : keys.level) +
                                     fmt("xmllib_get_value() failed. (type=dusko ret=0x105 key=/root/%s)", key.c_str());
            EXPECT_EQ(fatal ? MONP_RET_FAIL_UNKNOWN : MONP_RET_SUCCESS, keys.read());
            EXPECT_EQ(line, journal.only("error: warning:"));
            EXPECT_TRUE(!fatal || journal.entries.rbegin()[1] == line) << key;
        }
    }
}

static std::string records()
{
    const MONP_ALLPOLICY_INFO& a = gmonpallpol;
    const MONP_MYPOLICY_INFO& p = gmonppol;
    return fmt("%s %d %d %s %s %s %d, ", a.instpath, a.core, a.stacksize, a.env_malchk, a.env_path, a.env_lang,
               a.dummyconf) +
           fmt("%s %s %d %d %s %s %d %d ", p.type, p.path, p.loglevel, p.logsize, p.elog.scr, p.elog.arc, p.elog.rotate,
               p.elog.pattern) +
           fmt("%s %s %s %d %d, ", p.lkfpath, p.mddirpath, p.mdfilename, p.parent_initto, p.child_initto) +
           fmt("%d %s %d %d", gmonpparam.action, gmonpparam.param, gmonpparam.restime, gmonpparam.wait);
}

TEST_F(Monitor, KeysFillTheRecordsOrLeaveTheirDefaults)
{
    start_load();
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_getallpolicy());
    EXPECT_EQ(MONP_RET_SUCCESS, own());
    EXPECT_EQ("/opt/x/ 0 0 3 /bin C 0, own bin/monp 4 70000 sbin/elog e.tgz 7 3 /lock md made 6 4, 1 -f a 3 5",
              records());
    for (const Keys& keys : KEYS) {
        for (const std::string& key : Words(keys.level != nullptr ? keys.keys : "").list) {
            xml.values.erase("/root/" + key);
        }
    }
    gmonpallpol = { "old/", 8, 9, "12", "oldpath", "oldlang", 5 };
    gmonppol = {};
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_getallpolicy());
    EXPECT_EQ(MONP_RET_SUCCESS, own());
    EXPECT_EQ("/opt/x/ 0 0 02 oldpath oldlang 0, "
              "own bin/monp 4 70000 sbin/elog e.tgz 5 1  work/service init_md 13 10, 1 -f a 3 5",
              records());
}

TEST_F(Monitor, SettingsThatAreThereAreNotReadAgain)
{
    start_load();
    gmonpparam = { "dusko", 2, "", 0, 0 };
    xml.values["/root/monp/service/dusko/param"] = "";
    EXPECT_EQ(MONP_RET_SUCCESS, own());
    EXPECT_EQ(14u, journal.count("xmllib_get_value"));
    put(gmonppol.lkfpath, "/lock_trn");
    xml.values["/root/monp/log/level"] = 8;
    xml.values["/root/monp/service/dusko/param"] = "late";
    EXPECT_EQ(MONP_RET_SUCCESS, own());
    EXPECT_EQ(27u, journal.count("xmllib_get_value"));
    EXPECT_EQ("/opt/x/ 0 0    0, own bin/monp 8 70000 sbin/elog e.tgz 7 3 /lock_trn md made 6 4, 2 late 0 0",
              records());
}

TEST_F(Monitor, ValuesOutsideTheirRange)
{
    start_load();
    for (int value : { 1, 0, -3 }) {
        journal.entries.clear();
        xml.values["/root/monp/service/dusko/parent_timeout"] = value;
        xml.values["/root/monp/service/dusko/child_timeout"] = value;
        EXPECT_EQ(MONP_RET_SUCCESS, own());
        EXPECT_EQ(value < 1 ? 13 : 1, gmonppol.parent_initto);
        EXPECT_EQ(value < 1 ? 13 : 1, gmonppol.child_initto);
        EXPECT_EQ(value < 1 ? 2u : 0u, journal.count(fmt("error: invalid initto(%d,use:13)", value)));
    }
    xml.values["/root/all/path"] = x(1022);
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_getallpolicy());
    EXPECT_EQ(x(1022) + "/", gmonpallpol.instpath);
    xml.values["/root/all/path"] = x(1023);
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_getallpolicy());
    EXPECT_EQ(1u, journal.count("error: /root/all/path does not fit. (type=dusko len=1023 max=1022)"));
}

TEST_F(Monitor, TheUseFlagIsReadForThreeTypes)
{
    for (auto [type, value, flag] : { std::tuple{ "sorvin", -1, 1 },
                                      { "tamzile", -1, 1 },
                                      { "lenk", -1, 0 },
                                      { "sorvin", 0, 0 },
                                      { "tamzile", 3, 3 },
                                      { "lenk", 1, 1 },
                                      { "dusko", 0, 7 } }) {
        const std::string key = std::string("/root/") + type + "/use";
        xml.fill("sec");
        gmonpmonpol.useflag = 7;
        put(gmonpparam.type, type);
        journal.entries.clear();
        if (value != -1) {
            xml.values[key] = value;
        }
        EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_getmonpolicy(arg("sec"), &gmonpmonpol));
        EXPECT_EQ(fmt("trn bin/svc %d", flag),
                  fmt("%s %s %d", gmonpmonpol.type, gmonpmonpol.path, gmonpmonpol.useflag));
        EXPECT_EQ(value == -1 ? fmt("error: xmllib_get_value() failed. (type=%s ret=0x105 key=%s)", type, key.c_str())
                              : "",
                  journal.only("error: warning:"));
    }
}

// ---- what opens the library, and closes it on every path ----

struct Step {
    std::string fails; // library call or key
    int ret;
    std::string line; // behind the one of the library's door
    std::string calls;
};

struct Load : Cases<Step> {
    void load(int (*operation)(), const std::string& type) const
    {
        const std::string call = c.fails.substr(0, c.fails.find(' '));
        const std::string name = call == "xmllib_unload_policy" ? " untype=" + c.fails.substr(call.size() + 1) : "";
        const std::string door = "error: " + call + "() failed. (type=dusko ret=0x21" + name + "); ";

        xml.values.erase(c.fails);
        journal.fails[c.fails] = 0x21;
        EXPECT_EQ(c.ret, operation());
        EXPECT_EQ((call.find("xmllib") == 0 ? door : "") + c.line, journal.only("error: warning:", { "get_value" }));
        EXPECT_EQ(c.calls, journal.only("xmllib_init xmllib_term xmllib_load_policy xmllib_unload_policy "
                                        "xmllib_load_config xmllib_unload_config"));
        const std::string& last = journal.entries.back();
        EXPECT_EQ(fmt("end - (type=%s ret=%d)", type.c_str(), c.ret), last.substr(last.find(' ') + 1));
    }
};

struct CprocPolicy : Load {};

TEST_P(CprocPolicy, ReleasesWhatWasReached)
{
    static MONP_CPROCPOLICY_INFO pol;

    pol = { "t", "p", 6, 7 };
    xml.values = { { "/root/cl/type", "cluster" }, { "/root/cl/path", "sbin/cl" } };
    load([] { return monp_xml_getcprocpolicy(arg("cl"), &pol); }, "trn");
    EXPECT_EQ(c.ret == 0                   ? "cluster sbin/cl 6 7"
              : c.fails == "/root/cl/path" ? "cluster p 6 7"
                                           : "t p 6 7",
              fmt("%s %s %d %d", pol.type, pol.path, pol.useflag, pol.reserve));
}

static const std::string WHOLE = "xmllib_init monp; xmllib_load_policy cl; xmllib_unload_policy cl; xmllib_term";
static const Step COMPANION[] = {
    { "none", 0, "", WHOLE },
    { "xmllib_init", 4, "error: monp_xml_initialize() failed. (type=trn ret=4)", "xmllib_init monp" },
    { "xmllib_load_policy", 4, "error: monp_xml_loadpolicy() failed. (type=trn ret=4 ldtype=cl)",
      "xmllib_init monp; xmllib_load_policy cl; xmllib_term" },
    { "/root/cl/type", 4, "", WHOLE },
    { "/root/cl/path", 4, "", WHOLE },
    { "xmllib_unload_policy cl", 0, "warning: monp_xml_unloadpolicy() failed. (type=trn ret=4 ultype=cl)", WHOLE },
    { "xmllib_term", 0, "warning: monp_xml_terminate() failed. (type=trn ret=4 ultype=cl)", WHOLE },
};

INSTANTIATE_TEST_SUITE_P(Steps, CprocPolicy, testing::ValuesIn(COMPANION));

struct GetConfig : Load {};

TEST_P(GetConfig, ReleasesWhatWasReached)
{
    gmonpparam = { "dusko", 2, "", -1, -1 };
    xml.fill("dusko");
    load(monp_getconfig, "dusko");
    EXPECT_EQ(c.ret == 0 ? 1u : 0u, journal.count("info: wait    -> 5"));
    EXPECT_EQ(c.fails == "xmllib_unload_policy pm" ? "pm " : "", listed());
}

static std::string calls(int loads, bool config)
{
    static const char* const names[] = { "all; ", "pm; ", "monp; ", "dusko; " };
    std::string text = "xmllib_init monp; ";
    for (int i = 0; i <= loads && i < 4; i++) {
        text += std::string("xmllib_load_policy ") + names[i];
    }
    text += config ? "xmllib_load_config; xmllib_unload_config; " : "";
    for (int i = 0; i < loads; i++) {
        text += std::string("xmllib_unload_policy ") + names[i];
    }
    return text + "xmllib_term";
}

static const Step STEPS[] = {
    { "none", 0, "", calls(4, true) },
    { "xmllib_init", 4, "error: monp_xml_initialize() failed. (type=dusko ret=4)", "xmllib_init monp" },
    { "xmllib_load_policy all", 4, "error: monp_xml_loadpolicy() failed. (ret=4 type=all)", calls(0, false) },
    { "xmllib_load_policy pm", 4, "error: monp_xml_loadpolicy() failed. (ret=4 type=pm)", calls(1, false) },
    { "xmllib_load_policy monp", 4, "error: monp_xml_loadpolicy() failed. (ret=4 type=monp)", calls(2, false) },
    { "xmllib_load_policy dusko", 4, "error: monp_xml_loadpolicy() failed. (ret=4 type=dusko)", calls(3, false) },
    { "xmllib_load_config", 0, "error: monp_xml_loadconfig() failed. (ret=4)", calls(4, true) },
    { "/root/all/core", 4, "error: monp_xml_getallpolicy() failed. (ret=4 type=all)", calls(4, true) },
    { "/root/monp/path", 4, "error: monp_xml_getmypolicy() failed. (ret=4 type=monp)", calls(4, true) },
    { "/root/dusko/path", 4, "error: monp_xml_getmonpolicy() failed. (ret=4 type=dusko)", calls(4, true) },
    { "xmllib_unload_config", 0, "warning: monp_xml_unloadconfig() failed. (ret=4)", calls(4, true) },
    { "xmllib_unload_policy pm", 0, "warning: monp_xml_unloadpolicy() failed. (type=dusko ret=4)", calls(4, true) },
    { "xmllib_term", 0, "warning: monp_xml_terminate() failed. (type=dusko ret=4)", calls(4, true) },
};

INSTANTIATE_TEST_SUITE_P(Steps, GetConfig, testing::ValuesIn(STEPS));
