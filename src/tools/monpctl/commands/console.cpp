/*
 * Who may operate, and how the commands speak.
 */
#include "commands/console.h"

#include <iostream>
#include <unistd.h>

namespace monpctl {

void require_root()
{
    if (geteuid() != 0) {
        throw std::runtime_error("only root may start, stop or reload a monitor");
    }
}

void say(const std::string& type, const std::string& sentence)
{
    std::cout << type << ": " << sentence << ".\n" << std::flush;
}

void complain(const std::string& type, const std::string& sentence)
{
    std::cerr << "monpctl: " << type << ": " << sentence << ".\n";
}

void show_lines(const std::vector<std::string>& lines)
{
    for (const auto& line : lines) {
        std::cerr << "    " << line << '\n';
    }
}

void show_problems(const std::vector<Problem>& problems)
{
    for (const auto& problem : problems) {
        std::cerr << problem.where << ": " << problem.sentence << '\n';
    }
}

} // namespace monpctl
