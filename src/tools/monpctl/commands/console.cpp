#include "commands/console.h"

#include "common/refusal.h"
#include "common/text.h"

#include <cstdlib>
#include <iostream>
#include <string_view>
#include <unistd.h>

namespace monpctl {

void require_root()
{
    if (geteuid() != 0) {
        throw Fault("only root may start, stop or reload a monitor");
    }
}

void say(const std::string& type, const std::string& sentence)
{
    std::cout << type << ": " << sentence << ".\n" << std::flush;
}

void warn(const std::string& type, const std::string& sentence)
{
    complain(type, "warning: " + sentence);
}

void complain(const std::string& type, const std::string& sentence)
{
    std::cerr << "monpctl: " << type << ": " << sentence << ".\n";
}

void show_lines(const std::vector<std::string>& lines)
{
    for (const auto& line : lines) {
        std::cerr << "    " << printable(line) << '\n';
    }
}

void show_problems(const std::vector<Problem>& problems)
{
    for (const auto& problem : problems) {
        std::cerr << printable(text_of(problem)) << '\n';
    }
}

bool shows_colours()
{
    const char* terminal = std::getenv("TERM");
    const char* refused = std::getenv("NO_COLOR");

    return isatty(STDOUT_FILENO) != 0 && (refused == nullptr || *refused == '\0') && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

} // namespace monpctl
