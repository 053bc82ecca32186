/*
 * The result codes in words, and the record of the last failure. The record is a fixed array, so that telling about a
 * failure needs no memory and none is left behind by a closed library.
 */
#include "teskxml_error.h"

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

/* The sentence is composed in here, and the file's path is copied, as the file may be released by the next call. */
static char gszsentence[1024];
static char gszfile[TESKXML_MAX_PATH + 1];
static TESKXML_FAILURE gfailure = { TESKXML_RET_SUCCESS, gszfile, 0, 0, gszsentence };

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

/* A text of a file or a caller must not make a terminal do anything. */
static void teskxml_hidecontrols(char* ptext)
{
    for (; *ptext != '\0'; ptext++) {
        if (static_cast<unsigned char>(*ptext) < ' ' || *ptext == 0x7f) {
            *ptext = '?';
        } else if (*ptext == '\xc2' && (ptext[1] & 0xe0) == 0x80) {
            ptext[0] = ptext[1] = '?'; /* U+0080 to U+009F, which a terminal obeys as well */
        }
    }
}

int teskxml_vfail(int ncode, const char* pfile, int nline, int ncolumn, const char* pformat, va_list args)
{
    static constexpr char szmark[] = "...";
    int nlen = vsnprintf(gszsentence, sizeof(gszsentence), pformat, args);

    if (nlen < 0 || static_cast<size_t>(nlen) >= sizeof(gszsentence)) {
        memcpy(gszsentence + sizeof(gszsentence) - sizeof(szmark), szmark, sizeof(szmark));
    }
    teskxml_hidecontrols(gszsentence);
    snprintf(gszfile, sizeof(gszfile), "%s", pfile != nullptr ? pfile : "");
    gfailure.code = ncode;
    gfailure.line = nline;
    gfailure.column = nline > 0 ? ncolumn : 0;
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

TESKXML_FAILURE teskxml_lastfailure()
{
    return gfailure;
}

const char* teskxml_codename(int code)
{
    return code >= 0 && code < TESKXML_RET_NUM ? gcode[code].name : "unknown";
}

const char* teskxml_codetext(int code)
{
    return code >= 0 && code < TESKXML_RET_NUM ? gcode[code].text : "this is no code of the library";
}
