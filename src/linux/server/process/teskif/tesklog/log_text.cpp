/*
 * Bounded text: room, escaping and the mark of a cut. Formats are log_format.cpp's.
 */
#include "log_text.h"

#include "tesk_control.h"

#include <algorithm>
#include <cstring>

namespace tesklog {

static constexpr std::string_view CUT_MARK = "...[cut]";
static constexpr size_t TAIL_ROOM = CUT_MARK.size() + 8 + 1; /* mark, end and NUL */

Text::Text(char* array, size_t size, Escape escape) : array_(array), limit_(size - TAIL_ROOM), escape_(escape) {}

void Text::raw(std::string_view bytes)
{
    if (cut_ || bytes.size() > room()) {
        cut_ = true;
    } else {
        memcpy(array_ + length_, bytes.data(), bytes.size());
        length_ += bytes.size();
    }
}

static bool is_continuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80;
}

/*
 * Length of the well-formed UTF-8 sequence of two or more bytes at the start of a text; 0 if there is none.
 */
static size_t utf8_length(std::string_view bytes)
{
    static constexpr struct {
        unsigned char first, last, low, high; /* range of the first byte and of the second */
        unsigned char length;
    } FORMS[] = {
        { 0xc2, 0xdf, 0x80, 0xbf, 2 }, { 0xe0, 0xe0, 0xa0, 0xbf, 3 }, { 0xe1, 0xec, 0x80, 0xbf, 3 },
        { 0xed, 0xed, 0x80, 0x9f, 3 }, { 0xee, 0xef, 0x80, 0xbf, 3 }, { 0xf0, 0xf0, 0x90, 0xbf, 4 },
        { 0xf1, 0xf3, 0x80, 0xbf, 4 }, { 0xf4, 0xf4, 0x80, 0x8f, 4 },
    };
    const auto one = static_cast<unsigned char>(bytes[0]);
    const auto two = static_cast<unsigned char>(bytes.size() > 1 ? bytes[1] : '\0');
    const auto* form = std::find_if(std::begin(FORMS), std::end(FORMS), [one, two](const auto& row) {
        return one >= row.first && one <= row.last && two >= row.low && two <= row.high;
    });
    const bool whole = form != std::end(FORMS) && bytes.size() >= form->length &&
                       std::all_of(bytes.begin() + 2, bytes.begin() + form->length, is_continuation);

    return whole ? form->length : 0;
}

/*
 * Adds the byte at the start of a text, which is not a plain one, or the character that begins with it. In a line, a
 * control character of several bytes is escaped byte by byte: without the first one, the others are none.
 * Result: bytes consumed, at least 1. Out of line, so that a plain text does not pay for its variables.
 */
__attribute__((noinline)) size_t Text::escaped(std::string_view bytes)
{
    static constexpr std::string_view NAMED = "\n\r\t\\\"";
    static constexpr std::string_view NAMES = "nrt\\\"";
    static constexpr unsigned REPLACEMENT = 0xfffd;
    const bool json = escape_ == Escape::json;
    const size_t named = NAMED.find(bytes[0]);
    const size_t whole = utf8_length(bytes);
    const tesk::Control control = tesk::control_at(bytes);

    if (whole > 0 && control.length == 0) {
        raw(bytes.substr(0, whole));
        return whole;
    }
    unsigned value = static_cast<unsigned char>(bytes[0]);
    if (json && control.length > 0) {
        value = control.value;
    } else if (json && value >= 0x80) {
        value = REPLACEMENT;
    }
    char escape[8] = { '\\', json ? 'u' : 'x' };
    size_t length = 2;
    if (named != std::string_view::npos) {
        escape[1] = NAMES[named];
    } else {
        for (int shift = json ? 12 : 4; shift >= 0; shift -= 4) {
            escape[length++] = HEX_LOWER[(value >> static_cast<unsigned>(shift)) & 0x0fU];
        }
    }
    raw({ escape, length });
    return json && control.length > 0 ? control.length : 1;
}

static inline bool is_plain(unsigned char byte, Escape escape)
{
    return escape == Escape::none ||
           (byte >= 0x20 && byte < 0x7f && byte != '\\' && (byte != '"' || escape != Escape::json));
}

/*
 * Tells of eight bytes at once whether all are plain. A byte below n is one in which subtracting n borrows from a high
 * bit that was not set; a byte equal to n is one that is below 1 after an exclusive or with n.
 */
static inline bool are_plain(uint64_t bytes, Escape escape)
{
    constexpr uint64_t ONES = 0x0101010101010101;
    constexpr uint64_t HIGHS = 0x8080808080808080;
    const uint64_t backslash = bytes ^ (ONES * '\\');
    const uint64_t quote = bytes ^ (ONES * '"');
    const uint64_t del = bytes ^ (ONES * 0x7f);
    uint64_t special =
        bytes | ((bytes - ONES * 0x20) & ~bytes) | ((backslash - ONES) & ~backslash) | ((del - ONES) & ~del);

    if (escape == Escape::json) {
        special |= (quote - ONES) & ~quote;
    }
    return escape == Escape::none || (special & HIGHS) == 0;
}

/*
 * Where to cut a text, at `end` at the latest, so that no character is torn. What is not UTF-8 is cut anywhere.
 */
static size_t utf8_floor(std::string_view bytes, size_t end)
{
    const size_t first = end > 3 ? end - 3 : 0;

    while (end > first && is_continuation(bytes[end])) {
        end--;
    }
    return end;
}

/*
 * Adds the plain bytes that a text begins with, as many as there is room for.
 * Result: bytes consumed.
 */
size_t Text::plain(std::string_view bytes)
{
    const size_t most = std::min(bytes.size(), room());
    const bool overflows = bytes.size() > most;
    const char* const source = bytes.data();
    char* const target = array_ + length_;
    const Escape escape = escape_;
    uint64_t eight = 0;
    size_t at = 0;

    for (; most - at >= sizeof(eight); at += sizeof(eight)) {
        memcpy(&eight, source + at, sizeof(eight));
        if (!are_plain(eight, escape)) {
            break;
        }
        memcpy(target + at, &eight, sizeof(eight));
    }
    while (at < most && is_plain(static_cast<unsigned char>(source[at]), escape)) {
        target[at] = source[at];
        at++;
    }
    cut_ = at == most && overflows;
    if (cut_ && escape == Escape::none) {
        at = utf8_floor(bytes, at);
    }
    length_ += at;
    return at;
}

void Text::put(std::string_view bytes)
{
    while (!bytes.empty() && !cut_) {
        bytes.remove_prefix(plain(bytes));
        if (!bytes.empty() && !cut_) {
            bytes.remove_prefix(escaped(bytes));
        }
    }
}

void Text::put_share(std::string_view bytes, size_t share)
{
    const size_t limit = limit_;

    limit_ = std::min(limit, length_ + share - CUT_MARK.size() - 1);
    put(bytes);
    limit_ = limit;
    if (cut_) {
        cut_ = false;
        raw(CUT_MARK);
    }
}

char* Text::digits(char* end, uintmax_t value, unsigned base, const char* symbols)
{
    const unsigned shift = base == 16 ? 4 : 3;

    if (base == 10) { /* apart, as a division by a constant is many times faster */
        do {
            *--end = symbols[value % 10];
            value /= 10;
        } while (value != 0);
    } else {
        do {
            *--end = symbols[value & (base - 1)];
            value >>= shift;
        } while (value != 0);
    }
    return end;
}

void Text::number(unsigned long value)
{
    char buffer[24];
    char* const end = buffer + sizeof(buffer);
    const char* const first = digits(end, value, 10, HEX_LOWER);

    raw({ first, static_cast<size_t>(end - first) });
}

void Text::close(std::string_view end)
{
    if (cut_) {
        memcpy(array_ + length_, CUT_MARK.data(), CUT_MARK.size());
        length_ += CUT_MARK.size();
    }
    memcpy(array_ + length_, end.data(), end.size());
    length_ += end.size();
    array_[length_] = '\0';
}

} // namespace tesklog
