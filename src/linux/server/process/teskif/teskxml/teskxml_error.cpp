/*
 * The result codes in words, and the record of the last failure. The record is a fixed array, so that telling about a
 * failure needs no memory and none is left behind by a closed library.
 */
#include "teskxml_error.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>

typedef struct {
    int code;
    const char* name;
    const char* text;
} TESKXML_CODE;

static constexpr TESKXML_CODE gcode[] = {
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

static constexpr bool teskxml_rowsagree()
{
    bool bagree = std::size(gcode) == TESKXML_RET_NUM;
    int nrow = 0;

    for (const TESKXML_CODE& row : gcode) {
        bagree = bagree && row.code == nrow;
        nrow++;
    }
    return bagree;
}
static_assert(teskxml_rowsagree(), "one row for each result code, in their order");

static char gszerror[TESKXML_MAX_PATH + 1024];

TESKXML_SHOWN teskxml_shown(const char* ptext)
{
    static constexpr char szmark[] = "...";
    TESKXML_SHOWN shown = {};
    size_t nlen = strnlen(ptext, sizeof(shown.text));

    if (nlen == sizeof(shown.text)) {
        nlen -= sizeof(szmark);
        while ((ptext[nlen] & 0xc0) == 0x80 && nlen > 0) { /* not within a character */
            nlen--;
        }
        memcpy(shown.text + nlen, szmark, sizeof(szmark));
    }
    memcpy(shown.text, ptext, nlen);
    return shown;
}

/* Adds to the record behind the first nlen bytes; result: the length then, never beyond the record's last byte. */
static size_t teskxml_append(size_t nlen, const char* pformat, va_list args) __attribute__((format(printf, 2, 0)));

static size_t teskxml_append(size_t nlen, const char* pformat, va_list args)
{
    int nadd = vsnprintf(gszerror + nlen, sizeof(gszerror) - nlen, pformat, args);

    if (nadd < 0 || static_cast<size_t>(nadd) >= sizeof(gszerror) - nlen) {
        memcpy(gszerror + sizeof(gszerror) - sizeof("..."), "...", sizeof("..."));
        nlen = sizeof(gszerror) - 1;
    } else {
        nlen += static_cast<size_t>(nadd);
    }
    return nlen;
}

static size_t teskxml_appendf(size_t nlen, const char* pformat, ...) __attribute__((format(printf, 2, 3)));

static size_t teskxml_appendf(size_t nlen, const char* pformat, ...)
{
    va_list args;

    va_start(args, pformat);
    nlen = teskxml_append(nlen, pformat, args);
    va_end(args);
    return nlen;
}

int teskxml_vfail(int ncode, const char* pfile, int nline, int ncolumn, const char* pformat, va_list args)
{
    int nerrno = errno;
    size_t nlen = 0;

    if (pfile != nullptr) {
        nlen = teskxml_appendf(nlen, "%s:", pfile);
        if (nline > 0) {
            nlen = teskxml_appendf(nlen, "%d:%d:", nline, ncolumn);
        }
        nlen = teskxml_appendf(nlen, " ");
    }
    errno = nerrno;
    teskxml_append(nlen, pformat, args);

    for (char* pchar = gszerror; *pchar != '\0'; pchar++) {
        if (static_cast<unsigned char>(*pchar) < ' ' || *pchar == 0x7f) {
            *pchar = '?';
        } else if (*pchar == '\xc2' && (pchar[1] & 0xe0) == 0x80) {
            pchar[0] = pchar[1] = '?'; /* U+0080 to U+009F, which a terminal obeys as well */
        }
    }
    return ncode;
}

int teskxml_fail(int ncode, const char* pfile, int nline, int ncolumn, const char* pformat, ...)
{
    va_list args;

    va_start(args, pformat);
    teskxml_vfail(ncode, pfile, nline, ncolumn, pformat, args);
    va_end(args);
    return ncode;
}

const char* teskxml_lasterror(void)
{
    return gszerror;
}

const char* teskxml_codename(int code)
{
    return code >= 0 && code < TESKXML_RET_NUM ? gcode[code].name : "unknown";
}

const char* teskxml_codetext(int code)
{
    return code >= 0 && code < TESKXML_RET_NUM ? gcode[code].text : "this is no code of the library";
}
