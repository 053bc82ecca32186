/*
 * The laid-out sample installation: what the policy library demands of its files, and that policy, programs and
 * directories fit together. The build it is laid out from has placeholders for the monitor and the libraries.
 */
#include "demo_support.h"

#include <gtest/gtest.h>

using namespace demo;

namespace {

class Layout : public testing::Test {
protected:
    void SetUp() override
    {
        if (geteuid() != 0) {
            GTEST_SKIP() << "the installation has to belong to root";
        }
        fs::create_directories(build / "bin");
        fs::create_directories(build / "lib");
        for (const char* program : { "sample_service", "sample_collect", "sample_cl", "sample_down" }) {
            fs::copy(BIN / program, build / "bin");
        }
        for (const char* file : { "bin/monp", "lib/libtesklog.so.1.0", "lib/libteskxml.so.1.0" }) {
            write_file(build / file, "");
        }
    }

    Outcome lay_out(const fs::path& into) const
    {
        return run({ SOURCE / "layout.sh", build, into }, "/");
    }
    std::string value(const std::string& file, const std::string& key) const
    {
        const std::string text =
            run({ "/usr/bin/xmllint", "--xpath", "string(" + key + ")", target / "etc" / file }, "/").text;
        return text.substr(0, text.find_last_not_of('\n') + 1);
    }

    TempDir temp;
    fs::path build = temp.path / "build";
    fs::path target = temp.path / "a & b|<c> \\1 'd'/inst";
};

TEST_F(Layout, FilesAreWellFormedAndTrustworthy)
{
    ASSERT_EQ(0, lay_out(target).status);
    for (const auto& entry : fs::recursive_directory_iterator(target)) {
        struct stat status = {};
        ASSERT_EQ(0, lstat(entry.path().c_str(), &status));
        EXPECT_EQ(0U, status.st_uid) << entry.path();
        EXPECT_EQ(0U, status.st_mode & (S_IWGRP | S_IWOTH)) << entry.path();
        EXPECT_TRUE(S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) << entry.path();
        if (entry.path().extension() == ".xml") {
            const Outcome lint = run({ "/usr/bin/xmllint", "--noout", entry.path() }, "/");
            EXPECT_EQ(0, lint.status) << lint.text;
            EXPECT_EQ(std::string::npos, read_file(entry.path()).find('@')) << entry.path();
        }
    }
    EXPECT_EQ(target, value("policy/all.xml", "/root/all/path"));
    EXPECT_EQ(target / "var/lock/monp", value("policy/pm.xml", "/root/pm/lockf"));
    EXPECT_FALSE(fs::exists(target / "work/service"));
}

TEST_F(Layout, EverySectionHoldsItsOwnKeysAndNamesAProgram)
{
    ASSERT_EQ(0, lay_out(target).status);
    for (const auto& entry : fs::directory_iterator(target / "etc/policy")) {
        const std::string file = "policy/" + entry.path().filename().string();
        const std::string section = entry.path().stem();
        EXPECT_EQ("1", value(file, "count(/root/*)")) << file;
        EXPECT_EQ("1", value(file, "count(/root/" + section + ")")) << file;
        EXPECT_EQ("0", value(file, "count(//@*)")) << file;
        if (section != "all" && section != "pm") {
            const fs::path program = target / value(file, "/root/" + section + "/path");
            EXPECT_EQ(section, value(file, "/root/" + section + "/type"));
            EXPECT_EQ(0, access(program.c_str(), X_OK)) << program;
        }
    }
    EXPECT_TRUE(fs::exists(target / value("policy/monp.xml", "/root/monp/elog/path")));
    EXPECT_TRUE(fs::exists((target / value("policy/monp.xml", "/root/monp/elog/arcpath")).parent_path()));
}

TEST_F(Layout, EveryPolicyFileFitsItsSchema)
{
    ASSERT_EQ(0, lay_out(target).status);
    int files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(target / "etc")) {
        if (entry.path().extension() == ".xml") {
            const fs::path schema = schema_of(target / "etc/schema", entry.path());
            const Outcome lint = run({ "/usr/bin/xmllint", "--noout", "--relaxng", schema, entry.path() }, "/");
            EXPECT_EQ(0, lint.status) << lint.text;
            files++;
        }
    }
    EXPECT_EQ(11, files);
}

TEST_F(Layout, EveryServiceRunsWithItsParam)
{
    ASSERT_EQ(0, lay_out(target).status);
    for (const std::string type : { "dusko", "pelkant", "tamzile", "goru", "lenk" }) {
        const std::string param = value("policy/monp.xml", "/root/monp/service/" + type + "/param");
        EXPECT_LE(param.size(), 255U);
        std::vector<std::string> words = split(param + " exit 6");
        words.insert(words.begin(), target / "bin" / ("sample_" + type));
        const pid_t pid = spawn(words, target / "bin");
        EXPECT_EQ(6 << 8, wait_for_end(pid)) << param;
        EXPECT_NE("", read_file(target / "log" / ("sample_" + type + ".log")));
        EXPECT_TRUE(fs::is_fifo(target / "run" / (type + ".ctl")));
    }
}

TEST_F(Layout, RefusesWhatItCannotLayOut)
{
    write_file(temp.path / "file", "");
    EXPECT_EQ(1, lay_out(temp.path).status); // not empty
    EXPECT_EQ(2, lay_out(temp.path / "a\nb").status);
    EXPECT_EQ(2, lay_out(temp.path / "a\n").status);
    EXPECT_EQ(2, lay_out(temp.path / "a ").status);
    EXPECT_EQ(2, lay_out(temp.path / "a\xff").status);
    EXPECT_EQ(2, lay_out(temp.path / std::string(200, 'a') / std::string(250, 'b') / std::string(250, 'c') /
                         std::string(250, 'd'))
                     .status);

    fs::remove(build / "bin/monp");
    const Outcome incomplete = lay_out(target);
    EXPECT_EQ(1, incomplete.status);
    EXPECT_NE(std::string::npos, incomplete.text.find("no bin/monp")) << incomplete.text;
}

} // namespace
