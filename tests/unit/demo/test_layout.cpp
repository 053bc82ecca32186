/*
 * The schemas of the policy files, and the laid-out sample installation: what the policy library demands of its files,
 * and that policy, programs and directories fit together.
 */
#include "demo_support.h"

#include <array>

/* Looks at the file $f with the schema named after it, else with the one that all services share. */
static const std::string gvalidate =
    "s=source/schema/$(basename $f .xml).rng; test -e $s || s=source/schema/service.rng; "
    "xmllint --noout --relaxng $s $f";

TEST_F(Demo, SchemaTellsWhatTheMonitorTakesFromWhatItRefuses)
{
    const auto sized = [](const std::string& start, size_t count) { return start + std::string(count, 'a'); };
    /* A sample, a pattern in it, and what takes its place: once to be taken, once to be refused. */
    const std::array<std::string, 4> changes[] = {
        { "monp.xml", "<rotate>5</rotate>", "", "<rotat>5</rotat>" },
        { "dusko.xml", "</dusko>", "&", "<use>1</use>&" },
        { "all.xml", "<core>1</core>", "&", "&&" },
        { "all.xml", "<core>1", "<core>\\n +001 ", "<core unit=\"\">1" },
        { "all.xml", "<stacksize>0", "<stacksize>2147483647", "<stacksize>2147483648" },
        { "monp.xml", "<action>2", "<action>5", "<action>6" },
        { "all.xml", "<path>@INSTPATH@", sized("<path>", 1022), sized("<path>", 1023) },
        { "dusko.xml", "<type>[^<]*", sized("<type> ", 31), sized("<type>", 32) },
        { "monp.xml", "<param>[^<]*", sized("<param>a  ", 252), sized("<param>a  ", 253) },
    };
    const auto check = [](const std::string& file, const std::string& pattern, const std::string& text) {
        return "f=" + file + "; sed -z 's#" + pattern + "#" + text + "#' source/etc/policy/$f >$f; " + gvalidate;
    };
    for (const auto& [file, pattern, good, bad] : changes) {
        sh(check(file, pattern, good));
        sh(check(file, pattern, bad), 3, "fails to validate");
    }
}

class Layout : public Demo {
protected:
    void SetUp() override
    {
        if (geteuid() != 0) {
            GTEST_SKIP() << "the installation has to belong to root";
        }
        sh("mkdir -p build/bin build/lib/builtin; cp built/sample_* build/bin");
        sh("touch build/bin/monp build/bin/monpctl build/lib/builtin/libtesklog.so.1.0 "
           "build/lib/builtin/libteskxml.so.1.0");
    }
    std::string value(const std::string& section, const std::string& key) const
    {
        const std::string file = " inst/etc/policy/" + section + ".xml";
        const std::string text = sh("xmllint --xpath 'string(/root/" + section + "/" + key + ")'" + file);
        return text.substr(0, text.find('\n'));
    }
};

TEST_F(Layout, FitsTogether)
{
    const std::string target = "a & b|<c> \\1 'd'/inst";
    sh("source/layout.sh build \"" + target + "\" && ln -s \"" + target + "\" inst");
    EXPECT_EQ("", sh("find inst/ -not -user root -or -perm /022 -or -not -type f -not -type d"));
    sh("for f in inst/etc/*.xml inst/etc/policy/*.xml; do " + gvalidate + " || exit; done");
    sh("diff -r source/schema inst/etc/schema");
    EXPECT_EQ(home / target, value("all", "path"));
    EXPECT_EQ(home / target / "var/lock/monp", value("pm", "lockf"));
    sh("cd inst; test -e " + value("monp", "elog/path") + " -a -d $(dirname " + value("monp", "elog/arcpath") + ")");
    for (const std::string command : { "monp", "cl", "down" }) {
        EXPECT_EQ(command, value(command, "type"));
        sh("test -x inst/" + value(command, "path"));
    }
    for (const std::string service : { "dusko", "pelkant", "tamzile", "goru", "lenk" }) {
        const std::string param = value("monp", "service/" + service + "/param");
        EXPECT_EQ(service, value(service, "type"));
        sh("cd inst/bin; exec ../" + value(service, "path") + " " + param + " exit 6", 6);
        sh("cd inst; test -s log/sample_" + service + ".log");
        sh("cd inst; test -p run/" + service + ".ctl");
    }
}

TEST_F(Layout, RefusesWhatItCannotLayOut)
{
    const std::tuple<std::string, int, const char*> targets[] = {
        { ".", 1, "is not empty" },
        { "'a\n'", 2, "cannot be the installation directory" },
        { "'a\xff'", 2, "is no UTF-8 text" },
        { std::string(901, 'd'), 2, "is longer than 900 bytes" },
        { "inst; rm -r build/bin/monp inst; source/layout.sh build inst", 1, "no bin/monp" },
    };
    for (const auto& [target, status, message] : targets) {
        sh("source/layout.sh build " + target, status, message);
    }
}
