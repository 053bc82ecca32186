// A policy: the input is the configuration and, behind a NUL, the file of a section. What can be loaded is read back.
#include "xml_memory.h"

#include <algorithm>
#include <memory>
#include <vector>

static void check_text(const char* key, std::string_view value)
{
    int capacity = static_cast<int>(value.size()) + 1;
    const std::unique_ptr<char[]> text(new char[value.size() + 1]); // on the heap, where a byte too many is noticed
    FUZZ_CHECK(xmllib_get_value(key, TESKXML_TEXT, text.get(), &capacity) == TESKXML_RET_SUCCESS);
    FUZZ_CHECK(value == text.get());
}

static void check_int(const char* key, const char* value)
{
    const size_t sign = *value == '-' || *value == '+' ? 1 : 0;
    const size_t digits = strspn(value + sign, "0123456789");
    const long expected = strtol(value, nullptr, 10);
    int number = 7;
    int capacity = sizeof(number);
    const int result = xmllib_get_value(key, TESKXML_INT, &number, &capacity);

    if (digits == 0 || value[sign + digits] != '\0') {
        FUZZ_CHECK(result == TESKXML_RET_FAIL_NOTNUMBER && number == 7);
    } else if (expected < INT32_MIN || expected > INT32_MAX) {
        FUZZ_CHECK(result == TESKXML_RET_FAIL_RANGE && number == 7);
    } else {
        FUZZ_CHECK(result == TESKXML_RET_SUCCESS && number == expected);
    }
    xml_check_result(result);
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
    const std::string config = input.text();
    xml_open(config, input.rest);

    xml_check_result(xmllib_load_config());
    const std::vector<std::string> before = loaded();
    const int result = xmllib_load_policy("dusko");
    xml_check_result(result);
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
