/*
 * The forms of values: in quotes, in brackets, bare, and several of them in touch with each other.
 */
#include "redact_values.h"

#include "redact_names.h"

#include <algorithm>
#include <array>

namespace sample {

namespace {

constexpr auto NONE = std::string_view::npos;
constexpr std::string_view BLANKS = " \t";
constexpr int MAX_CLOSING = 8; /* of these in a row; the caller looks behind each word, so there has to be a limit */

/* Characters that end a value behind its quote or bracket; with any other one it goes on, as in a shell. */
constexpr std::string_view BEHIND = " \t\"',;:&<>()[]{}|";

/* Values without quotes that a name in quotes may have; numbers are looked for beside them. */
constexpr std::array<std::string_view, 6> LITERALS = { "null", "true", "false", "None", "True", "False" };

constexpr std::array<std::string_view, 10> CLOSING = {
    "\"", "'", "`", "\\", "]", "%22", "%27", "&quot;", "&#34;", "u0022",
};
constexpr std::array<std::string_view, 4> ESCAPED_SEPARATORS = { "%3A", "%3a", "%3D", "%3d" };

bool in(std::string_view set, char c)
{
    return set.find(c) != NONE;
}

bool at_one_of(std::string_view set, std::string_view line, size_t at)
{
    return at < line.size() && in(set, line[at]);
}

/*
 * Steps over a character and over the one that it escapes.
 */
size_t next(std::string_view line, size_t at)
{
    return std::min(at + (line[at] == '\\' ? 2 : 1), line.size());
}

/*
 * The end of a text in quotes, behind its closing quote, or NONE. The quotes may be escaped themselves, each by as many
 * backslashes as the first one. With more of them a quote is part of the text, unless they are escaped backslashes.
 */
size_t end_of_quoted(std::string_view line, size_t open, size_t backslashes)
{
    size_t run = 0;

    for (size_t at = open + 1; at < line.size(); at++) {
        if (line[at] == line[open] && run % (2 * backslashes + 2) == backslashes) {
            return at + 1;
        }
        run = line[at] == '\\' ? run + 1 : 0;
    }
    return NONE;
}

/*
 * A shell joins what touches, and a table doubles the quotes in a text.
 */
bool goes_on(std::string_view line, size_t end, char quote)
{
    return end < line.size() && (line[end] == quote || !in(BEHIND, line[end]));
}

/*
 * The end of null, true and the like, or of a number; NONE if there is no such value.
 */
size_t end_of_literal(std::string_view line, size_t from)
{
    size_t end = std::min(line.find_first_not_of("+-.0123456789eE", from), line.size());

    for (const std::string_view literal : LITERALS) {
        end = line.substr(from).starts_with(literal) ? from + literal.size() : end;
    }
    return end > from && (end == line.size() || in(" \t,]}", line[end])) ? end : NONE;
}

/*
 * The blank in front of another name with "=", as in "password=x host=y"; else the end of the line.
 */
size_t end_before_next_name(std::string_view line, size_t from)
{
    for (size_t blank = line.find_first_of(BLANKS, from); blank != NONE;) {
        const size_t name = skip_blanks(line, blank);
        size_t end = name;
        while (end < line.size() && is_name_character(line[end])) {
            end++;
        }
        if (end > name && at_one_of("=", line, end)) {
            return blank;
        }
        blank = line.find_first_of(BLANKS, end);
    }
    return line.size();
}

/*
 * The end of a value that goes on to a blank. A part of it may be in quotes and have blanks, but a quote without a
 * second one is a character like others, and so is an escaped blank.
 */
size_t end_of_word(std::string_view line, size_t from, const Place& place)
{
    const std::string_view stops = place.query ? " \t&#\"'<>" : " \t";
    size_t at = from;

    while (at < line.size() && !in(stops, line[at]) && !(line[at] == '"' && place.in_string)) {
        const size_t quoted = in("\"'", line[at]) ? end_of_quoted(line, at, 0) : NONE;
        at = quoted == NONE ? next(line, at) : quoted;
    }
    return at;
}

size_t end_of_bare(std::string_view line, size_t from, const Place& place)
{
    const size_t literal = place.quoted_name ? end_of_literal(line, from) : NONE;

    if (literal != NONE) {
        return literal;
    }
    if (place.header || (place.first && place.spaced)) {
        return line.size();
    }
    return place.first && !place.query ? end_before_next_name(line, from) : end_of_word(line, from, place);
}

/*
 * The quote in front of the name is where the value ends, without that quote. NONE if there is no second one, or if the
 * value would be empty.
 */
size_t end_by_outer_quote(std::string_view line, size_t from, char quote)
{
    size_t at = from;

    while (at < line.size() && line[at] != quote) {
        at = next(line, at);
    }
    return at > from && at < line.size() ? at : NONE;
}

/*
 * An index such as [0], or a sequence of ESC [ ... m.
 */
size_t skip_in_brackets(std::string_view line, size_t from)
{
    const bool colour = line[from] == '\x1b';
    const size_t open = from + (colour ? 1 : 0);

    if (!at_one_of("[", line, open)) {
        return from;
    }
    const size_t end = line.find_first_not_of(colour ? "0123456789;" : "0123456789", open + 1);
    return end != NONE && line[end] == (colour ? 'm' : ']') ? end + 1 : from;
}

} // namespace

size_t end_of_value(std::string_view line, size_t from, const Place& place)
{
    const size_t outer = place.quote != '\0' ? end_by_outer_quote(line, from, place.quote) : NONE;
    size_t at = from;

    if (outer != NONE) {
        if (!goes_on(line, outer + 1, '\0')) {
            return outer;
        }
        at = outer + 1;
    }
    for (;;) {
        const size_t open = std::min(line.find_first_not_of('\\', at), line.size());
        size_t end = line.size();
        if (at_one_of("\"'`", line, open)) {
            end = std::min(end_of_quoted(line, open, open - at), line.size());
        } else if (at_one_of("([{", line, at)) {
            int depth = 0;
            end = end_of_brackets(line, at, depth);
        } else {
            return end_of_bare(line, at, place);
        }
        if (open > at || place.in_tag || !goes_on(line, end, line[open])) {
            return end;
        }
        at = end;
    }
}

size_t skip_blanks(std::string_view line, size_t from)
{
    return std::min(line.find_first_not_of(BLANKS, from), line.size());
}

size_t skip_closing(std::string_view line, size_t from)
{
    size_t at = from;

    for (int count = 0; count < MAX_CLOSING && at < line.size(); count++) {
        const size_t before = at;
        for (const std::string_view closing : CLOSING) {
            at += line.substr(at).starts_with(closing) ? closing.size() : 0;
        }
        at = at < line.size() ? skip_in_brackets(line, at) : at;
        if (at == before) {
            break;
        }
    }
    return at;
}

size_t skip_separator(std::string_view line, size_t from)
{
    const size_t begin = from + (at_one_of("?+-", line, from) && at_one_of("=>", line, from + 1) ? 1 : 0);
    size_t end = begin;

    while (end < begin + 3 && at_one_of(":=>", line, end)) {
        end++;
    }
    for (const std::string_view escaped : ESCAPED_SEPARATORS) {
        end += end == from && line.substr(from).starts_with(escaped) ? escaped.size() : 0;
    }
    return line.substr(begin, end - begin) == "::" ? from : end; /* a qualified name of a program */
}

size_t end_of_brackets(std::string_view line, size_t from, int& depth)
{
    for (size_t at = from; at < line.size();) {
        const size_t quoted = in("\"'", line[at]) ? end_of_quoted(line, at, 0) : NONE;
        depth += in("([{", line[at]) ? 1 : 0;
        depth -= in(")]}", line[at]) ? 1 : 0;
        at = quoted == NONE ? next(line, at) : quoted;
        if (depth <= 0) {
            return at;
        }
    }
    return line.size();
}

} // namespace sample
