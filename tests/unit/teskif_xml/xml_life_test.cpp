// Opening, closing, and what is loaded in between.
#include "xml_home.h"

#include <sys/mman.h>
#include <sys/syscall.h>

TEST_F(XmlHome, RefusesEveryOperationWhileClosed)
{
    load("all", "<x>1</x>");
    ASSERT_EQ("OK", word(xmllib_term()));
    for (const int code : { xmllib_load_config(), xmllib_unload_config(), xmllib_load_pathconfig("/x", nullptr),
                            xmllib_unload_pathconfig(nullptr), xmllib_load_policy("all"), xmllib_unload_policy("all"),
                            xmllib_get_value("/root/all/x", TESKXML_TEXT, nullptr, nullptr),
                            teskxml_walk(nullptr, nullptr), xmllib_term() }) {
        EXPECT_EQ("NOTOPEN", word(code));
    }
    EXPECT_EQ("ARGUMENT", word(xmllib_init("")));
    EXPECT_EQ("OK", word(xmllib_init("test")));
    EXPECT_EQ("ALREADYOPEN", word(xmllib_init("test")));
    EXPECT_EQ("NOKEY", text("/root/all/x")); // closing had released it
}

TEST_F(XmlHome, NeedsAnAbsoluteHomeAndKeepsItWhileOpen)
{
    section("all", "<x>1</x>");
    std::filesystem::create_symlink(home, home / "link");
    const std::string longest = "/" + std::string(TESKXML_MAX_PATH - 1, 'h');
    const std::tuple<std::string, std::string, std::string> homes[] = {
        { home.parent_path() / "." / "" / home.filename() / "./", "OK", "OK" },
        { home.string() + "/link/.", "OK", "FILETYPE" },
        { home.string() + "/etc/..", "HOME", "NOTOPEN" },
        { longest, "OK", "HOME" }, // no room for the path of a file
        { longest + "h", "HOME", "NOTOPEN" },
        { "tmp", "HOME", "NOTOPEN" },
    };
    for (const auto& [path, opening, loading] : homes) {
        xmllib_term();
        setenv("TESK_HOME", path.c_str(), 1);
        EXPECT_EQ(opening, word(xmllib_init("test"))) << path;
        setenv("TESK_HOME", "/nowhere", 1);
        EXPECT_EQ(loading, word(xmllib_load_policy("all"))) << path;
    }
}

TEST_F(XmlHome, CountsLoadsOfTheSameFile)
{
    write("etc/config.xml", "<root><c>1</c></root>");
    const std::string other = write("etc/other.xml", "<root><o>1</o></root>");
    section("all", "<x>1</x>\n<b><c/></b>");
    void* first = nullptr;
    void* second = nullptr;
    for (void** handle : { &first, &second }) {
        ASSERT_EQ("OK", word(xmllib_load_config()));
        ASSERT_EQ("OK", word(xmllib_load_policy("all")));
        ASSERT_EQ("OK", word(xmllib_load_pathconfig(other.c_str(), handle)));
        section("all", "<x>2</x>"); // all readers see one state
    }
    EXPECT_EQ(first, second);
    const Loaded all = { "/root/c=1@config.xml:1", "/root/all/x=1@all.xml:1", "/root/all/b/c=@all.xml:2",
                         "/root/o=1@other.xml:1" };
    for (const char* code : { "OK", "OK", "NOTLOADED" }) {
        EXPECT_EQ(code == "OK"s ? all : Loaded(), loaded());
        EXPECT_EQ(code, word(xmllib_unload_policy("all")));
        EXPECT_EQ(code, word(xmllib_unload_config()));
        EXPECT_EQ(code, word(xmllib_unload_pathconfig(first)));
    }
    EXPECT_EQ("OK", word(xmllib_load_pathconfig(other.c_str(), &second))); // the only file again
    EXPECT_EQ("NOTLOADED", word(xmllib_unload_pathconfig(first)));         // stale
    EXPECT_EQ("OK", word(xmllib_load_policy("all")));
    EXPECT_EQ("2", text("/root/all/x"));
}

TEST_F(XmlHome, LetsNoTwoFilesAnswerOneKey)
{
    const std::string policy = section("all", "\n<env><path>/bin</path></env>");
    ASSERT_EQ("OK", word(xmllib_load_policy("all")));
    for (const char* content : { "<root>\n<all>\n<env><path>/sbin</path></env></all></root>",
                                 "<root>\n<all>\n<env><path><x/></path></env></all></root>" }) {
        write("etc/config.xml", content);
        EXPECT_EQ("DUPLICATE", word(xmllib_load_config())) << content;
        EXPECT_TRUE(told(":3:6: the key /root/all/env/path is given twice, first in line 2 of " + policy));
    }
    write("etc/config.xml", "<root><all><env/></all></root>");
    EXPECT_EQ("DUPLICATE", word(xmllib_load_config()));
    write("etc/config.xml", "<root><dummyconf>0</dummyconf><all><env><lang>C</lang></env></all></root>");
    EXPECT_EQ("OK", word(xmllib_load_config()));
    EXPECT_EQ("/bin", text("/root/all/env/path"));
    EXPECT_EQ("C", text("/root/all/env/lang"));
}

TEST_F(XmlHome, LoadsALimitedNumberOfFiles)
{
    for (int n = 0; n <= TESKXML_MAX_LOADED; n++) {
        const std::string name = std::string("s").append(std::to_string(n));
        section(name, "<x>1</x>");
        EXPECT_EQ(n < TESKXML_MAX_LOADED ? "OK" : "LIMIT", word(xmllib_load_policy(name.c_str())));
    }
    EXPECT_EQ("OK", word(xmllib_unload_policy("s0")));
    EXPECT_EQ("OK", word(xmllib_load_policy("s64")));
}

// A sanitizer brings an allocator of its own, which this one must not get in front of.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define IN_FRONT extern "C" __attribute__((visibility("default")))

// How many still succeed; -1: all. Volatile, as a compiler believes that malloc changes nothing.
static volatile int allocations = -1;

static bool allowed()
{
    allocations = allocations > 0 ? allocations - 1 : allocations;
    return allocations != 0;
}

extern "C" void* __libc_malloc(size_t size);

IN_FRONT void* malloc(size_t size) noexcept
{
    return allowed() ? __libc_malloc(size) : nullptr;
}

IN_FRONT void* mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset) noexcept
{
    return allowed() ? reinterpret_cast<void*>(syscall(SYS_mmap, address, size, protection, flags, fd, offset))
                     : MAP_FAILED;
}

// A small file takes one block, a large one also mappings for the content and for what the parser needs.
TEST_F(XmlHome, SurvivesAShortageOfMemoryAtEachStep)
{
    std::string many;
    for (int n = 0; n < 8000; n++) {
        many += "<a_long_name_for_a_key_" + std::to_string(n) + "/>\n";
    }
    many.append(TESKXML_MAX_FILE - 1000 - many.size(), ' ');
    for (const auto& [inner, least] : { std::pair<std::string, int>{ "<x>1</x>", 1 }, { many, 3 } }) {
        section("all", inner);
        int shortages = 0;
        std::string code = "MEMORY";

        for (; code == "MEMORY" && shortages < 100; shortages += code == "MEMORY" ? 1 : 0) {
            allocations = shortages + 1;
            const int result = xmllib_load_policy("all");
            allocations = -1;
            code = word(result);
            EXPECT_EQ(code == "OK", !loaded().empty());
        }
        EXPECT_EQ("OK", code);
        EXPECT_LE(least, shortages);
        xmllib_unload_policy("all");
    }
}
#endif
