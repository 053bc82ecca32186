/*
 * An installation to run the monitor in, and one run of it as a launcher would start it. For work inside the sandbox.
 */
#ifndef SANDBOX_MONITOR_H
#define SANDBOX_MONITOR_H

#include "sandbox.h"

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <stdexcept>
#include <thread>

namespace sandbox {

using Texts = std::vector<std::string>;

/*
 * Asks again and again until the answer is true, for what must come soon; throws after 20 seconds.
 */
template <typename Ask> auto eventually(const std::string& what, Ask ask)
{
    for (const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);;) {
        if (auto answer = ask()) {
            return answer;
        }
        if (std::chrono::steady_clock::now() > limit) {
            throw std::runtime_error("waited in vain for " + what);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

/*
 * Directories, programs and policies of one service type. A test changes `values` and writes them.
 */
struct Installation {
    /*
     * Lays it out for a type, whose policy names it NAME_policy unless it is "pelkant": the service reports at once and
     * takes commands from work/ctl; the action is none. No value is written yet.
     */
    explicit Installation(const std::string& type);

    /* Writes every value: a section's to its policy file, one without a section to the configuration. */
    void write() const;
    /* Makes a program a script that notes its call, "NAME [ARGUMENT]...", and goes on with the given lines. */
    void script(const std::string& name, const std::string& lines) const;
    /* The calls of all scripts. */
    [[nodiscard]] Texts calls() const;
    /* A value of the monitor's own section for the type. */
    std::string& own(const std::string& key);
    /* Sends a line of commands to the running service. */
    void command(const std::string& line) const;
    /* Processes that run the service's program now; waits for such a process. */
    [[nodiscard]] std::vector<pid_t> services() const;
    pid_t service() const;

    std::string type;
    std::filesystem::path root;
    std::map<std::string, std::string> values; // key path below "/root/", without its leading "/"
    bool hurried = false;                      // seconds pass in 5 ms
    std::function<void()> launcher = [] {};    // what the launcher's process does before it becomes the monitor
};

/*
 * A line of the monitor's log; `level` has the event's number behind it.
 */
struct Line {
    std::string thread;
    std::string level;
    std::string function;
    std::string text;
};

/*
 * A run of the monitor. Patterns are "LEVEL TEXT" as for fnmatch.
 */
class Monitor {
public:
    /* Starts it with "--TYPE" and the arguments, as a user. */
    explicit Monitor(const Installation& in, const Texts& arguments = {}, uid_t user = 0);

    /* Waits for the first process, which a launcher waits for. Result: its status; seconds() tells how long it ran. */
    int launched();
    [[nodiscard]] double seconds() const;

    /* The daemon; waits until it runs. */
    pid_t daemon();
    void signal(int number);
    /* Waits for the daemon's end. Result: its status, or 128 and the number of the signal that ended it. */
    int ended();

    [[nodiscard]] const std::vector<Line>& lines() const;
    [[nodiscard]] int count(const std::string& pattern, const std::string& function = "*") const;
    void wait_for(const std::string& pattern, int times = 1, const std::string& function = "*") const;
    /* Waits until the daemon has seen so many reports or start requests of SIGUSR1. */
    void wait_for_report(int times = 1) const;
    /* Whether lines appear in this order, with any others between them; the failure shows the log. */
    [[nodiscard]] testing::AssertionResult logged(const Texts& patterns) const;

private:
    Installation in_;
    mutable std::vector<Line> lines_; // of the part of the log that was read
    mutable std::streamoff read_ = 0;
    pid_t first_ = 0;
    pid_t daemon_ = 0;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point end_;
};

} // namespace sandbox

#endif
