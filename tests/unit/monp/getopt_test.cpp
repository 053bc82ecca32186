// The command line, and the splitting of the service's own arguments.
#include "stage.h"

struct Line {
    std::string arguments; // separated by bars
    std::string error;     // what was read before it stays
    std::string read;      // type, action, param, restart time, wait time, no-start flag
};

static const Line LINES[] = {
    { "--dusko", "", "dusko -1  -1 -1 0" },
    { "", "invalid type.", " -1  -1 -1 0" },
    { "--" + x(29), "", x(29) + " -1  -1 -1 0" },
    { "--" + x(30), "invalid type.", " -1  -1 -1 0" },
    { "--d|--pelkant", "invalid type.", "d -1  -1 -1 0" },
    { "-x|--dusko", "unknown option. (val=-x)", " -1  -1 -1 0" },
    { "-n|-N|--dusko", "", "dusko -1  -1 -1 -1" },
    { "--d|-A|5x", "", "d 5  -1 -1 0" },
    { "-a|6|--d", "invalid action. (val=6)", " 6  -1 -1 0" },
    { "-a|4294967298|--d", "invalid action. (val=2147483647)", " 2147483647  -1 -1 0" },
    { "-a|2|-a|3", "invalid action.", " 2  -1 -1 0" },
    { "--d|-a", "invalid action.", "d -1  -1 -1 0" },
    { "--d|-o|" + x(255), "", "d -1 " + x(255) + " -1 -1 0" },
    { "-o|" + x(256) + "|--d", "invalid param.", " -1  -1 -1 0" },
    { "-o|x|-o|y", "invalid param.", " -1 x -1 -1 0" },
    { "-o|--dusko", "invalid type.", " -1 --dusko -1 -1 0" },
    { "--d|-R|0|-W| +7", "", "d -1  0 7 0" },
    { "--d|-w|2147483648|-r|abc", "", "d -1  0 2147483647 0" },
    { "-r|-4294967295", "invalid restart times. (val=-2147483648)", " -1  -2147483648 -1 0" },
    { "-r|0|-r|1", "invalid restart time.", " -1  0 -1 0" },
    { "-w|-1", "invalid wait time. (val=-1)", " -1  -1 -1 0" },
    { "-w|0|-w|1", "invalid wait time.", " -1  -1 0 0" },
};

TEST_F(Monitor, GetoptReadsOrRefuses)
{
    for (const auto& [arguments, error, read] : LINES) {
        Words words("--zero|" + arguments);
        gmonpparam = {};
        gbmonpnostart = 0;
        journal.entries.clear();
        EXPECT_EQ(error.empty() ? MONP_RET_SUCCESS : MONP_RET_FAIL_PARAM,
                  monp_getopt(static_cast<int>(words.list.size()), words.argv.data()));
        EXPECT_EQ(read, fmt("%s %d %s %d %d %d", gmonpparam.type, gmonpparam.action, gmonpparam.param,
                            gmonpparam.restime, gmonpparam.wait, gbmonpnostart.load()));
        EXPECT_EQ(error.empty() ? "" : "error: " + error, journal.only("warning: error:")) << arguments;
    }
}

TEST_F(Monitor, ParseParamSplitsAtBlanksInPlace)
{
    for (const auto& [param, arguments, complaint] :
         { std::tuple{ std::string("   "), std::string(), "" },
           { "  a\tb  \"c ", "a\tb|\"c", "" },
           { "a b c", "a|b", "warning: argument reached the maximum. (type=trn max=2 curnum=2)" },
           { x(255), x(255), "" },
           { x(256), "", "error: invalid param length. (type=trn len=256)" } }) {
        std::string text = param;
        char* argv[4] = {};
        int count = -1;
        journal.entries.clear();
        EXPECT_EQ(text.size() > 255 ? MONP_RET_FAIL_UNKNOWN : MONP_RET_SUCCESS,
                  monp_parse_param(text.data(), argv, 2, &count));
        std::string found;
        for (int i = 0; i < count; i++) {
            found.append(i > 0 ? "|" : "").append(argv[i]);
        }
        EXPECT_EQ(arguments, found);
        EXPECT_EQ(nullptr, argv[count]);
        EXPECT_EQ(complaint, journal.only("warning: error:"));
    }
}
