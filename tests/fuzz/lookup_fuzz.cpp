// A look-up: the input is the kind as a digit, the capacity in two bytes, and the key. What is loaded stays the same.
#include "xml_memory.h"

#include <map>
#include <memory>
#include <vector>

static const std::map<std::string, std::string> VALUES = {
    { "/root/all/path", "/opt/cluster" }, { "/root/all/path2", "4 5" },         { "/root/all/none", "" },
    { "/root/all/much", "2147483648" },   { "/root/dusko/elog/rotate", "+05" },
};

static bool load()
{
    xml_open("<root><all><path>/opt/cluster</path><path2>4 5</path2><none/><much>2147483648</much></all></root>",
             "<root><dusko><elog><rotate> +05 </rotate></elog></dusko></root>");
    return xmllib_load_config() == TESKXML_RET_SUCCESS && xmllib_load_policy("dusko") == TESKXML_RET_SUCCESS;
}

// The bytes that a look-up has to leave in a destination that held "?" only.
static std::string expected(const std::string& key, int kind, int capacity)
{
    const int five = 5;
    const auto found = VALUES.find(key);
    std::string bytes;
    if (found != VALUES.end() && kind == TESKXML_TEXT && static_cast<int>(found->second.size()) < capacity) {
        bytes = found->second + '\0';
    } else if (found != VALUES.end() && kind == TESKXML_INT && found->second == "+05" && capacity >= 4) {
        bytes.assign(reinterpret_cast<const char*>(&five), sizeof(five));
    }
    bytes.resize(capacity > 0 ? static_cast<size_t>(capacity) : 1, '?');
    return bytes;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool ready = load();
    Input input{ { reinterpret_cast<const char*>(data), size } };
    const int kind = input.number<int8_t>() - '0';
    const int capacity = input.number<int16_t>();
    const std::string key = input.text();
    const std::string want = expected(key, kind, capacity);
    FUZZ_CHECK(ready);

    // Key and destination in blocks of their exact size, where a byte too many is noticed.
    const std::unique_ptr<char, void (*)(void*)> exact(strdup(key.c_str()), free);
    std::vector<char> got(want.size(), '?');
    int given = capacity;
    const int result = xmllib_get_value(exact.get(), kind, got.data(), &given);
    xml_check_result(result);
    FUZZ_CHECK(std::string(got.begin(), got.end()) == want && given == capacity);
    FUZZ_CHECK((result == TESKXML_RET_SUCCESS) == (want.find_first_not_of('?') != std::string::npos));
    return 0;
}
