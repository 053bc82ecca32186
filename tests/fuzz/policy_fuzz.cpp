// A policy: the input is the configuration and, behind a NUL, the file of a section. What can be loaded is read back.
// Only how the library reads a file is replaced.
#include "fuzz.h"
#include "teskxml_file.h"
#include "teskxml_tools.h"

#include <algorithm>
#include <memory>
#include <vector>

static std::string files[2]; // configuration, section

int teskxml::read_file(const char* path, size_t, Scratch&, std::string_view& content)
{
    static std::unique_ptr<char[]> copy; // on the heap and no longer than it must be, where a byte too far is noticed
    const std::string& file = files[strcmp(path, "/fuzz/etc/config.xml") == 0 ? 0 : 1];
    FUZZ_CHECK(&file == files || strcmp(path, "/fuzz/etc/policy/dusko.xml") == 0);
    copy = std::make_unique<char[]>(file.size());
    memcpy(copy.get(), file.data(), file.size());
    content = { copy.get(), file.size() };
    return TESKXML_RET_SUCCESS;
}

// After a failure one line of printable text tells about it.
static void check_result(int result)
{
    const TESKXML_FAILURE failure = teskxml_lastfailure();
    const std::string_view text = failure.sentence;
    FUZZ_CHECK(result >= TESKXML_RET_SUCCESS && result < TESKXML_RET_FAIL_MEMORY);
    FUZZ_CHECK(result == TESKXML_RET_SUCCESS || (failure.code == result && !text.empty() && text.size() < 1024));
    FUZZ_CHECK((failure.line > 0) == (failure.column > 0) && (failure.line == 0 || *failure.file != '\0'));
    FUZZ_CHECK(std::none_of(text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }));
    const auto is_c1 = [](char c, char next) { return c == '\xc2' && (next & 0xe0) == 0x80; };
    FUZZ_CHECK(std::adjacent_find(text.begin(), text.end(), is_c1) == text.end());
}

static void check_text(const char* key, std::string_view value)
{
    int capacity = static_cast<int>(value.size()) + 1;
    const std::unique_ptr<char[]> text(new char[value.size() + 1]); // on the heap, where a byte too many is noticed
    FUZZ_CHECK(xmllib_get_value(key, TESKXML_TEXT, text.get(), &capacity) == TESKXML_RET_SUCCESS);
    FUZZ_CHECK(value == text.get());
}

static void check_int(const char* key, const char* value)
{
    int number = 7;
    int capacity = sizeof(number);
    const int result = xmllib_get_value(key, TESKXML_INT, &number, &capacity);

    FUZZ_CHECK(number == (result == TESKXML_RET_SUCCESS ? strtol(value, nullptr, 10) : 7));
    FUZZ_CHECK(result != TESKXML_RET_SUCCESS || strspn(value, "+-0123456789") == strlen(value));
    check_result(result);
}

static int visit(const char* key, const char* value, const char* file, int line, void* keys)
{
    const std::string_view text = value;
    FUZZ_CHECK(std::string_view(key).starts_with(strstr(file, "config") != nullptr ? "/root/" : "/root/dusko/"));
    FUZZ_CHECK(strlen(key) <= TESKXML_MAX_KEY && text.size() <= TESKXML_MAX_VALUE && line >= 1);
    FUZZ_CHECK(strchr(" \t\r\n", *value) == nullptr || text.empty()); // no blanks around a value
    FUZZ_CHECK(text.empty() || strchr(" \t\r\n", text.back()) == nullptr);
    check_text(key, text);
    check_int(key, value);
    static_cast<std::vector<std::string>*>(keys)->emplace_back(key);
    return 0;
}

// Reads everything back and tells the keys.
static std::vector<std::string> loaded()
{
    std::vector<std::string> keys;
    FUZZ_CHECK(teskxml_walk(visit, &keys) == TESKXML_RET_SUCCESS);
    return keys;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input{ { reinterpret_cast<const char*>(data), size } };
    files[0] = input.text();
    files[1] = input.rest;
    setenv("TESK_HOME", "/fuzz", 1);
    FUZZ_CHECK(xmllib_init("fuzz") == TESKXML_RET_SUCCESS);

    check_result(xmllib_load_config());
    const std::vector<std::string> before = loaded();
    const int result = xmllib_load_policy("dusko");
    check_result(result);
    if (result == TESKXML_RET_SUCCESS) {
        std::vector<std::string> keys = loaded();
        std::sort(keys.begin(), keys.end());
        FUZZ_CHECK(std::adjacent_find(keys.begin(), keys.end()) == keys.end()); // one value a key
        FUZZ_CHECK(xmllib_unload_policy("dusko") == TESKXML_RET_SUCCESS);
    }
    FUZZ_CHECK(loaded() == before); // a load is all or nothing, and an unload undoes it
    FUZZ_CHECK(xmllib_term() == TESKXML_RET_SUCCESS);
    return 0;
}
