/*
 * A printf of our own. The C library's may lock, allocate and read the locale, none of which a signal handler can
 * afford.
 */
#include "log_text.h"

#include <algorithm>
#include <cstring>

namespace tesklog {

static constexpr char HEX_UPPER[] = "0123456789ABCDEF";

namespace {

/*
 * The arguments, in a record so that they can be handed on by reference.
 */
struct Arguments {
    va_list list;
};

/*
 * One conversion of a format.
 */
struct Conversion {
    bool left = false, zero = false, alternate = false, plus = false, blank = false;
    int width = 0;      /* 0: none */
    int precision = -1; /* -1: none */
    int length = 0;     /* -2: hh, -1: h, 0: none, 1 and more: as wide as long */
    char type = '\0';
};

} // namespace

static_assert(sizeof(long) == sizeof(intmax_t) && sizeof(long) == sizeof(size_t) && sizeof(long) == sizeof(void*),
              "one argument type serves the lengths l, ll, j, z and t");

/* ---------------------------------------------------------------- parsing ---- */

/*
 * Reads a width or a precision, a number or a star; limited to a line, as a larger one could only make us slow.
 */
static const char* parse_number(const char* form, Arguments& arguments, int& number)
{
    int value = 0;

    if (*form == '*') {
        value = va_arg(arguments.list, int);
        form++;
    } else {
        for (; *form >= '0' && *form <= '9'; form++) {
            value = value < LINE_LENGTH ? value * 10 + (*form - '0') : value;
        }
    }
    number = std::clamp(value, -LINE_LENGTH, LINE_LENGTH);
    return form;
}

static const char* parse_flags(const char* form, Conversion& conversion)
{
    static constexpr struct {
        char symbol;
        bool Conversion::*flag;
    } FLAGS[] = {
        { '-', &Conversion::left }, { '0', &Conversion::zero },  { '#', &Conversion::alternate },
        { '+', &Conversion::plus }, { ' ', &Conversion::blank },
    };
    bool known = true;

    for (; known; form += known ? 1 : 0) {
        known = false;
        for (const auto& row : FLAGS) {
            if (row.symbol == *form) {
                conversion.*row.flag = true;
                known = true;
            }
        }
    }
    return form;
}

/*
 * Reads a conversion.
 *   form  what follows the percent sign
 * Result: what follows the conversion.
 */
static const char* parse_conversion(const char* form, Arguments& arguments, Conversion& conversion)
{
    form = parse_flags(form, conversion);
    form = parse_number(form, arguments, conversion.width);
    if (conversion.width < 0) {
        conversion.left = true;
        conversion.width = -conversion.width;
    }
    if (*form == '.') {
        form = parse_number(form + 1, arguments, conversion.precision);
    }
    for (; *form != '\0' && strchr("hljzt", *form) != nullptr; form++) {
        conversion.length += *form == 'h' ? -1 : 1;
    }
    conversion.type = *form;
    return *form != '\0' ? form + 1 : form;
}

/* ---------------------------------------------------------------- adding ---- */

static void put_fill(Text& text, char fill, int count)
{
    for (; count > 0 && !text.cut(); count--) {
        text.add(fill);
    }
}

static void put_padded(Text& text, const Conversion& conversion, std::string_view value)
{
    const int fill = conversion.width - static_cast<int>(value.size());

    put_fill(text, ' ', conversion.left ? 0 : fill);
    text.put(value);
    put_fill(text, ' ', conversion.left ? fill : 0);
}

/*
 * Adds a number: blanks, prefix (a sign or a base), zeros, digits, blanks.
 */
static void put_number(Text& text, const Conversion& conversion, std::string_view prefix, uintmax_t value,
                       unsigned base)
{
    char buffer[24];
    char* const end = buffer + sizeof(buffer);
    const char* first = Text::digits(end, value, base, conversion.type == 'X' ? HEX_UPPER : HEX_LOWER);

    if (value == 0 && conversion.precision == 0) {
        first = end;
    }
    const int signs = static_cast<int>(prefix.size());
    const int digits = static_cast<int>(end - first);
    int zeros = conversion.precision - digits;
    if (conversion.zero && !conversion.left && conversion.precision < 0) {
        zeros = conversion.width - signs - digits;
    }
    if (conversion.alternate && base == 8 && zeros <= 0 && (digits == 0 || *first != '0')) {
        zeros = 1;
    }
    const int fill = conversion.width - signs - std::max(zeros, 0) - digits;

    put_fill(text, ' ', conversion.left ? 0 : fill);
    text.raw(prefix);
    put_fill(text, '0', zeros);
    text.raw({ first, static_cast<size_t>(digits) });
    put_fill(text, ' ', conversion.left ? fill : 0);
}

static void put_signed(Text& text, const Conversion& conversion, Arguments& arguments)
{
    intmax_t value = conversion.length > 0 ? va_arg(arguments.list, long) : va_arg(arguments.list, int);
    const char* prefix = "";

    if (conversion.length == -1) {
        value = static_cast<short>(value);
    } else if (conversion.length < -1) {
        value = ((value & 0xff) ^ 0x80) - 0x80; /* the sign of its eighth bit */
    }
    if (value < 0) {
        prefix = "-";
    } else if (conversion.plus) {
        prefix = "+";
    } else if (conversion.blank) {
        prefix = " ";
    }
    put_number(text, conversion, prefix, value < 0 ? 0 - static_cast<uintmax_t>(value) : static_cast<uintmax_t>(value),
               10);
}

static void put_unsigned(Text& text, const Conversion& conversion, Arguments& arguments)
{
    uintmax_t value = conversion.length > 0 ? va_arg(arguments.list, unsigned long) : va_arg(arguments.list, unsigned);
    unsigned base = 16;
    const char* prefix = "";

    if (conversion.type == 'u') {
        base = 10;
    } else if (conversion.type == 'o') {
        base = 8;
    }
    if (conversion.length == -1) {
        value = static_cast<unsigned short>(value);
    } else if (conversion.length < -1) {
        value = static_cast<unsigned char>(value);
    }
    if (conversion.alternate && base == 16 && value != 0) {
        prefix = conversion.type == 'X' ? "0X" : "0x";
    }
    put_number(text, conversion, prefix, value, base);
}

static void put_pointer(Text& text, const Conversion& conversion, Arguments& arguments)
{
    const void* value = va_arg(arguments.list, void*);

    if (value == nullptr) {
        put_padded(text, conversion, "(nil)");
    } else {
        put_number(text, conversion, "0x", reinterpret_cast<uintptr_t>(value), 16);
    }
}

/*
 * Adds a string, reading no more of it than the precision allows and the text can hold: it may be endless.
 */
static void put_string(Text& text, const Conversion& conversion, Arguments& arguments)
{
    const char* value = va_arg(arguments.list, const char*);
    /* A string that has the width is not to be filled up just because the text has no room for all of it. */
    size_t most = std::max(text.room() + 1, static_cast<size_t>(conversion.width));

    if (value == nullptr) {
        put_padded(text, conversion, "(null)");
    } else {
        if (conversion.precision >= 0) {
            most = std::min(most, static_cast<size_t>(conversion.precision));
        }
        put_padded(text, conversion, { value, strnlen(value, most) });
    }
}

/*
 * Adds the value of one conversion.
 * Result: false if the conversion is not known; no argument was touched then.
 */
static bool put_conversion(Text& text, const Conversion& conversion, Arguments& arguments)
{
    bool known = true;
    char value = '\0';

    switch (conversion.type) {
    case 'd':
    case 'i':
        put_signed(text, conversion, arguments);
        break;
    case 'u':
    case 'x':
    case 'X':
    case 'o':
        put_unsigned(text, conversion, arguments);
        break;
    case 's':
        put_string(text, conversion, arguments);
        break;
    case 'p':
        put_pointer(text, conversion, arguments);
        break;
    case 'c':
        value = static_cast<char>(va_arg(arguments.list, int));
        put_padded(text, conversion, { &value, 1 });
        break;
    case '%':
        text.add('%');
        break;
    default:
        known = false;
        break;
    }
    return known;
}

void Text::vformat(const char* form, va_list arguments)
{
    Arguments copy = {};

    va_copy(copy.list, arguments);
    while (*form != '\0' && !cut_) {
        const size_t literal = static_cast<size_t>(strchrnul(form, '%') - form);
        put({ form, literal });
        form += literal;
        if (*form == '%') {
            Conversion conversion;
            const char* const next = parse_conversion(form + 1, copy, conversion);
            if (!put_conversion(*this, conversion, copy)) {
                put(form);
                break;
            }
            form = next;
        }
    }
    va_end(copy.list);
}

void Text::format(const char* form, ...)
{
    va_list arguments;

    va_start(arguments, form);
    vformat(form, arguments);
    va_end(arguments);
}

} // namespace tesklog
