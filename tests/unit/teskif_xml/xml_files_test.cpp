// Which files are read at all. Everything here is about who could have written them.
#include "xml_home.h"

#include <fcntl.h>
#include <sys/syscall.h>

// Descriptors that a program started meanwhile would have got; the library looks at each that it opens.
static int inheritable;

extern "C" __attribute__((visibility("default"))) int fstat(int fd, struct stat* status) noexcept
{
    inheritable += (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0 ? 1 : 0;
    return static_cast<int>(syscall(SYS_fstat, fd, status));
}

namespace fs = std::filesystem;

TEST_F(XmlHome, RefusesWhatOthersCouldHaveWritten)
{
    const std::pair<const char*, std::string> tamperings[] = {
        { "chmod 0775 $T", "UNTRUSTED" },
        { "chown 65534 $T", "UNTRUSTED" },
        { "chgrp 65534 $T", "OK" },
        { "mv $T $T.old; ln -s $T.old $T", "FILETYPE" },
        { "mv $T $T.old; mkfifo -m 0644 $T", "FILETYPE" },
        { "mv $T $T.old", "NOTFOUND" },
    };
    const char* undo = "if [ -e $T.old ]; then rm -f $T; mv $T.old $T; fi; chown 0:0 $T; chmod 0755 $T";
    section("all", "<x>1</x>");
    for (const char* below : { "", "/etc", "/etc/policy", "/etc/policy/all.xml" }) {
        const std::string target = home.string() + below;
        setenv("T", target.c_str(), 1);
        for (const auto& [command, code] : tamperings) {
            ASSERT_EQ(0, system(command));
            EXPECT_EQ(code, word(xmllib_load_policy("all"))) << command << ": " << failure();
            EXPECT_EQ(code == "OK", !loaded().empty());
            EXPECT_TRUE(code == "OK" || told(": " + target + " ")) << failure();
            xmllib_unload_policy("all");
            ASSERT_EQ(0, system(undo));
        }
    }
}

TEST_F(XmlHome, TakesConfigurationsByPathFromTrustedPlacesOnly)
{
    const std::string inside = write("etc/other.xml", "<root><x>1</x></root>");
    fs::create_symlink(inside, home / "etc/link.xml");
    const std::string beside = home.string() + "2"; // not below the home directory, so every directory counts
    fs::create_directory(beside);
    fs::permissions(beside, fs::perms::all); // the machine's own may be closed
    fs::copy_file(inside, beside + "/other.xml");
    ASSERT_EQ(0, mknod((home / "etc/socket").c_str(), S_IFSOCK | 0600, 0));
    const std::pair<std::string, std::string> paths[] = {
        { inside, "OK" },
        { home / "etc/link.xml", "FILETYPE" },
        { beside + "/other.xml", "UNTRUSTED" },
        { home / "etc/socket", "FILETYPE" },
        { home / "etc/../etc/other.xml", "ARGUMENT" },
        { home.string() + "/etc//other.xml", "ARGUMENT" },
        { "etc/other.xml", "ARGUMENT" },
        { "/etc/passwd", "SYNTAX" }, // root's alone all the way, so it is read
        { "/", "ARGUMENT" },
    };
    for (const auto& [path, code] : paths) {
        void* handle = nullptr;
        EXPECT_EQ(code, word(xmllib_load_pathconfig(path.c_str(), &handle))) << path;
        EXPECT_EQ(code == "OK", handle != nullptr) << path;
    }
    EXPECT_EQ(0, inheritable);
    EXPECT_EQ("/: a \"/\" in the path has no name behind it", failure());
    fs::remove_all(beside);
}

TEST_F(XmlHome, TakesSectionNamesThatCannotLeaveTheDirectory)
{
    const std::string longest(TESKXML_MAX_NAME, 'n');
    load(longest, "<x>1</x>");
    load("a-B_9", "<x>1</x>");
    for (const std::string& name : { ""s, longest + "n", "../config"s, "."s, "a\n"s }) {
        EXPECT_EQ("NAME", word(xmllib_load_policy(name.c_str()))) << name;
        EXPECT_EQ("NAME", word(xmllib_unload_policy(name.c_str()))) << name;
    }
}
