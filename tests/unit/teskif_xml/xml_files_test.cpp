// Which files are read at all. Everything here is about who could have written them.
#include "xml_home.h"

#include <functional>

namespace fs = std::filesystem;

struct Tampering {
    std::string name;
    std::function<void(const fs::path& target, const fs::path& old)> apply;
    bool replaces; // the target is moved to old first
    std::string code;
};

static void PrintTo(const Tampering& tampering, std::ostream* stream)
{
    *stream << tampering.name;
}

static const Tampering tamperings[] = {
    { "GroupWritable", [](auto& at, auto&) { chmod(at.c_str(), 0775); }, false, "UNTRUSTED" },
    { "OthersWritable", [](auto& at, auto&) { chmod(at.c_str(), 01757); }, false, "UNTRUSTED" },
    { "OtherOwner", [](auto& at, auto&) { EXPECT_EQ(0, chown(at.c_str(), 65534, 0)); }, false, "UNTRUSTED" },
    { "OtherGroup", [](auto& at, auto&) { EXPECT_EQ(0, chown(at.c_str(), 0, 65534)); }, false, "OK" },
    { "Link", [](auto& at, auto& old) { fs::create_symlink(old, at); }, true, "FILETYPE" },
    { "Fifo", [](auto& at, auto&) { EXPECT_EQ(0, mkfifo(at.c_str(), 0644)); }, true, "FILETYPE" },
    { "Missing", [](auto&, auto&) {}, true, "NOTFOUND" },
};

class XmlTrust : public XmlHome, public testing::WithParamInterface<std::tuple<Tampering, std::string>> {};

// Each tampering with the file, and with each directory from the home directory down to it.
TEST_P(XmlTrust, RefusesWhatOthersCouldHaveWritten)
{
    const auto& [tampering, below] = GetParam();
    section("all", "<x>1</x>");
    const fs::path target = below.empty() ? home : home / below;
    const fs::path old = target.string() + ".old";
    if (tampering.replaces) {
        fs::rename(target, old);
    }
    tampering.apply(target, old);
    alarm(10); // a FIFO must not be waited for

    EXPECT_EQ(tampering.code, word(xmllib_load_policy("all"))) << teskxml_lasterror();

    alarm(0);
    EXPECT_EQ(tampering.code == "OK", !loaded().empty());
    if (tampering.code != "OK") {
        EXPECT_NE(std::string::npos, std::string(teskxml_lasterror()).find(": " + target.string() + " "));
    }
    if (tampering.replaces) {
        fs::remove(target);
        fs::rename(old, target);
    }
}

INSTANTIATE_TEST_SUITE_P(Xml, XmlTrust,
                         testing::Combine(testing::ValuesIn(tamperings),
                                          testing::Values("", "etc", "etc/policy", "etc/policy/all.xml")));

TEST_F(XmlHome, RefusesADirectoryInTheFilesPlace)
{
    fs::create_directory(home / "etc/config.xml");
    EXPECT_EQ("FILETYPE", word(xmllib_load_config()));
}

TEST_F(XmlHome, TakesConfigurationsByPathFromTrustedPlacesOnly)
{
    const std::string inside = write("etc/other.xml", "<root><x>1</x></root>");
    fs::create_symlink(inside, home / "etc/link.xml");
    const std::string beside = home.string() + "2"; // not below the home directory, so /tmp counts
    fs::create_directory(beside);
    fs::copy_file(inside, beside + "/other.xml");
    const std::pair<std::string, std::string> paths[] = {
        { inside, "OK" },
        { home / "etc/link.xml", "FILETYPE" },
        { beside + "/other.xml", "UNTRUSTED" },
        { home, "UNTRUSTED" },
        { home / "etc/../etc/other.xml", "ARGUMENT" },
        { home / "etc/./other.xml", "ARGUMENT" },
        { home.string() + "/etc//other.xml", "ARGUMENT" },
        { inside + "/", "FILETYPE" },
        { "etc/other.xml", "ARGUMENT" },
        { "", "ARGUMENT" },
        { "/", "ARGUMENT" },
        { "/" + std::string(TESKXML_MAX_PATH, 'p'), "ARGUMENT" },
        { "/etc/passwd", "SYNTAX" }, // root's alone all the way, so it is read
    };
    for (const auto& [path, code] : paths) {
        void* handle = nullptr;
        EXPECT_EQ(code, word(xmllib_load_pathconfig(path.c_str(), &handle))) << path;
        EXPECT_EQ(code == "OK", handle != nullptr) << path;
    }
    fs::remove_all(beside);
}

TEST_F(XmlHome, TakesSectionNamesThatCannotLeaveTheDirectory)
{
    const std::string longest(TESKXML_MAX_NAME, 'n');
    for (const std::string& name : { longest, "a-B_9"s }) {
        section(name, "<x>1</x>");
        EXPECT_EQ("OK", word(xmllib_load_policy(name.c_str())));
    }
    for (const std::string& name : { ""s, longest + "n", "../config"s, "."s, "a/b"s, "a b"s, "a.b"s, "a\n"s, "%s"s }) {
        EXPECT_EQ("NAME", word(xmllib_load_policy(name.c_str()))) << name;
        EXPECT_EQ("NAME", word(xmllib_unload_policy(name.c_str()))) << name;
    }
    EXPECT_EQ("ARGUMENT", word(xmllib_load_policy(nullptr)));
}
