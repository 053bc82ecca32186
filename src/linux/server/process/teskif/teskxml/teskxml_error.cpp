/*
 * The result codes in words, and the record of the last failure. The record is a fixed array, so that telling about a
 * failure needs no memory and none is left behind by a closed library.
 */
#include "teskxml_error.h"

#include "tesk_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

struct Code {
    int code;
    const char* name;
    const char* text;
};

constexpr Code CODES[] = {
    { TESKXML_RET_SUCCESS, "TESKXML_RET_SUCCESS", "success" },
    { TESKXML_RET_FAIL_ARGUMENT, "TESKXML_RET_FAIL_ARGUMENT", "an argument is missing or unusable" },
    { TESKXML_RET_FAIL_NOTOPEN, "TESKXML_RET_FAIL_NOTOPEN", "the library is not open" },
    { TESKXML_RET_FAIL_ALREADYOPEN, "TESKXML_RET_FAIL_ALREADYOPEN", "the library is open already" },
    { TESKXML_RET_FAIL_HOME, "TESKXML_RET_FAIL_HOME", "the home directory is no absolute path that can be used" },
    { TESKXML_RET_FAIL_NAME, "TESKXML_RET_FAIL_NAME", "this is no name of a policy section" },
    { TESKXML_RET_FAIL_NOTLOADED, "TESKXML_RET_FAIL_NOTLOADED", "this is not loaded" },
    { TESKXML_RET_FAIL_NOTFOUND, "TESKXML_RET_FAIL_NOTFOUND", "the file does not exist" },
    { TESKXML_RET_FAIL_FILETYPE, "TESKXML_RET_FAIL_FILETYPE", "this is no regular file, or reached by a link" },
    { TESKXML_RET_FAIL_UNTRUSTED, "TESKXML_RET_FAIL_UNTRUSTED", "others than root could have written the file" },
    { TESKXML_RET_FAIL_READ, "TESKXML_RET_FAIL_READ", "the file cannot be read" },
    { TESKXML_RET_FAIL_SYNTAX, "TESKXML_RET_FAIL_SYNTAX", "the file is not well-formed XML in UTF-8" },
    { TESKXML_RET_FAIL_FORBIDDEN, "TESKXML_RET_FAIL_FORBIDDEN", "the file holds what a policy must not hold" },
    { TESKXML_RET_FAIL_SCOPE, "TESKXML_RET_FAIL_SCOPE",
      "the file holds a key that does not belong there, or lacks the section" },
    { TESKXML_RET_FAIL_DUPLICATE, "TESKXML_RET_FAIL_DUPLICATE", "a key is given twice" },
    { TESKXML_RET_FAIL_LIMIT, "TESKXML_RET_FAIL_LIMIT", "a limit of the library is exceeded" },
    { TESKXML_RET_FAIL_NOKEY, "TESKXML_RET_FAIL_NOKEY", "there is no such key" },
    { TESKXML_RET_FAIL_NOVALUE, "TESKXML_RET_FAIL_NOVALUE", "the key has no value, but further keys below it" },
    { TESKXML_RET_FAIL_KIND, "TESKXML_RET_FAIL_KIND", "this is no kind of a value" },
    { TESKXML_RET_FAIL_NOTNUMBER, "TESKXML_RET_FAIL_NOTNUMBER", "the value is no whole decimal number" },
    { TESKXML_RET_FAIL_RANGE, "TESKXML_RET_FAIL_RANGE", "the number is out of range" },
    { TESKXML_RET_FAIL_CAPACITY, "TESKXML_RET_FAIL_CAPACITY", "the value does not fit its destination" },
    { TESKXML_RET_FAIL_MEMORY, "TESKXML_RET_FAIL_MEMORY", "out of memory" },
};

static_assert(std::size(CODES) == TESKXML_RET_NUM &&
                  std::ranges::all_of(CODES, [](const Code& row) { return &row == &CODES[row.code]; }),
              "one row for each result code, in their order");

constexpr std::string_view CUT = "...";

/* The sentence is composed in here, and the file's path is copied, as the file may be released by the next call. */
constinit std::array<char, 1024> gsentence = {};
constinit std::array<char, TESKXML_MAX_PATH + 1> gfile = {};
constinit TESKXML_FAILURE glast = { TESKXML_RET_SUCCESS, gfile.data(), 0, 0, gsentence.data() };

bool is_code(int code)
{
    return code >= 0 && code < TESKXML_RET_NUM;
}

} // namespace

namespace teskxml {

Shown shown(const char* text)
{
    Shown result = {};
    size_t length = strnlen(text, sizeof(result.text));

    if (length == sizeof(result.text)) {
        length -= CUT.size() + 1;
        while ((text[length] & 0xc0) == 0x80 && length > 0) { /* not within a character */
            length--;
        }
        std::ranges::copy(CUT, result.text + length);
    }
    std::copy_n(text, length, result.text);
    return result;
}

int vfail(int code, const Place& place, const char* format, va_list arguments)
{
    const int length = std::vsnprintf(gsentence.data(), gsentence.size(), format, arguments);
    const size_t size = length < 0 ? 0 : std::min(static_cast<size_t>(length), gsentence.size() - 1);

    if (length < 0 || static_cast<size_t>(length) > size) {
        std::ranges::copy(CUT, gsentence.end() - 1 - CUT.size());
    }
    tesk::hide_controls(gsentence.data(), size);
    std::snprintf(gfile.data(), gfile.size(), "%s", place.file != nullptr ? place.file : "");
    glast.code = code;
    glast.line = place.line;
    glast.column = place.line > 0 ? place.column : 0;
    return code;
}

int fail(int code, const Place& place, const char* format, ...)
{
    va_list arguments;

    va_start(arguments, format);
    vfail(code, place, format, arguments);
    va_end(arguments);
    return code;
}

} // namespace teskxml

TESKXML_FAILURE teskxml_lastfailure()
{
    return glast;
}

const char* teskxml_codename(int code)
{
    return is_code(code) ? CODES[code].name : "unknown";
}

const char* teskxml_codetext(int code)
{
    return is_code(code) ? CODES[code].text : "this is no code of the library";
}
