/*
 * Bounded text: room, escaping and the mark of a cut. Formats are log_format.cpp's.
 */
#include "log_text.h"

#include <cstdint>
#include <cstring>

static constexpr char gcutmark[] = "...[cut]";
static constexpr size_t gtailroom = sizeof(gcutmark) - 1 + 8 + 1; /* mark, end and NUL */

void log_text_open(LOG_TEXT* ptext, char* parray, size_t nsize, int nescape)
{
    ptext->ptext = parray;
    ptext->nlen = 0;
    ptext->nlimit = nsize - gtailroom;
    ptext->nescape = nescape;
    ptext->bcut = false;
}

void log_text_raw(LOG_TEXT* ptext, const char* pbytes, size_t nbytes)
{
    if (ptext->bcut || nbytes > ptext->nlimit - ptext->nlen) {
        ptext->bcut = true;
    } else {
        memcpy(ptext->ptext + ptext->nlen, pbytes, nbytes);
        ptext->nlen += nbytes;
    }
}

/*
 * Length of the well-formed UTF-8 sequence of two or more bytes at the start of pbytes; 0 if there is none.
 */
static size_t log_utf8_length(const unsigned char* pbytes, size_t nbytes)
{
    static constexpr struct {
        unsigned char nfirst, nlast, nlow, nhigh; /* range of the first byte and of the second */
        unsigned char nlength;
    } gforms[] = {
        { 0xc2, 0xdf, 0x80, 0xbf, 2 }, { 0xe0, 0xe0, 0xa0, 0xbf, 3 }, { 0xe1, 0xec, 0x80, 0xbf, 3 },
        { 0xed, 0xed, 0x80, 0x9f, 3 }, { 0xee, 0xef, 0x80, 0xbf, 3 }, { 0xf0, 0xf0, 0x90, 0xbf, 4 },
        { 0xf1, 0xf3, 0x80, 0xbf, 4 }, { 0xf4, 0xf4, 0x80, 0x8f, 4 },
    };
    size_t nlength = 0;
    size_t ninx = 0;

    for (const auto& form : gforms) {
        if (pbytes[0] >= form.nfirst && pbytes[0] <= form.nlast && nbytes >= form.nlength && pbytes[1] >= form.nlow &&
            pbytes[1] <= form.nhigh) {
            nlength = form.nlength;
        }
    }
    for (ninx = 2; ninx < nlength; ninx++) {
        if ((pbytes[ninx] & 0xc0) != 0x80) {
            nlength = 0;
        }
    }
    return nlength;
}

/*
 * Number of the control character of several bytes at the start of pbytes; 0 if there is none. U+0080 to U+009F are
 * obeyed by terminals; U+2028 and U+2029 end a line for many programs.
 *   nlength  length of the sequence, as above
 */
static unsigned log_utf8_control(const unsigned char* pbytes, size_t nlength)
{
    unsigned ncontrol = 0;

    if (nlength == 2 && pbytes[0] == 0xc2 && pbytes[1] < 0xa0) {
        ncontrol = pbytes[1];
    } else if (nlength == 3 && pbytes[0] == 0xe2 && pbytes[1] == 0x80 && (pbytes[2] == 0xa8 || pbytes[2] == 0xa9)) {
        ncontrol = 0x2000U | (pbytes[2] & 0x3fU);
    }
    return ncontrol;
}

/*
 * Adds the byte at the start of pbytes, which is not a plain one, or the character that begins with it. In a line, a
 * control character of several bytes is escaped byte by byte: without the first one, the others are none.
 * Result: bytes consumed, at least 1. Out of line, so that a plain text does not pay for its variables.
 */
static __attribute__((noinline)) size_t log_text_escape(LOG_TEXT* ptext, const unsigned char* pbytes, size_t nbytes)
{
    static constexpr char gnamed[] = "\n\r\t\\\"";
    static constexpr char gnames[] = "nrt\\\"";
    static constexpr unsigned greplacement = 0xfffd;
    const bool bjson = ptext->nescape == LOG_ESC_JSON;
    const char* pnamed = pbytes[0] != '\0' ? strchr(gnamed, pbytes[0]) : nullptr;
    size_t nused = log_utf8_length(pbytes, nbytes);
    const unsigned ncontrol = log_utf8_control(pbytes, nused);
    unsigned nvalue = pbytes[0];
    char szescape[8] = "\\";
    size_t nescape = 2;
    int nshift = bjson ? 12 : 4;

    if (nused > 0 && ncontrol == 0) {
        log_text_raw(ptext, reinterpret_cast<const char*>(pbytes), nused);
        goto monp_exit_func;
    }
    if (bjson && ncontrol != 0) {
        nvalue = ncontrol;
    } else {
        nvalue = bjson && nvalue >= 0x80 ? greplacement : nvalue;
        nused = 1;
    }
    szescape[1] = bjson ? 'u' : 'x';
    if (pnamed != nullptr) {
        szescape[1] = gnames[pnamed - gnamed];
        nshift = -1;
    }
    for (; nshift >= 0; nshift -= 4) {
        szescape[nescape++] = gloghexlower[(nvalue >> nshift) & 0x0f];
    }
    log_text_raw(ptext, szescape, nescape);

monp_exit_func:
    return nused;
}

static inline bool log_isplain(unsigned char nbyte, int nescape)
{
    return nescape == LOG_ESC_NONE ||
           (nbyte >= 0x20 && nbyte < 0x7f && nbyte != '\\' && (nbyte != '"' || nescape != LOG_ESC_JSON));
}

/*
 * Tells of eight bytes at once whether all are plain. A byte below n is one in which subtracting n borrows from a high
 * bit that was not set; a byte equal to n is one that is below 1 after an exclusive or with n.
 */
static inline bool log_areplain(uint64_t nbytes, int nescape)
{
    constexpr uint64_t gones = 0x0101010101010101;
    constexpr uint64_t ghighs = 0x8080808080808080;
    const uint64_t nbackslash = nbytes ^ (gones * '\\');
    const uint64_t nquote = nbytes ^ (gones * '"');
    const uint64_t ndelete = nbytes ^ (gones * 0x7f);
    uint64_t nspecial = nbytes | ((nbytes - gones * 0x20) & ~nbytes) | ((nbackslash - gones) & ~nbackslash) |
                        ((ndelete - gones) & ~ndelete);

    if (nescape == LOG_ESC_JSON) {
        nspecial |= (nquote - gones) & ~nquote;
    }
    return nescape == LOG_ESC_NONE || (nspecial & ghighs) == 0;
}

/*
 * Where to cut a text, at nend at the latest, so that no character is torn. What is not UTF-8 is cut anywhere.
 */
static size_t log_utf8_floor(const unsigned char* pbytes, size_t nend)
{
    const size_t nfirst = nend > 3 ? nend - 3 : 0;

    while (nend > nfirst && (pbytes[nend] & 0xc0) == 0x80) {
        nend--;
    }
    return nend;
}

/*
 * Adds the plain bytes that pbytes begins with, as many as there is room for.
 * Result: bytes consumed.
 */
static size_t log_text_plain(LOG_TEXT* ptext, const unsigned char* pbytes, size_t nbytes)
{
    const size_t nroom = ptext->nlimit - ptext->nlen;
    const size_t nmax = nbytes < nroom ? nbytes : nroom;
    const int nescape = ptext->nescape;
    char* ptarget = ptext->ptext + ptext->nlen;
    uint64_t neight = 0;
    size_t ninx = 0;

    for (; nmax - ninx >= sizeof(neight); ninx += sizeof(neight)) {
        memcpy(&neight, pbytes + ninx, sizeof(neight));
        if (!log_areplain(neight, nescape)) {
            break;
        }
        memcpy(ptarget + ninx, &neight, sizeof(neight));
    }
    while (ninx < nmax && log_isplain(pbytes[ninx], nescape)) {
        ptarget[ninx] = static_cast<char>(pbytes[ninx]);
        ninx++;
    }
    ptext->bcut = ninx == nroom && ninx < nbytes;
    if (ptext->bcut && nescape == LOG_ESC_NONE) {
        ninx = log_utf8_floor(pbytes, ninx);
    }
    ptext->nlen += ninx;
    return ninx;
}

void log_text_put(LOG_TEXT* ptext, const char* pbytes, size_t nbytes)
{
    const unsigned char* psource = reinterpret_cast<const unsigned char*>(pbytes);
    size_t ninx = 0;

    while (ninx < nbytes && !ptext->bcut) {
        ninx += log_text_plain(ptext, psource + ninx, nbytes - ninx);
        if (ninx < nbytes && !ptext->bcut) {
            ninx += log_text_escape(ptext, psource + ninx, nbytes - ninx);
        }
    }
}

char* log_text_digits(char* pend, uintmax_t nvalue, unsigned nbase, const char* pdigits)
{
    const int nshift = nbase == 16 ? 4 : 3;

    if (nbase == 10) { /* apart, as a division by a constant is many times faster */
        do {
            *--pend = pdigits[nvalue % 10];
            nvalue /= 10;
        } while (nvalue != 0);
    } else {
        do {
            *--pend = pdigits[nvalue & (nbase - 1)];
            nvalue >>= nshift;
        } while (nvalue != 0);
    }
    return pend;
}

void log_text_number(LOG_TEXT* ptext, unsigned long nvalue, int ndigits)
{
    char szdigits[24];
    char* pend = szdigits + sizeof(szdigits);
    char* pfirst = log_text_digits(pend, nvalue, 10, gloghexlower);

    while (pend - pfirst < ndigits) {
        *--pfirst = '0';
    }
    log_text_raw(ptext, pfirst, static_cast<size_t>(pend - pfirst));
}

void log_text_close(LOG_TEXT* ptext, const char* pend)
{
    const size_t nend = strlen(pend);

    if (ptext->bcut) {
        memcpy(ptext->ptext + ptext->nlen, gcutmark, sizeof(gcutmark) - 1);
        ptext->nlen += sizeof(gcutmark) - 1;
    }
    memcpy(ptext->ptext + ptext->nlen, pend, nend + 1);
    ptext->nlen += nend;
}
