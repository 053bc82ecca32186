/*
 * The session in the manual page of monpctl, as an operator would type it.
 */
#include "monpctl_run.h"

#include <fstream>
#include <regex>

using sandbox::Installation;
using sandbox::monpctl;
using sandbox::Texts;

namespace {

/*
 * A command of the session and its output.
 */
struct Step {
    std::string arguments;
    std::string output;
};

/* Pids, times and ages differ from run to run; a table is padded to them. */
std::string normalised(std::string text)
{
    text = std::regex_replace(text, std::regex("(monitor |service |running\t)[0-9]+"), "$1PID");
    text = std::regex_replace(text, std::regex("[0-9-]+[ T][0-9]+:[0-9:]+[0-9]"), "TIME");
    return std::regex_replace(text, std::regex("[0-9]+ s *"), "AGE ");
}

std::vector<Step> session()
{
    const std::string prompt = "$ monpctl ";
    std::vector<Step> steps;
    bool inside = false;

    for (const auto& line : sandbox::file_lines(MANUAL_PAGE)) {
        if (line.starts_with(".Bd -literal")) {
            inside = true;
        } else if (line == ".Ed") {
            inside = false;
        } else if (inside && line.starts_with(prompt)) {
            steps.push_back({ line.substr(prompt.size()), "" });
        } else if (inside && !steps.empty()) {
            steps.back().output += line + '\n';
        }
    }
    return steps;
}

} // namespace

TEST(Manual, HasASessionThatGoesAsItSays)
{
    Installation in("dusko");
    in.own("action") = "2";
    in.own("restarttime") = "3";
    in.write();
    const auto steps = session();

    ASSERT_FALSE(steps.empty());
    for (const auto& step : steps) {
        const auto run = monpctl(in, step.arguments);
        std::string output;
        for (const auto& line : run.lines) {
            output += line + '\n';
        }
        EXPECT_EQ(normalised(step.output), normalised(output + run.errors)) << step.arguments;
    }
}

/* The refusal of a field names those that there are. */
TEST(Manual, HasEachField)
{
    Installation in("dusko");
    in.write();
    const std::string errors = monpctl(in, "status dusko --fields nonsense").errors;
    const auto page = sandbox::file_content(MANUAL_PAGE);
    const std::regex word("[a-z_]+");
    const auto names = errors.find("there are ");
    int count = 0;

    ASSERT_NE(std::string::npos, names) << errors;
    for (std::sregex_iterator found(errors.begin() + static_cast<long>(names) + 10, errors.end(), word), end;
         found != end; ++found, ++count) {
        EXPECT_NE(std::string::npos, page.find("\n.It " + found->str() + "\n")) << found->str();
    }
    EXPECT_GT(count, 10);
}
