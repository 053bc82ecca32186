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
    void* handle = nullptr;

    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_loadconfig(arg("/c"), nullptr));
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_loadpolicy(arg(x(32).c_str())));
    EXPECT_EQ(2u, journal.count("error:"));
    EXPECT_EQ("", journal.only("xmllib_load_pathconfig xmllib_load_policy"));
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_loadconfig(arg("/c"), &handle));
    EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_unloadconfig(handle));
    EXPECT_EQ("xmllib_load_pathconfig /c; xmllib_unload_pathconfig", journal.only("", { ": " }));
}

TEST_F(Monitor, XmlListTakesOutTheFirstOfAName)
{
    load({ "all", "monp", x(31), "monp" });
    for (const auto& [name, left] : { std::pair{ std::string("monp"), "all " + x(31) + " monp " },
                                      { "other", "all " + x(31) + " monp " },
                                      { "all", x(31) + " monp " },
                                      { "monp", x(31) + " " },
                                      { x(31), "" } }) {
        EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_unloadpolicy(arg(name.c_str())));
        EXPECT_EQ(left, listed());
    }
}

TEST_F(Monitor, XmlListKeepsWhatCouldNotBeReleased)
{
    load({ "all", "pm", "monp", "dusko" });
    journal.fails = { { "calloc", ENOMEM }, { "xmllib_unload_policy all", 0x21 } };
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_loadpolicy(arg("late")));
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_unloadpolicy(arg("pm")));
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_unloadpolicy(arg("all")));
    EXPECT_EQ("all pm monp dusko ", listed());
    EXPECT_EQ(2u, journal.count("error: calloc() failed. (type=dusko errno=12)"));
    journal.fails = { { "xmllib_unload_policy pm", 0x21 }, { "xmllib_unload_policy dusko", 0x22 } };
    EXPECT_EQ(MONP_RET_FAIL_UNKNOWN, monp_xml_unloadpolicy(nullptr));
    EXPECT_EQ("pm dusko ", listed());
    EXPECT_EQ(1u, journal.count("error: xmllib_unload_policy() failed. (type=dusko ret=0x22 untype=dusko)"));
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
            EXPECT_EQ(fatal ? MONP_RET_FAIL_UNKNOWN : MONP_RET_SUCCESS, keys.read()) << key;
            EXPECT_EQ(std::string(fatal ? "error: " : keys.level) +
                          fmt("xmllib_get_value() failed. (type=dusko ret=0x105 key=/root/%s)", key.c_str()),
                      journal.only("error: warning:"));
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
    put(gmonppol.lkfpath, "/lock_trn");
    xml.values["/root/monp/log/level"] = 8;
    xml.values["/root/monp/service/dusko/param"] = "late";
    EXPECT_EQ(MONP_RET_SUCCESS, own());
    EXPECT_EQ("/opt/x/ 0 0    0, own bin/monp 8 70000 sbin/elog e.tgz 7 3 /lock_trn md made 6 4, 2 late 0 0",
              records());
}

TEST_F(Monitor, ValuesOutsideTheirRange)
{
    start_load();
    for (int value : { 1, 0 }) {
        xml.values["/root/monp/service/dusko/parent_timeout"] = value;
        xml.values["/root/monp/service/dusko/child_timeout"] = value;
        EXPECT_EQ(MONP_RET_SUCCESS, own());
        EXPECT_EQ(value < 1 ? 13 : 1, gmonppol.parent_initto);
        EXPECT_EQ(value < 1 ? 13 : 1, gmonppol.child_initto);
    }
    EXPECT_EQ(2u, journal.count("error: invalid initto(0,use:13)"));
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
                                      { "lenk", 1, 1 },
                                      { "tamzile", 0, 0 },
                                      { "dusko", 0, 7 } }) {
        xml.fill("sec");
        gmonpmonpol.useflag = 7;
        put(gmonpparam.type, type);
        if (value != -1) {
            xml.values[std::string("/root/") + type + "/use"] = value;
        }
        EXPECT_EQ(MONP_RET_SUCCESS, monp_xml_getmonpolicy(arg("sec"), &gmonpmonpol));
        EXPECT_EQ(fmt("trn bin/svc %d", flag),
                  fmt("%s %s %d", gmonpmonpol.type, gmonpmonpol.path, gmonpmonpol.useflag));
    }
}

// ---- what opens the library, and closes it on every path ----

static int command()
{
    MONP_CPROCPOLICY_INFO policy = {};
    return monp_xml_getcprocpolicy(arg("cl"), &policy);
}

struct Step {
    int (*load)();
    std::string fails; // library call or key
    int ret;
    std::string line;
};

static const Step STEPS[] = {
    { monp_getconfig, "xmllib_init", 4, "error: monp_xml_initialize() failed. (type=dusko ret=4)" },
    { monp_getconfig, "xmllib_load_policy all", 4, "error: monp_xml_loadpolicy() failed. (ret=4 type=all)" },
    { monp_getconfig, "xmllib_load_policy dusko", 4, "error: monp_xml_loadpolicy() failed. (ret=4 type=dusko)" },
    { monp_getconfig, "xmllib_load_config", 0, "error: monp_xml_loadconfig() failed. (ret=4)" },
    { monp_getconfig, "/root/all/core", 4, "error: monp_xml_getallpolicy() failed. (ret=4 type=all)" },
    { monp_getconfig, "/root/monp/path", 4, "error: monp_xml_getmypolicy() failed. (ret=4 type=monp)" },
    { monp_getconfig, "/root/dusko/path", 4, "error: monp_xml_getmonpolicy() failed. (ret=4 type=dusko)" },
    { monp_getconfig, "xmllib_unload_config", 0, "warning: monp_xml_unloadconfig() failed. (ret=4)" },
    { monp_getconfig, "xmllib_unload_policy", 0, "warning: monp_xml_unloadpolicy() failed. (type=dusko ret=4)" },
    { monp_getconfig, "xmllib_term", 0, "warning: monp_xml_terminate() failed. (type=dusko ret=4)" },
    { command, "xmllib_init", 4, "error: monp_xml_initialize() failed. (type=trn ret=4)" },
    { command, "xmllib_load_policy", 4, "error: monp_xml_loadpolicy() failed. (type=trn ret=4 ldtype=cl)" },
    { command, "/root/cl/path", 4, "" },
    { command, "xmllib_unload_policy", 0, "warning: monp_xml_unloadpolicy() failed. (type=trn ret=4 ultype=cl)" },
    { command, "xmllib_term", 0, "warning: monp_xml_terminate() failed. (type=trn ret=4 ultype=cl)" },
};

TEST_F(Monitor, ALoadReleasesWhatItReached)
{
    for (const auto& [load, fails, ret, line] : STEPS) {
        const std::string door = "error: " + fails.substr(0, fails.find(' ')) + "() failed. (type=dusko ret=0x21";
        const size_t unloaded = fails.find("xmllib_load_policy") == 0 ? 1 : 0;

        SCOPED_TRACE(fails);
        start_load();
        monp_xml_unloadpolicy(nullptr); // what could not be released before
        xml.values["/root/cl/type"] = xml.values["/root/cl/path"] = "cl";
        xml.values.erase(fails);
        journal.entries.clear();
        journal.fails = { { fails, 0x21 } };
        EXPECT_EQ(ret, load());
        journal.fails.clear();
        EXPECT_EQ(line, journal.only("error: warning:", { "xmllib_" }));
        EXPECT_EQ(fails != "xmllib_init" ? 1u : 0u, journal.count("xmllib_term"));
        EXPECT_EQ(journal.count("xmllib_load_policy"), journal.count("xmllib_unload_policy") + unloaded);
        EXPECT_EQ(journal.count("xmllib_load_config"), journal.count("xmllib_unload_config"));
        EXPECT_EQ(fails[0] == '/', journal.count(door) == 0);
    }
}
