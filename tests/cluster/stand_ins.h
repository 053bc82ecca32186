/*
 * A directory of stand-ins for the commands that a script calls, which record their calls: it is all that the script
 * finds, so that no command of the machine's is reached by mistake.
 */
#ifndef STAND_INS_H
#define STAND_INS_H

#include "sandbox.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace cluster {

struct Ended {
    int status;
    std::string output;
};

class StandIns : public testing::Test {
protected:
    StandIns()
    {
        std::filesystem::create_directories(commands);
        for (const char* name :
             { "cat", "grep", "head", "ls", "mkdir", "readlink", "rm", "sed", "setsid", "sh", "tail", "tr" }) {
            std::filesystem::create_symlink(std::filesystem::path("/bin") / name, commands / name);
        }
    }
    ~StandIns() override
    {
        std::filesystem::remove_all(root);
    }

    /* A command that records its call and goes on with this text of a shell. */
    void stand_in(const std::filesystem::path& path, const std::string& text) const
    {
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << "#!/bin/sh\necho \"${0##*/}${*:+ }$*\" >>" << calls_file.string() << '\n'
                            << text << '\n';
        std::filesystem::permissions(path, std::filesystem::perms(0755));
    }

    /* Runs a command line, whose variables come first, with nothing in its environment but the stand-ins. */
    Ended run(const std::string& line) const
    {
        std::filesystem::remove(calls_file);
        const std::string output = (root / "output").string();
        const int end = std::system(("cd " + root.string() + " && env -i PATH=" + commands.string() + " " + line +
                                     " </dev/null >" + output + " 2>&1")
                                        .c_str());
        return { WIFEXITED(end) ? WEXITSTATUS(end) : -1, sandbox::file_content(output) };
    }

    std::string calls() const
    {
        return std::filesystem::exists(calls_file) ? sandbox::file_content(calls_file) : "";
    }

    const std::filesystem::path root = sandbox::directory() / "cluster";
    const std::filesystem::path commands = root / "commands";
    const std::filesystem::path calls_file = root / "calls";
};

} // namespace cluster

#endif
