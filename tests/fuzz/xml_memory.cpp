#include "xml_memory.h"

#include "teskxml_file.h"

#include <algorithm>

static std::string files[2]; // configuration, section

void xml_open(std::string_view config, std::string_view section)
{
    setenv("TESK_HOME", "/fuzz", 1);
    files[0] = config;
    files[1] = section;
    FUZZ_CHECK(xmllib_init("fuzz") == TESKXML_RET_SUCCESS);
}

void xml_check_result(int result)
{
    const std::string_view text = teskxml_lasterror();
    FUZZ_CHECK(result >= TESKXML_RET_SUCCESS && result < TESKXML_RET_FAIL_MEMORY);
    FUZZ_CHECK(result == TESKXML_RET_SUCCESS || (!text.empty() && text.size() < 2048));
    FUZZ_CHECK(std::none_of(text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7f; }));
    const auto is_c1 = [](char c, char next) { return c == '\xc2' && (next & 0xe0) == 0x80; };
    FUZZ_CHECK(std::adjacent_find(text.begin(), text.end(), is_c1) == text.end());
}

int teskxml_file_read(const char* pfile, size_t, char** ppdata, size_t* psize)
{
    const std::string& content = files[strcmp(pfile, "/fuzz/etc/config.xml") == 0 ? 0 : 1];
    FUZZ_CHECK(&content == files || strcmp(pfile, "/fuzz/etc/policy/dusko.xml") == 0);
    *psize = content.size();
    *ppdata = static_cast<char*>(malloc(content.size() + (content.empty() ? 1 : 0)));
    memcpy(*ppdata, content.data(), content.size());
    return TESKXML_RET_SUCCESS;
}
