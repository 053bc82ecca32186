/*
 * A home directory of its own for each test, and the log read back.
 */
#ifndef LOG_FIXTURE_H
#define LOG_FIXTURE_H

#include "tesklog.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

/*
 * The system calls that a test can steer; the library's calls land in these.
 */
struct LogSystem {
    int64_t clock = 0;                                   // nanoseconds since 1970; 0: the real time
    bool plainRename = false;                            // the file system can only rename over what is there
    std::function<void()> onClock;                       // called once, by the next question for the time
    std::function<bool(const std::string& to)> onRename; // called after each rename until it returns true
    void advance(double seconds)
    {
        clock += static_cast<int64_t>(seconds * 1e9);
    }
};
extern LogSystem logSystem;

class LogTest : public testing::Test {
protected:
    LogTest();
    ~LogTest() override;

    // Opens the log "monp"; it is closed when the test ends.
    void* open(int level = 0, int size = 0, int generations = 0);
    // The lines of <home>/log/<name>.
    std::vector<std::string> lines(const std::string& name = "monp.log") const;
    // The same without what stands before the text; a line without that stays whole.
    std::vector<std::string> texts(const std::string& name = "monp.log") const;
    std::filesystem::path path(const std::string& name = "monp.log") const
    {
        return home / "log" / name;
    }
    static std::string printed(const char* format, ...) __attribute__((format(printf, 1, 2)));

    std::filesystem::path home;
    void* handle = nullptr;
};

#define WRITE(...) TESKLOG_LINE_AS(handle, TESKLOG_INFO, "test", __VA_ARGS__)

#endif
