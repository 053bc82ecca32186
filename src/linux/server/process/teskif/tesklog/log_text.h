/*
 * Text in a bounded array: what a record is put together in. Nothing here allocates, locks or looks at the locale, so
 * all of it may run in a signal handler and in a forked child.
 */
#ifndef LOG_TEXT_H
#define LOG_TEXT_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tesklog {

/* Sizes of character arrays in bytes, the terminating NUL included. */
inline constexpr int LINE_LENGTH = 4096; /* a record; its text ends 17 bytes before, for a mark, a line end and a NUL */
inline constexpr int PATH_LENGTH = 1024; /* a path, short enough for three of them on a signal handler's stack */

/*
 * How a value is made harmless.
 */
enum class Escape {
    none, /* as it is: paths, and texts that are escaped later */
    line, /* \n \r \t \\, and \xNN for every other control character and for what is not UTF-8 */
    json, /* as the inside of a JSON string; what is not UTF-8 becomes U+FFFD */
};

/* Digits for Text::digits and for escapes. */
inline constexpr char HEX_LOWER[] = "0123456789abcdef";

/*
 * A text under construction. Once something did not fit, it is cut: nothing is added any more, so that the end of the
 * text is where the cut is.
 */
class Text {
public:
    /*
     *   array   array to fill, of at least 32 bytes
     *   escape  for all that is put
     */
    Text(char* array, size_t size, Escape escape);
    template <size_t size> Text(char (&array)[size], Escape escape) : Text(array, size, escape) {}

    /* Adds one byte as it is. */
    void add(char byte)
    {
        if (cut_ || length_ >= limit_) {
            cut_ = true;
        } else {
            array_[length_++] = byte;
        }
    }

    /* Adds bytes as they are, all of them or, if there is no room, none. */
    void raw(std::string_view bytes);

    /* Adds bytes, each escaped; as many as fit, never a part of an escape or of a character. */
    void put(std::string_view bytes);

    /* Adds a value as put does, in at most `share` bytes with its mark if it is cut; the text itself is not cut then. */
    void put_share(std::string_view bytes, size_t share);

    /* Adds a number in decimal. */
    void number(unsigned long value);

    /*
     * Adds a formatted text, its literal part and its values escaped alike.
     *   form  conversions d i u x X o c s p %, with flags - 0 # + and blank, width and precision (also *), and the
     *         lengths hh h l ll j z t. A null string prints (null). From any other conversion on the format is put
     *         literally and no further argument is touched, as its size would be a guess
     */
    void vformat(const char* form, va_list arguments);
    void format(const char* form, ...) __attribute__((format(printf, 2, 3)));

    /*
     * Ends the text: adds the mark "...[cut]" if it was cut, the given end, and a NUL.
     *   end  "" or a line end; at most 8 bytes
     */
    void close(std::string_view end);

    /* Escapes from here on in another way. */
    void set_escape(Escape escape)
    {
        escape_ = escape;
    }

    [[nodiscard]] bool cut() const
    {
        return cut_;
    }
    /* Bytes that values may still take. */
    [[nodiscard]] size_t room() const
    {
        return limit_ - length_;
    }
    [[nodiscard]] std::string_view view() const
    {
        return { array_, length_ };
    }

    /*
     * Writes the digits of a number to the left of end, which needs room for 24 of them.
     *   base     8, 10 or 16
     *   symbols  the digits of the base, from 0
     * Result: the first of them.
     */
    static char* digits(char* end, uintmax_t value, unsigned base, const char* symbols);

private:
    size_t plain(std::string_view bytes);
    size_t escaped(std::string_view bytes);

    char* array_; /* a NUL is written by close only */
    size_t length_ = 0;
    size_t limit_; /* bytes that may be used by values; the array has room for a mark, a line end and a NUL behind */
    Escape escape_;
    bool cut_ = false;
};

} // namespace tesklog

#endif
