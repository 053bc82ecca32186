/*
 * What the tests of the sample installation share: a directory of their own, and starting programs from there.
 */
#pragma once

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

/* Signals one process of ours: 0, 1 and -1 would reach far more. */
inline void send(pid_t pid, int sig)
{
    ASSERT_GT(pid, 1);
    kill(pid, sig);
}

/* Wait status of a process that ended, or stopped if the options say so; no signal cuts it short. */
inline int wait_for_end(pid_t pid, int options = 0)
{
    int status = -1;
    while (waitpid(pid, &status, options) < 0 && errno == EINTR) {}
    return status;
}

/* A directory of the test's own, the working directory of all it starts. "built" and "source" in it are the demo's. */
class Demo : public testing::Test {
protected:
    Demo()
    {
        alarm(60); /* ends us when a wait does not, and our children with us */
        fs::create_symlink(DEMO_BIN, home / "built");
        fs::create_symlink(DEMO_SOURCE, home / "source");
    }
    ~Demo() override
    {
        std::error_code ignored;
        fs::remove_all(home, ignored);
    }

    /* Starts a shell command as the monitor starts a program, with a signal ignored and the mask 0. */
    pid_t spawn(const std::string& command) const
    {
        const std::string line = "trap '' PIPE; umask 0; exec >output 2>&1; " + command;
        const pid_t pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (chdir(home.c_str()) == 0) {
                execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
            }
            _exit(127);
        }
        return pid;
    }
    /* Runs a command that has to end with this status and to say this much; gives all that it printed. */
    std::string sh(const std::string& command, int status = 0, const std::string& message = "") const
    {
        EXPECT_EQ(status << 8, wait_for_end(spawn(command))) << command << "\n" << read("output");
        EXPECT_NE(std::string::npos, read("output").find(message)) << command << "\n" << read("output");
        return read("output");
    }
    std::string read(const std::string& name) const
    {
        std::ifstream file(home / name);
        return { std::istreambuf_iterator<char>(file), {} };
    }

    const fs::path home = mkdtemp((fs::temp_directory_path() / "monp_demo.XXXXXX").string().data());
};
