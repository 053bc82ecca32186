/*
 * The schemas of the policy files, each case a sample file with one change. What fits is what the monitor takes as it
 * stands, to both sides of each limit.
 */
#include "demo_support.h"

#include <gtest/gtest.h>
#include <regex>

using namespace demo;

namespace {

struct Change {
    const char* name;
    const char* file;
    const char* pattern; /* replaced where it matches first */
    std::string text;
    bool fits;
};

void PrintTo(const Change& change, std::ostream* out)
{
    *out << change.name;
}

std::string sized(const std::string& start, size_t count)
{
    return start + std::string(count, 'a');
}

class Schema : public testing::TestWithParam<Change> {};

TEST_P(Schema, TakesWhatTheMonitorTakes)
{
    const Change& change = GetParam();
    const TempDir temp;
    const fs::path sample = SOURCE / "etc" / change.file;
    const fs::path file = temp.path / sample.filename();
    const std::regex pattern(change.pattern);
    const std::string before = read_file(sample);

    ASSERT_TRUE(std::regex_search(before, pattern)) << "the sample has no " << change.pattern;
    write_file(file, std::regex_replace(before, pattern, change.text, std::regex_constants::format_first_only));

    const fs::path schema = schema_of(SOURCE / "schema", file);
    const Outcome lint = run({ "/usr/bin/xmllint", "--noout", "--relaxng", schema, file }, "/");
    EXPECT_EQ(change.fits ? 0 : 3, lint.status) << lint.text; // 3: well-formed, but not valid
}

const Change KEYS[] = {
    { "NoDummyconf", "config.xml", "<dummyconf>.*", "", true },
    { "NoEnvironment", "policy/all.xml", "<env>[^]*</env>", "", true },
    { "NoCore", "policy/all.xml", "<core>.*", "", false },
    { "NoLockFile", "policy/pm.xml", "<lockf>.*", "", true },
    { "NoLogLevel", "policy/monp.xml", "<level>.*", "", false },
    { "NoRotate", "policy/monp.xml", "<rotate>.*", "", true },
    { "NoMarker", "policy/monp.xml", "<md>[^]*</md>", "", true },
    { "NoAction", "policy/monp.xml", "<action>.*", "", false },
    { "NoTimeout", "policy/monp.xml", "<child_timeout>.*", "", true },
    { "NoService", "policy/monp.xml", "<service>[^]*</service>", "", false },
    { "NoType", "policy/dusko.xml", "<type>.*", "", false },
    { "NoUse", "policy/lenk.xml", "<use>.*", "", true },
    { "NoSection", "policy/dusko.xml", "<dusko>[^]*</dusko>", "", false },
    { "OtherSection", "policy/pm.xml", "<pm>[^]*</pm>", "<all/>", false },
    { "OtherOrder", "policy/cl.xml", "<type>cl</type>([^]*)</cl>", "$1<type>cl</type></cl>", true },
    { "ProgramOfPm", "policy/pm.xml", "</pm>", "<path>bin/pm</path><type>pm</type></pm>", true },
    { "UnknownKey", "policy/monp.xml", "<rotate>5</rotate>", "<rotat>5</rotat>", false },
    { "UnknownConfigKey", "config.xml", "</root>", "<dummyconv>1</dummyconv></root>", false },
    { "UseWithoutSwitch", "policy/dusko.xml", "</dusko>", "<use>1</use></dusko>", false },
    { "KeyTwice", "policy/all.xml", "</all>", "<core>1</core></all>", false },
    { "Attribute", "policy/all.xml", "<core>", "<core unit=''>", false },
};

const Change NUMBERS[] = {
    { "NoWholeNumber", "policy/monp.xml", "<level>4", "<level>12abc", false },
    { "NoNumber", "policy/all.xml", "<core>1", "<core>", false },
    { "SignsZerosAndBlanks", "policy/all.xml", "<core>1", "<core>\n +001 ", true },
    { "LargestInt", "policy/all.xml", "<stacksize>0", "<stacksize>2147483647", true },
    { "AboveInt", "policy/all.xml", "<stacksize>0", "<stacksize>2147483648", false },
    { "SmallestInt", "policy/monp.xml", "<waittime>5", "<waittime>-2147483648", true },
    { "BelowInt", "policy/monp.xml", "<waittime>5", "<waittime>-2147483649", false },
    { "ActionNone", "policy/monp.xml", "<action>2", "<action>1", true },
    { "ActionReboot", "policy/monp.xml", "<action>2", "<action>5", true },
    { "ActionBelow", "policy/monp.xml", "<action>2", "<action>0", false },
    { "ActionAbove", "policy/monp.xml", "<action>2", "<action>6", false },
    { "ShortestTimeout", "policy/monp.xml", "<child_timeout>10", "<child_timeout>1", true },
    { "NoTime", "policy/monp.xml", "<child_timeout>10", "<child_timeout>0", false },
    { "RotateOfSevenFigures", "policy/monp.xml", "<rotate>5", "<rotate>9999999", true },
    { "RotateOfEightFigures", "policy/monp.xml", "<rotate>5", "<rotate>10000000", false },
    { "RotateOfSignAndSevenFigures", "policy/monp.xml", "<rotate>5", "<rotate>-1000000", false },
};

const Change TEXTS[] = {
    { "LongestInstallationPath", "policy/all.xml", "<path>@INSTPATH@", sized("<path>", 1022), true },
    { "LongInstallationPath", "policy/all.xml", "<path>@INSTPATH@", sized("<path>", 1023), false },
    { "LongestPath", "policy/monp.xml", "<arcpath>[^<]*", sized("<arcpath>", 1023), true },
    { "LongPath", "policy/monp.xml", "<arcpath>[^<]*", sized("<arcpath>", 1024), false },
    { "BlankPath", "policy/dusko.xml", "<path>[^<]*", "<path> ", false },
    { "LongestType", "policy/dusko.xml", "<type>[^<]*", sized("<type> ", 31) + "\n", true },
    { "LongType", "policy/dusko.xml", "<type>[^<]*", sized("<type>", 32), false },
    { "LongestArguments", "policy/monp.xml", "<param>[^<]*", sized("<param>a  ", 252), true },
    { "LongArguments", "policy/monp.xml", "<param>[^<]*", sized("<param>a  ", 253), false },
    { "NoArguments", "policy/monp.xml", "<param>[^<]*", "<param>", true },
    { "LongestAlloc", "policy/all.xml", "<alloc>0", sized("<alloc>", 7), true },
    { "LongAlloc", "policy/all.xml", "<alloc>0", sized("<alloc>", 8), false },
    { "LongestLang", "policy/all.xml", "<lang>[^<]*", sized("<lang>", 31), true },
    { "LongLang", "policy/all.xml", "<lang>[^<]*", sized("<lang>", 32), false },
};

std::string name_of(const testing::TestParamInfo<Change>& info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Keys, Schema, testing::ValuesIn(KEYS), name_of);
INSTANTIATE_TEST_SUITE_P(Numbers, Schema, testing::ValuesIn(NUMBERS), name_of);
INSTANTIATE_TEST_SUITE_P(Texts, Schema, testing::ValuesIn(TEXTS), name_of);

} // namespace
