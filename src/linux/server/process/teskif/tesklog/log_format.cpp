/*
 * A printf of our own. The C library's may lock, allocate and read the locale, none of which a signal handler can
 * afford.
 */
#include "log_text.h"

#include <cstring>

static constexpr char ghexupper[] = "0123456789ABCDEF";

/*
 * The arguments, in a record so that they can be handed on by address.
 */
typedef struct {
    va_list pargs;
} LOG_ARGS;

/*
 * One conversion of a format.
 */
typedef struct {
    bool bleft, bzero, balternate, bplus, bblank;
    int nwidth;     /* 0: none */
    int nprecision; /* -1: none */
    int nlength;    /* -2: hh, -1: h, 0: none, 1 and more: as wide as long */
    char ctype;
} LOG_CONVERSION;

static_assert(sizeof(long) == sizeof(intmax_t) && sizeof(long) == sizeof(size_t) && sizeof(long) == sizeof(void*),
              "one argument type serves the lengths l, ll, j, z and t");

/*
 * Reads a width or a precision, a number or a star; limited to a line, as a larger one could only make us slow.
 */
static const char* log_parse_number(const char* pformat, LOG_ARGS* pargs, int* pnumber)
{
    int nnumber = 0;

    if (*pformat == '*') {
        nnumber = va_arg(pargs->pargs, int);
        pformat++;
    } else {
        for (; *pformat >= '0' && *pformat <= '9'; pformat++) {
            nnumber = nnumber < LOG_LINE_LEN ? nnumber * 10 + (*pformat - '0') : nnumber;
        }
    }
    nnumber = nnumber > LOG_LINE_LEN ? LOG_LINE_LEN : nnumber;
    *pnumber = nnumber < -LOG_LINE_LEN ? -LOG_LINE_LEN : nnumber;
    return pformat;
}

static const char* log_parse_flags(const char* pformat, LOG_CONVERSION* pconv)
{
    for (;; pformat++) {
        if (*pformat == '-') {
            pconv->bleft = true;
        } else if (*pformat == '0') {
            pconv->bzero = true;
        } else if (*pformat == '#') {
            pconv->balternate = true;
        } else if (*pformat == '+') {
            pconv->bplus = true;
        } else if (*pformat == ' ') {
            pconv->bblank = true;
        } else {
            break;
        }
    }
    return pformat;
}

/*
 * Reads a conversion.
 *   pformat  what follows the percent sign
 * Result: what follows the conversion.
 */
static const char* log_parse_conversion(const char* pformat, LOG_ARGS* pargs, LOG_CONVERSION* pconv)
{
    *pconv = {};
    pformat = log_parse_flags(pformat, pconv);
    pformat = log_parse_number(pformat, pargs, &pconv->nwidth);
    if (pconv->nwidth < 0) {
        pconv->bleft = true;
        pconv->nwidth = -pconv->nwidth;
    }
    pconv->nprecision = -1;
    if (*pformat == '.') {
        pformat = log_parse_number(pformat + 1, pargs, &pconv->nprecision);
    }
    for (; *pformat == 'h' || *pformat == 'l' || *pformat == 'j' || *pformat == 'z' || *pformat == 't'; pformat++) {
        pconv->nlength += *pformat == 'h' ? -1 : 1;
    }
    pconv->ctype = *pformat;
    return *pformat != '\0' ? pformat + 1 : pformat;
}

static void log_put_fill(LOG_TEXT* ptext, char cfill, int ncount)
{
    for (; ncount > 0 && !ptext->bcut; ncount--) {
        log_text_char(ptext, cfill);
    }
}

static void log_put_padded(LOG_TEXT* ptext, const LOG_CONVERSION* pconv, const char* pbytes, size_t nbytes)
{
    const int npad = pconv->nwidth - static_cast<int>(nbytes);

    log_put_fill(ptext, ' ', pconv->bleft ? 0 : npad);
    log_text_put(ptext, pbytes, nbytes);
    log_put_fill(ptext, ' ', pconv->bleft ? npad : 0);
}

/*
 * Adds a number: blanks, prefix (a sign or a base), zeros, digits, blanks.
 */
static void log_put_number(LOG_TEXT* ptext, const LOG_CONVERSION* pconv, const char* pprefix, uintmax_t nvalue,
                           unsigned nbase)
{
    char szdigits[24];
    char* pend = szdigits + sizeof(szdigits);
    char* pfirst = log_text_digits(pend, nvalue, nbase, pconv->ctype == 'X' ? ghexupper : gloghexlower);
    const int nprefix = static_cast<int>(strlen(pprefix));
    int ndigits = 0;
    int nzeros = 0;
    int npad = 0;

    if (nvalue == 0 && pconv->nprecision == 0) {
        pfirst = pend;
    }
    ndigits = static_cast<int>(pend - pfirst);
    nzeros = pconv->nprecision - ndigits;
    if (pconv->bzero && !pconv->bleft && pconv->nprecision < 0) {
        nzeros = pconv->nwidth - nprefix - ndigits;
    }
    if (pconv->balternate && nbase == 8 && nzeros <= 0 && (ndigits == 0 || *pfirst != '0')) {
        nzeros = 1;
    }
    npad = pconv->nwidth - nprefix - (nzeros > 0 ? nzeros : 0) - ndigits;

    log_put_fill(ptext, ' ', pconv->bleft ? 0 : npad);
    for (; *pprefix != '\0'; pprefix++) {
        log_text_char(ptext, *pprefix);
    }
    log_put_fill(ptext, '0', nzeros);
    log_text_raw(ptext, pfirst, static_cast<size_t>(ndigits));
    log_put_fill(ptext, ' ', pconv->bleft ? npad : 0);
}

static void log_put_signed(LOG_TEXT* ptext, const LOG_CONVERSION* pconv, LOG_ARGS* pargs)
{
    intmax_t nvalue = pconv->nlength > 0 ? va_arg(pargs->pargs, long) : va_arg(pargs->pargs, int);
    const char* pprefix = "";

    if (pconv->nlength == -1) {
        nvalue = static_cast<short>(nvalue);
    } else if (pconv->nlength < -1) {
        nvalue = ((nvalue & 0xff) ^ 0x80) - 0x80; /* the sign of its eighth bit */
    }
    if (nvalue < 0) {
        pprefix = "-";
    } else if (pconv->bplus) {
        pprefix = "+";
    } else if (pconv->bblank) {
        pprefix = " ";
    }
    log_put_number(ptext, pconv, pprefix,
                   nvalue < 0 ? 0 - static_cast<uintmax_t>(nvalue) : static_cast<uintmax_t>(nvalue), 10);
}

static void log_put_unsigned(LOG_TEXT* ptext, const LOG_CONVERSION* pconv, LOG_ARGS* pargs)
{
    uintmax_t nvalue = pconv->nlength > 0 ? va_arg(pargs->pargs, unsigned long) : va_arg(pargs->pargs, unsigned);
    const unsigned nbase = pconv->ctype == 'u' ? 10 : pconv->ctype == 'o' ? 8 : 16;
    const char* pprefix = "";

    if (pconv->nlength == -1) {
        nvalue = static_cast<unsigned short>(nvalue);
    } else if (pconv->nlength < -1) {
        nvalue = static_cast<unsigned char>(nvalue);
    }
    if (pconv->balternate && nbase == 16 && nvalue != 0) {
        pprefix = pconv->ctype == 'X' ? "0X" : "0x";
    }
    log_put_number(ptext, pconv, pprefix, nvalue, nbase);
}

static void log_put_pointer(LOG_TEXT* ptext, const LOG_CONVERSION* pconv, LOG_ARGS* pargs)
{
    const void* pvalue = va_arg(pargs->pargs, void*);

    if (pvalue == nullptr) {
        log_put_padded(ptext, pconv, "(nil)", 5);
    } else {
        log_put_number(ptext, pconv, "0x", reinterpret_cast<uintptr_t>(pvalue), 16);
    }
}

/*
 * Adds a string, reading no more of it than the precision allows and the text can hold: it may be endless.
 */
static void log_put_string(LOG_TEXT* ptext, const LOG_CONVERSION* pconv, LOG_ARGS* pargs)
{
    const char* pvalue = va_arg(pargs->pargs, const char*);
    size_t nmax = ptext->nlimit - ptext->nlen + 1;

    /* A string that has the width is not to be filled up just because the text has no room for all of it. */
    if (static_cast<size_t>(pconv->nwidth) > nmax) {
        nmax = static_cast<size_t>(pconv->nwidth);
    }
    if (pvalue == nullptr) {
        log_put_padded(ptext, pconv, "(null)", 6);
    } else {
        if (pconv->nprecision >= 0 && static_cast<size_t>(pconv->nprecision) < nmax) {
            nmax = static_cast<size_t>(pconv->nprecision);
        }
        log_put_padded(ptext, pconv, pvalue, strnlen(pvalue, nmax));
    }
}

/*
 * Adds the value of one conversion.
 * Result: false if the conversion is not known; no argument was touched then.
 */
static bool log_put_conversion(LOG_TEXT* ptext, const LOG_CONVERSION* pconv, LOG_ARGS* pargs)
{
    bool bknown = true;
    char cvalue = '\0';

    switch (pconv->ctype) {
    case 'd':
    case 'i':
        log_put_signed(ptext, pconv, pargs);
        break;
    case 'u':
    case 'x':
    case 'X':
    case 'o':
        log_put_unsigned(ptext, pconv, pargs);
        break;
    case 's':
        log_put_string(ptext, pconv, pargs);
        break;
    case 'p':
        log_put_pointer(ptext, pconv, pargs);
        break;
    case 'c':
        cvalue = static_cast<char>(va_arg(pargs->pargs, int));
        log_put_padded(ptext, pconv, &cvalue, 1);
        break;
    case '%':
        log_text_char(ptext, '%');
        break;
    default:
        bknown = false;
        break;
    }
    return bknown;
}

void log_text_vformat(LOG_TEXT* ptext, const char* pformat, va_list pargs)
{
    LOG_ARGS args = {};
    LOG_CONVERSION conv = {};
    const char* pnext = nullptr;
    size_t nliteral = 0;

    va_copy(args.pargs, pargs);
    while (*pformat != '\0' && !ptext->bcut) {
        nliteral = static_cast<size_t>(strchrnul(pformat, '%') - pformat);
        log_text_put(ptext, pformat, nliteral);
        pformat += nliteral;
        if (*pformat == '%') {
            pnext = log_parse_conversion(pformat + 1, &args, &conv);
            if (!log_put_conversion(ptext, &conv, &args)) {
                log_text_put(ptext, pformat, strlen(pformat));
                break;
            }
            pformat = pnext;
        }
    }
    va_end(args.pargs);
}

void log_text_format(LOG_TEXT* ptext, const char* pformat, ...)
{
    va_list pargs;

    va_start(pargs, pformat);
    log_text_vformat(ptext, pformat, pargs);
    va_end(pargs);
}
