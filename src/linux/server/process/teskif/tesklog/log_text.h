/*
 * Text in a bounded array: what a record is put together in. Nothing here allocates, locks or looks at the locale, so
 * all of it may run in a signal handler and in a forked child.
 */
#ifndef LOG_TEXT_H
#define LOG_TEXT_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

/*
 * Sizes of character arrays in bytes, the terminating NUL included.
 */
enum __log_length_value__ {
    LOG_LINE_LEN = 4096, /* a record in a file; its text ends 17 bytes before, for a mark, a line end and a NUL */
    LOG_PATH_LEN = 1024  /* a path, short enough for three of them on a signal handler's stack */
};

/*
 * How a value is made harmless.
 */
enum __log_escape_value__ {
    LOG_ESC_NONE = 0, /* as it is: paths, and texts that are escaped later */
    LOG_ESC_LINE = 1, /* \n \r \t \\, and \xNN for every other control character, for U+2028 and U+2029, which end a
                         line, too, and for what is not UTF-8 */
    LOG_ESC_JSON = 2  /* as the inside of a JSON string; what is not UTF-8 becomes U+FFFD */
};

/*
 * A text under construction. Once something did not fit, bcut is set and nothing is added any more, so that the end of
 * the text is where the cut is.
 */
typedef struct {
    char* ptext;   /* the array; a NUL is written by log_text_close only */
    size_t nlen;   /* bytes in use */
    size_t nlimit; /* bytes that may be used by values; the array has room for a mark, a line end and a NUL behind */
    int nescape;   /* __log_escape_value__ */
    bool bcut;
} LOG_TEXT;

/*
 * Starts an empty text.
 *   parray   array to fill
 *   nsize    its size in bytes, at least 32
 *   nescape  __log_escape_value__ for all that is put
 */
void log_text_open(LOG_TEXT* ptext, char* parray, size_t nsize, int nescape);

/*
 * Adds one byte as it is.
 */
static inline void log_text_char(LOG_TEXT* ptext, char cbyte)
{
    if (ptext->bcut || ptext->nlen >= ptext->nlimit) {
        ptext->bcut = true;
    } else {
        ptext->ptext[ptext->nlen++] = cbyte;
    }
}

/*
 * Adds bytes as they are, all of them or, if there is no room, none.
 */
void log_text_raw(LOG_TEXT* ptext, const char* pbytes, size_t nbytes);

/*
 * Adds bytes, each escaped as the text's escape says; as many as fit, never a part of an escape or of a character.
 */
void log_text_put(LOG_TEXT* ptext, const char* pbytes, size_t nbytes);

/*
 * Adds a number in decimal, filled up with zeros to at least ndigits.
 */
void log_text_number(LOG_TEXT* ptext, unsigned long nvalue, int ndigits);

/*
 * Digits for the operation below and for escapes.
 */
inline constexpr char gloghexlower[] = "0123456789abcdef";

/*
 * Writes the digits of a number to the left of pend, which needs room for 24 of them.
 *   nbase    8, 10 or 16
 *   pdigits  the digits of the base, from 0
 * Result: the first of them.
 */
char* log_text_digits(char* pend, uintmax_t nvalue, unsigned nbase, const char* pdigits);

/*
 * Adds a formatted text, its literal part and its values escaped alike.
 *   pformat  conversions d i u x X o c s p %, with flags - 0 # + and blank, width and precision (also *), and the
 *            lengths hh h l ll j z t. A null string prints (null). From any other conversion on the format is put
 *            literally and no further argument is touched, as its size would be a guess
 */
void log_text_vformat(LOG_TEXT* ptext, const char* pformat, va_list pargs);
void log_text_format(LOG_TEXT* ptext, const char* pformat, ...) __attribute__((format(printf, 2, 3)));

/*
 * Ends a text: adds the mark "...[cut]" if it was cut, the given end, and a NUL.
 *   pend  "" or a line end; at most 8 bytes
 */
void log_text_close(LOG_TEXT* ptext, const char* pend);

#endif
