// A home directory of its own for each test, the log read back, and the system calls that a test can steer.
#pragma once

#include "tesklog.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

constexpr int64_t SECOND = 1000000000; // in the units of the clock

struct LogSystem {
    int64_t clock = 1795380668123456789;                 // nanoseconds since 1970; 0: the real time
    bool plainRename = false;                            // the file system can only rename over what is there
    std::function<void()> onClock;                       // called by each question for the time
    std::function<void(const std::string& to)> onRename; // called after each rename
    std::function<void()> onReplace;                     // called before and after the log's descriptor is replaced
};
inline LogSystem logSystem;

class LogTest : public testing::Test {
protected:
    LogTest()
    {
        std::string name = testing::TempDir() + "teskif_log_XXXXXX";
        home = mkdtemp(name.data());
        setenv("TESK_HOME", home.c_str(), 1);
        setenv("TZ", "UTC0", 1);
    }

    ~LogTest() override
    {
        log_term(handle);
        logSystem = LogSystem();
        fs::remove_all(home);
    }

    void* open(int level = 0, int size = 0, int generations = 0)
    {
        EXPECT_EQ(0, log_init("monp", &handle, level, size, generations));
        return handle;
    }

    fs::path path(const std::string& name = "monp.log") const
    {
        return home / "log" / name;
    }

    Texts lines(const std::string& name = "monp.log") const
    {
        std::ifstream file(path(name));
        Texts found;
        for (std::string line; std::getline(file, line);) {
            found.push_back(line);
        }
        return found;
    }

    // The same without what stands before the text; a line that is no record stays whole.
    Texts texts(const std::string& name = "monp.log") const
    {
        Texts found = lines(name);
        for (std::string& line : found) {
            size_t text = 0;
            for (int word = 0; word < 6 && line.starts_with("20"); word++) { // the year
                text = line.find(' ', text) + 1;
            }
            line.erase(0, text);
        }
        return found;
    }

    fs::path home;
    void* handle = nullptr;
};

template <class... Values> std::string printed(const char* format, Values... values)
{
    char text[1024];
    snprintf(text, sizeof(text), format, values...);
    return text;
}

#define WRITE(...) TESKLOG_LINE_AS(handle, TESKLOG_INFO, "test", __VA_ARGS__)
