// The command line, and the splitting of the service's own arguments.
#include "stage.h"

struct Line {
    std::string arguments; // separated by bars
    std::string error;     // what was read before it stays
    std::string read;      // type, action, param, restart time, wait time, no-start flag
};

struct Getopt : Cases<Line> {};

TEST_P(Getopt, ReadsOrRefuses)
{
    Words words("--zero|" + c.arguments);
    const int argc = static_cast<int>(words.list.size());
    gmonpparam = {};

    int ret = monp_getopt(argc, words.argv.data());

    EXPECT_EQ(c.error.empty() ? MONP_RET_SUCCESS : MONP_RET_FAIL_PARAM, ret);
    EXPECT_EQ(c.read, fmt("%s %d %s %d %d %d", gmonpparam.type, gmonpparam.action, gmonpparam.param, gmonpparam.restime,
                          gmonpparam.wait, gbmonpnostart.load()));
    EXPECT_EQ(fmt("info: start - (argc=%d argv=%p); ", argc, static_cast<void*>(words.argv.data())) +
                  (c.error.empty() ? "" : "error: " + c.error + "; ") + fmt("info: end - (ret=%d)", ret),
              journal.only("info: warning: error:"));
}

static const Line LINES[] = {
    { "--dusko", "", "dusko -1  -1 -1 0" },
    { "", "invalid type.", " -1  -1 -1 0" },
    { "--" + x(29), "", x(29) + " -1  -1 -1 0" },
    { "--" + x(30), "invalid type.", " -1  -1 -1 0" },
    { "--d|--pelkant", "invalid type.", "d -1  -1 -1 0" },
    { "-x|--dusko", "unknown option. (val=-x)", " -1  -1 -1 0" },
    { "dusko", "unknown option. (val=dusko)", " -1  -1 -1 0" },
    { "-n|-N|--dusko", "", "dusko -1  -1 -1 -1" },
    { "-A|2|--Dusko", "", "Dusko 2  -1 -1 0" },
    { "--d|-a|5x", "", "d 5  -1 -1 0" },
    { "-a|6|--d", "invalid action. (val=6)", " 6  -1 -1 0" },
    { "-a|4294967298|--d", "invalid action. (val=2147483647)", " 2147483647  -1 -1 0" },
    { "-a|2|-a|3", "invalid action.", " 2  -1 -1 0" },
    { "--d|-a", "invalid action.", "d -1  -1 -1 0" },
    { "--d|-o|" + x(255), "", "d -1 " + x(255) + " -1 -1 0" },
    { "-o|" + x(256) + "|--d", "invalid param.", " -1  -1 -1 0" },
    { "-o||-O|x|--d", "", "d -1 x -1 -1 0" },
    { "-o|x|-o|y", "invalid param.", " -1 x -1 -1 0" },
    { "-o|--dusko", "invalid type.", " -1 --dusko -1 -1 0" },
    { "--d|-R|0|-W| +7", "", "d -1  0 7 0" },
    { "--d|-w|2147483648|-r|abc", "", "d -1  0 2147483647 0" },
    { "-r|-1", "invalid restart times. (val=-1)", " -1  -1 -1 0" },
    { "-r|-4294967295", "invalid restart times. (val=-2147483648)", " -1  -2147483648 -1 0" },
    { "-r|0|-r|1", "invalid restart time.", " -1  0 -1 0" },
    { "-w|-5", "invalid wait time. (val=-5)", " -1  -1 -5 0" },
    { "-w|0|-w|1", "invalid wait time.", " -1  -1 0 0" },
    { "-w", "invalid wait time.", " -1  -1 -1 0" },
};

INSTANTIATE_TEST_SUITE_P(Lines, Getopt, testing::ValuesIn(LINES));

TEST_F(Monitor, GetoptReportsAFailedCompilation)
{
    Words words("monp|--dusko");

    journal.fails["regcomp"] = 12;
    EXPECT_EQ(MONP_RET_FAIL_PARAM, monp_getopt(2, words.argv.data()));
    EXPECT_EQ("error: regcomp failed. (ret=12)", journal.only("error:"));
}

struct Text {
    std::string text;
    std::string arguments; // separated by bars
    std::string complaint;
};

struct ParseParam : Cases<Text> {};

TEST_P(ParseParam, SplitsAtBlanksInPlace)
{
    Words words(c.arguments);
    std::string text = c.text;
    char* argv[4] = {};
    int count = -1;

    int ret = monp_parse_param(text.data(), argv, 2, &count);

    EXPECT_EQ(text.size() > 255 ? MONP_RET_FAIL_UNKNOWN : MONP_RET_SUCCESS, ret);
    std::string lines = c.complaint.empty() ? "" : c.complaint + "; ";
    ASSERT_EQ(words.list.size(), static_cast<size_t>(count));
    for (size_t i = 0; i < words.list.size(); i++) {
        EXPECT_EQ(words.list[i], argv[i]);
        lines += fmt("info: arg%zu -> %s (type=trn); ", i, argv[i]);
    }
    EXPECT_EQ(nullptr, argv[words.list.size()]);
    EXPECT_EQ(fmt("trace: start - (type=trn param=%s argv=%p maxargc=2 parsenum=%p).; ", c.text.c_str(),
                  static_cast<void*>(argv), static_cast<void*>(&count)) +
                  lines + fmt("trace: end - (type=trn ret=%d parsenum=%d)", ret, count),
              journal.only(""));
}

static const Text TEXTS[] = {
    { "", "", "" },
    { "   ", "", "" },
    { "  a  b ", "a|b", "" },
    { "a\tb \"c", "a\tb|\"c", "" },
    { "a b c", "a|b", "warning: argument reached the maximum. (type=trn max=2 curnum=2)" },
    { x(255), x(255), "" },
    { x(256), "", "error: invalid param length. (type=trn len=256)" },
};

INSTANTIATE_TEST_SUITE_P(Texts, ParseParam, testing::ValuesIn(TEXTS));
