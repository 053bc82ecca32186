// A home directory of the test's own, with the library open on it.
#ifndef XML_HOME_H
#define XML_HOME_H

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
        std::string name = testing::TempDir() + "teskxml-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(name.data()));
        home = name;
        for (const char* dir : { "etc", "etc/policy" }) {
            ASSERT_EQ(0, mkdir((home / dir).c_str(), 0755));
        }
        setenv("TESK_HOME", home.c_str(), 1);
        ASSERT_EQ("OK", word(xmllib_init("test")));
    }

    void TearDown() override
    {
        xmllib_term();
        if (!home.empty()) {
            std::filesystem::remove_all(home);
        }
    }

    // Writes a file below the home directory, with the mode of a trusted one; returns its path.
    std::string write(const std::string& name, const std::string& text)
    {
        const std::filesystem::path path = home / name;
        std::ofstream(path, std::ios::binary) << text;
        EXPECT_EQ(0, chmod(path.c_str(), 0644));
        return path;
    }

    std::string section(const std::string& name, const std::string& inner)
    {
        return write("etc/policy/" + name + ".xml", "<root><" + name + ">" + inner + "</" + name + "></root>");
    }

    // Reads a text; for an unreadable one, why.
    static std::string text(const std::string& key)
    {
        std::vector<char> value(TESKXML_MAX_VALUE + 1);
        int capacity = static_cast<int>(value.size());
        const int code = xmllib_get_value(key.c_str(), TESKXML_TEXT, value.data(), &capacity);
        return code == TESKXML_RET_SUCCESS ? value.data() : word(code);
    }

    using Loaded = std::vector<std::string>;

    static int append(const char* key, const char* value, const char* file, int line, void* context)
    {
        static_cast<Loaded*>(context)->push_back(std::string(key) + "=" + value + "@" +
                                                 std::filesystem::path(file).filename().string() + ":" +
                                                 std::to_string(line));
        return 0;
    }

    // Everything that is loaded, one "key=value@file:line" each.
    static Loaded loaded()
    {
        Loaded all;
        EXPECT_EQ(TESKXML_RET_SUCCESS, teskxml_walk(append, &all));
        return all;
    }

    std::filesystem::path home;
};

#endif
