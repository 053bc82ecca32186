// A home directory of the test's own, with the library open on it.
#pragma once

#include "teskxml_tools.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace std::string_literals;

// The last failure as one text, "FILE:LINE:COLUMN: SENTENCE" with the place as far as there is one.
inline std::string failure()
{
    const TESKXML_FAILURE last = teskxml_lastfailure();
    const std::string line = last.line > 0 ? std::to_string(last.line) + ":" + std::to_string(last.column) + ":" : "";
    const std::string file = last.file;
    return (file.empty() ? "" : file + ":" + line + " ") + last.sentence;
}

// A result code as one word, "OK" or the end of its name.
inline std::string word(int code)
{
    return code == TESKXML_RET_SUCCESS ? "OK" : std::string(teskxml_codename(code)).substr(17);
}

class XmlHome : public testing::Test {
protected:
    void SetUp() override
    {
        if (geteuid() != 0) {
            GTEST_SKIP() << "the library trusts files of root only";
        }
        alarm(60); // nothing may be waited for, a FIFO least of all
        umask(022);
        std::filesystem::create_directories(home / "etc/policy");
        setenv("TESK_HOME", home.c_str(), 1);
        ASSERT_EQ("OK", word(xmllib_init("test")));
    }

    void TearDown() override
    {
        xmllib_term();
        std::filesystem::remove_all(home);
    }

    // Writes a file below the home directory; returns its path.
    std::string write(const std::string& name, const std::string& text)
    {
        std::ofstream(home / name, std::ios::binary) << text;
        return home / name;
    }

    std::string section(const std::string& name, const std::string& inner)
    {
        return write("etc/policy/" + name + ".xml", "<root><" + name + ">" + inner + "</" + name + "></root>");
    }

    // Loads a section, in the place of the one that was loaded under this name.
    void load(const std::string& name, const std::string& inner)
    {
        section(name, inner);
        xmllib_unload_policy(name.c_str());
        EXPECT_EQ("OK", word(xmllib_load_policy(name.c_str()))) << inner << ": " << failure();
    }

    // Reads a text; for an unreadable one, why.
    static std::string text(const std::string& key)
    {
        std::vector<char> value(TESKXML_MAX_VALUE + 1);
        int capacity = static_cast<int>(value.size());
        const int code = xmllib_get_value(key.c_str(), TESKXML_TEXT, value.data(), &capacity);
        return code == TESKXML_RET_SUCCESS ? value.data() : word(code);
    }

    // Whether the sentence about the last failure holds a text.
    static bool told(const std::string& part)
    {
        return failure().find(part) != std::string::npos;
    }

    using Loaded = std::vector<std::string>;

    // Everything that is loaded, one "key=value@file:line" each.
    static Loaded loaded()
    {
        Loaded all;
        const auto append = [](const char* key, const char* value, const char* file, int line, void* context) {
            const std::string place = std::filesystem::path(file).filename().string() + ":" + std::to_string(line);
            static_cast<Loaded*>(context)->push_back(std::string(key) + "=" + value + "@" + place);
            return 0;
        };
        EXPECT_EQ("OK", word(teskxml_walk(append, &all)));
        return all;
    }

    const std::filesystem::path home = mkdtemp((testing::TempDir() + "teskxml-XXXXXX").data());
};
