// The policy: the library's wrappers and their list, the keys of every record, and the load of the whole configuration.
#include "stage.h"

static const char* const CALLS = "xmllib_init xmllib_term xmllib_load_policy xmllib_unload_policy xmllib_load_config "
                                 "xmllib_unload_config xmllib_load_pathconfig xmllib_unload_pathconfig";

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
    xml.open = true;
    for (const std::string& name : names) {
        ASSERT_EQ(MONP_RET_SUCCESS, monp_xml_loadpolicy(arg(name.c_str())));
    }
    journal.entries.clear();
}

struct Wrapper {
    int (*call)();
    std::string library;
    std::string level;
    std::string entry;
    std::string error;
};

struct XmlWrapper : Cases<Wrapper> {};

TEST_P(XmlWrapper, PassesOnAndReports)
{
    for (int code : { 0, 0x21 }) {
        xml.open = c.library != "xmllib_init monp";
        journal.entries.clear();
        journal.fails[c.library] = code;
        EXPECT_EQ(code == 0 ? MONP_RET_SUCCESS : MONP_RET_FAIL_UNKNOWN, c.call());
        EXPECT_EQ(c.level + "start - (type=dusko" + c.entry + "); " + c.library + "; " +
                      (code == 0 ? "" : "error: " + c.error + "() failed. (type=dusko ret=0x21); ") + c.level +
                      fmt("end - (type=dusko ret=%d)", code == 0 ? 0 : 4),
                  journal.but("", { "calloc" }));
    }
}

static void* handle;

static const Wrapper WRAPPERS[] = {
    { monp_xml_initialize, "xmllib_init monp", "detail: ", "", "xmllib_init" },
    { monp_xml_terminate, "xmllib_term", "detail: ", "", "xmllib_term" },
    { [] { return monp_xml_loadconfig(nullptr, nullptr); }, "xmllib_load_config", "trace: ", " path=NULL hdl=(nil)",
      "xmllib_load_config" },
    { [] { return monp_xml_loadconfig(arg("/c"), &handle); }, "xmllib_load_pathconfig /c",
      "trace: ", fmt(" path=/c hdl=%p", static_cast<void*>(&handle)), "xmllib_load_config" },
    { [] { return monp_xml_unloadconfig(nullptr); }, "xmllib_unload_config", "trace: ", " hdl=(nil)",
      "xmllib_unload_config" },
    { [] { return monp_xml_unloadconfig(&xml); }, "xmllib_unload_pathconfig",
      "trace: ", fmt(" hdl=%p", static_cast<void*>(&xml)), "xmllib_unload_config" },
    { [] { return monp_xml_loadpolicy(arg("pm")); }, "xmllib_load_policy pm", "trace: ", " ldtype=pm",
      "xmllib_load_policy" },
};

INSTANTIATE_TEST_SUITE_P(All, XmlWrapper, testing::ValuesIn(WRAPPERS));

TEST_F(Monitor, XmlRefusesAPathWithoutAHandle)
{
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_loadconfig(arg("/c"), nullptr));
    EXPECT_EQ("error: invalid handle. (type=dusko hdl=(nil))", journal.but("", { "trace:" }));
}

TEST_F(Monitor, XmlListNotesEachLoadAndTakesOutTheFirstOfAName)
{
    load({ "all", "monp", x(31), "monp" });
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_loadpolicy(arg(x(32).c_str())));
    EXPECT_EQ(0u, xml.loaded.count(x(32)));
    EXPECT_EQ(1u, journal.count("error:"));
    EXPECT_EQ("all monp " + x(31) + " monp ", listed());
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_unloadpolicy(arg("monp")));
    EXPECT_EQ("all " + x(31) + " monp ", listed());
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_unloadpolicy(arg("other")));
    EXPECT_EQ("all " + x(31) + " monp ", listed());
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_unloadpolicy(arg("all")));
    EXPECT_EQ(x(31) + " monp ", listed());
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_unloadpolicy(arg("monp")));
    EXPECT_EQ(x(31) + " ", listed());
    journal.fails["xmllib_unload_policy"] = 0x21;
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_unloadpolicy(arg(x(31).c_str())));
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_unloadpolicy(nullptr));
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
              journal.but("", { "trace:" }));
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
              journal.only());
    EXPECT_EQ("pm dusko pm ", listed());
    journal.fails.clear();
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_unloadpolicy(nullptr));
    EXPECT_EQ("", listed());
    EXPECT_TRUE(xml.loaded.empty());
}

// ---- the keys ----

struct Key {
    const char* key;
    const char* kind;
    const char* level; // null: without the key nothing more is read
};

static const Key ALL_KEYS[] = {
    { "/root/all/path", " 0 1024", nullptr },         { "/root/all/core", " 1 4", nullptr },
    { "/root/all/stacksize", " 1 4", "error: " },     { "/root/all/env/alloc", " 0 8", "warning: " },
    { "/root/all/env/path", " 0 1024", "warning: " }, { "/root/all/env/lang", " 0 32", "warning: " },
    { "/root/dummyconf", " 1 4", "error: " },
};

static const Key OWN_KEYS[] = {
    { "/root/monp/service/dusko/action", " 1 4", nullptr },
    { "/root/monp/service/dusko/param", " 0 256", nullptr },
    { "/root/monp/service/dusko/restarttime", " 1 4", nullptr },
    { "/root/monp/service/dusko/waittime", " 1 4", nullptr },
    { "/root/monp/type", " 0 32", nullptr },
    { "/root/monp/path", " 0 1024", nullptr },
    { "/root/monp/log/level", " 1 4", nullptr },
    { "/root/monp/log/size", " 1 4", nullptr },
    { "/root/monp/elog/path", " 0 1024", nullptr },
    { "/root/monp/elog/arcpath", " 0 1024", nullptr },
    { "/root/monp/elog/rotate", " 1 4", "error: " },
    { "/root/monp/elog/pattern", " 1 4", "error: " },
    { "/root/pm/lockf", " 0 1024", "error: " },
    { "/root/monp/md/dirpath", " 0 1024", "error: " },
    { "/root/monp/md/filename", " 0 32", "error: " },
    { "/root/monp/service/dusko/parent_timeout", " 1 4", "error: " },
    { "/root/monp/service/dusko/child_timeout", " 1 4", "error: " },
};

struct Keys : Monitor {
    Keys()
    {
        gmonpparam.action = gmonpparam.restime = gmonpparam.wait = -1;
        xml.fill("dusko");
        xml.open = true;
    }

    // Leaves out each key in turn, and all that may be missing together.
    template <size_t N> static void leave_out(const Key (&keys)[N], int (*read)(), const std::string& entry)
    {
        for (size_t missing = 0; missing <= N; missing++) {
            const MONP_PARAM_INFO unset = gmonpparam;
            const auto values = xml.values;
            bool fatal = false;
            std::string lines = "trace: start - (type=dusko" + entry + "); ";
            for (size_t i = 0; i < N && !fatal; i++) {
                const Key& key = keys[i];
                lines += std::string("xmllib_get_value ") + key.key + key.kind + "; ";
                if (i == missing || (missing == N && key.level != nullptr)) {
                    fatal = key.level == nullptr;
                    lines += std::string(fatal ? "error: " : key.level) +
                             fmt("xmllib_get_value() failed. (type=dusko ret=0x105 key=%s); ", key.key);
                    xml.values.erase(key.key);
                }
            }
            journal.entries.clear();
            gmonppol = {};
            EXPECT_EQ(fatal ? MONP_RET_FAIL_UNKNOWN : MONP_RET_SUCCESS, read());
            EXPECT_EQ(lines + fmt("trace: end - (type=dusko ret=%d)", fatal ? 4 : 0), journal.only());
            gmonpparam = unset;
            xml.values = values;
        }
    }

    static int own()
    {
        return monp_xml_getmypolicy(arg("monp"), &gmonppol);
    }
};

TEST_F(Keys, OfAllServices)
{
    auto record = [] {
        const MONP_ALLPOLICY_INFO& p = gmonpallpol;
        return fmt("%s %d %d %s %s %s %d", p.instpath, p.core, p.stacksize, p.env_malchk, p.env_path, p.env_lang,
                   p.dummyconf);
    };

    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_getallpolicy());
    EXPECT_EQ("/opt/x/ 0 0 3 /bin C 0", record());
    leave_out(ALL_KEYS, monp_xml_getallpolicy, "");
    gmonpallpol = { "old/", 8, 9, "12", "oldpath", "oldlang", 5 };
    std::erase_if(xml.values,
                  [](const auto& value) { return value.first != "/root/all/path" && value.first != "/root/all/core"; });
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_getallpolicy());
    EXPECT_EQ("/opt/x/ 0 0 02 oldpath oldlang 0", record());
}

TEST_F(Keys, InstallationPathHasRoomForItsSlashOrIsRefused)
{
    xml.values["/root/all/path"] = "/opt/x/";
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_getallpolicy());
    EXPECT_STREQ("/opt/x//", gmonpallpol.instpath);
    xml.values["/root/all/path"] = x(1022);
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_getallpolicy());
    EXPECT_EQ(x(1022) + "/", gmonpallpol.instpath);
    EXPECT_EQ(0u, journal.count("error:"));
    xml.values["/root/all/path"] = x(1023);
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_getallpolicy());
    EXPECT_EQ(1u, journal.count("error:"));
}

TEST_F(Keys, OfTheMonitor)
{
    auto record = [] {
        const MONP_MYPOLICY_INFO& p = gmonppol;
        return fmt("%s %s %d %d %s %s %d %d %s %s %s %d %d", p.type, p.path, p.loglevel, p.logsize, p.elog.scr,
                   p.elog.arc, p.elog.rotate, p.elog.pattern, p.lkfpath, p.mddirpath, p.mdfilename, p.parent_initto,
                   p.child_initto);
    };

    leave_out(OWN_KEYS, own, fmt(" gtype=monp pol=%p", static_cast<void*>(&gmonppol)));
    EXPECT_EQ("own bin/monp 4 70000 sbin/elog e.tgz 5 1  work/service init_md 13 10", record());
    gmonppol = {};
    EXPECT_EQ(MONP_RET_SUCCESS, own());
    EXPECT_EQ("own bin/monp 4 70000 sbin/elog e.tgz 7 3 /lock md made 6 4", record());
    EXPECT_EQ("1 -f a 3 5",
              fmt("%d %s %d %d", gmonpparam.action, gmonpparam.param, gmonpparam.restime, gmonpparam.wait));
}

TEST_F(Keys, SettingsThatAreThereAreNotReadAgain)
{
    gmonpparam = { "dusko", 2, "", 0, 0 };
    xml.values["/root/monp/service/dusko/param"] = "";
    EXPECT_EQ(MONP_RET_SUCCESS, own());
    EXPECT_EQ(14u, journal.count("xmllib_get_value"));
    journal.entries.clear();
    put(gmonppol.lkfpath, "/lock_trn");
    xml.values["/root/monp/log/level"] = 8;
    xml.values["/root/monp/service/dusko/param"] = "late";
    EXPECT_EQ(MONP_RET_SUCCESS, own());
    EXPECT_EQ(13u, journal.count("xmllib_get_value"));
    EXPECT_EQ("/lock_trn 8 2 late 0 0", fmt("%s %d %d %s %d %d", gmonppol.lkfpath, gmonppol.loglevel, gmonpparam.action,
                                            gmonpparam.param, gmonpparam.restime, gmonpparam.wait));
}

TEST_F(Keys, TimeoutsBelowOneBecomeThirteen)
{
    for (int value : { 1, 0, -3 }) {
        journal.entries.clear();
        xml.values["/root/monp/service/dusko/parent_timeout"] = value;
        xml.values["/root/monp/service/dusko/child_timeout"] = value;
        EXPECT_EQ(MONP_RET_SUCCESS, own());
        EXPECT_EQ(value < 1 ? 13 : 1, gmonppol.parent_initto);
        EXPECT_EQ(value < 1 ? 13 : 1, gmonppol.child_initto);
        EXPECT_EQ(value < 1 ? 2u : 0u, journal.count(fmt("error: invalid initto(%d,use:13)", value)));
        EXPECT_EQ(value < 1 ? 2u : 0u, journal.count("error:"));
    }
}

struct Use {
    const char* type; // on the command line
    int value;        // of the use key; -1: none
    int flag;
};

struct MonPolicy : Cases<Use> {};

TEST_P(MonPolicy, ReadsTheUseFlagOfThreeTypes)
{
    const std::string key = std::string("/root/") + c.type + "/use";
    bool keyed = std::string(c.type) != "dusko";

    xml.fill("sec");
    xml.open = true;
    gmonpmonpol.useflag = 7;
    put(gmonpparam.type, c.type);
    if (c.value != -1) {
        xml.values[key] = c.value;
    }
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_getmonpolicy(arg("sec"), &gmonpmonpol));
    EXPECT_EQ(fmt("trn bin/svc %d", c.flag), fmt("%s %s %d", gmonpmonpol.type, gmonpmonpol.path, gmonpmonpol.useflag));
    EXPECT_EQ(fmt("trace: start - (type=%s gtype=sec pol=%p); ", c.type, static_cast<void*>(&gmonpmonpol)) +
                  "xmllib_get_value /root/sec/type 0 32; xmllib_get_value /root/sec/path 0 1024; " +
                  (keyed ? "xmllib_get_value " + key + " 1 4; " : "") +
                  (keyed && c.value == -1
                       ? fmt("error: xmllib_get_value() failed. (type=%s ret=0x105 key=%s); ", c.type, key.c_str())
                       : "") +
                  fmt("trace: end - (type=%s ret=0)", c.type),
              journal.only());
}

static const Use USES[] = {
    { "sorvin", -1, 1 }, { "tamzile", -1, 1 }, { "lenk", -1, 0 }, { "sorvin", 0, 0 },
    { "tamzile", 3, 3 }, { "lenk", 1, 1 },     { "dusko", 0, 7 },
};

INSTANTIATE_TEST_SUITE_P(Use, MonPolicy, testing::ValuesIn(USES));

TEST_F(Keys, OfTheServiceEndTheReading)
{
    for (const char* key : { "/root/dusko/path", "/root/dusko/type" }) {
        journal.entries.clear();
        gmonpmonpol = { "t", "p", 7, 0 };
        xml.values.erase(key);
        EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_getmonpolicy(arg("dusko"), &gmonpmonpol));
        EXPECT_EQ(fmt("error: xmllib_get_value() failed. (type=dusko ret=0x105 key=%s)", key), journal.only("error:"));
        EXPECT_STREQ(std::string(key) == "/root/dusko/path" ? "trn" : "t", gmonpmonpol.type);
        EXPECT_STREQ("p", gmonpmonpol.path);
    }
}

// ---- what opens the library, and closes it on every path ----

struct Step {
    std::string fails; // library call or key
    int ret;
    std::string errors; // without those of the wrappers
    std::string calls;
};

struct CprocPolicy : Cases<Step> {};

TEST_P(CprocPolicy, ReleasesWhatWasReached)
{
    MONP_CPROCPOLICY_INFO pol = { "t", "p", 6, 7 };

    xml.values = { { "/root/cl/type", "cluster" }, { "/root/cl/path", "sbin/cl" } };
    xml.values.erase(c.fails);
    journal.fails[c.fails] = 0x21;
    EXPECT_EQ(c.ret, monp_xml_getcprocpolicy(arg("cl"), &pol));
    EXPECT_EQ(c.errors,
              journal.but("error: warning:", { " xmllib_init", " xmllib_load", " xmllib_un", " xmllib_term" }));
    EXPECT_EQ(c.calls, journal.only(CALLS));
    bool type = journal.count("xmllib_get_value /root/cl/type 0 32") == 1 && c.fails != "/root/cl/type";
    bool path = journal.count("xmllib_get_value /root/cl/path 0 1024") == 1 && c.fails != "/root/cl/path";
    EXPECT_EQ(fmt("%s %s 6 7", type ? "cluster" : "t", path ? "sbin/cl" : "p"),
              fmt("%s %s %d %d", pol.type, pol.path, pol.useflag, pol.reserve));
    EXPECT_EQ(fmt("trace: start - (type=trn ldtype=cl pol=%p)", static_cast<void*>(&pol)), journal.entries.front());
    EXPECT_EQ(fmt("trace: end - (type=trn ret=%d)", c.ret), journal.entries.back());
}

static const std::string WHOLE = "xmllib_init monp; xmllib_load_policy cl; xmllib_unload_policy cl; xmllib_term";
static const Step COMPANION[] = {
    { "none", 0, "", WHOLE },
    { "xmllib_init", 4, "error: monp_xml_initialize() failed. (type=trn ret=4)", "xmllib_init monp" },
    { "xmllib_load_policy", 4, "error: monp_xml_loadpolicy() failed. (type=trn ret=4 ldtype=cl)",
      "xmllib_init monp; xmllib_load_policy cl; xmllib_term" },
    { "/root/cl/type", 4, "error: xmllib_get_value() failed. (type=trn ret=0x105 key=/root/cl/type)", WHOLE },
    { "/root/cl/path", 4, "error: xmllib_get_value() failed. (type=trn ret=0x105 key=/root/cl/path)", WHOLE },
    { "xmllib_unload_policy", 0, "warning: monp_xml_unloadpolicy() failed. (type=trn ret=4 ultype=cl)", WHOLE },
    { "xmllib_term", 0, "warning: monp_xml_terminate() failed. (type=trn ret=4 ultype=cl)", WHOLE },
};

INSTANTIATE_TEST_SUITE_P(Steps, CprocPolicy, testing::ValuesIn(COMPANION));

struct GetConfig : Cases<Step> {};

TEST_P(GetConfig, ReleasesWhatWasReached)
{
    gmonpparam = { "dusko", 2, "", -1, -1 };
    xml.fill("dusko");
    xml.values.erase(c.fails);
    journal.fails[c.fails] = 0x21;
    EXPECT_EQ(c.ret, monp_getconfig());
    EXPECT_EQ(c.errors, journal.but("error: warning:", { " xmllib_" }));
    EXPECT_EQ(c.calls, journal.only(CALLS));
    EXPECT_EQ("info: start - (type=dusko); " +
                  std::string(c.ret == 0 ? "info: type    -> dusko; info: action  -> 2; info: param   -> -f a; "
                                           "info: restart -> 3; info: wait    -> 5; "
                                         : "") +
                  fmt("info: end - (type=dusko ret=%d)", c.ret),
              journal.only("info:"));
    EXPECT_EQ(c.ret == 0, std::string(gmonpmonpol.path) == "bin/svc");
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
