/*
 * The forms of tokens.
 */
#include "redact_tokens.h"

#include "redact_names.h"

#include <algorithm>
#include <array>

namespace sample {

namespace {

constexpr auto NONE = std::string_view::npos;
constexpr size_t MIN_CREDENTIALS = 8;
constexpr size_t MAX_ORDINARY = 20; /* characters of a word of a language */
constexpr size_t MIN_PART = 10;     /* of a signed token */
constexpr std::string_view SIGNED = "eyJ";

constexpr std::array<std::string_view, 4> SCHEMES = { "basic", "bearer", "negotiate", "ntlm" };

bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

bool is_lower(char c)
{
    return c >= 'a' && c <= 'z';
}

bool same_letters(std::string_view text, std::string_view lower)
{
    return std::equal(text.begin(), text.end(), lower.begin(), lower.end(),
                      [](char a, char b) { return static_cast<char>(a | 0x20) == b; });
}

/*
 * A word as in a sentence: lower case but for its first letter, and not too long.
 */
bool is_ordinary(std::string_view word)
{
    return word.size() <= MAX_ORDINARY &&
           std::all_of(word.begin() + 1, word.end(), [](char c) { return is_lower(c) || c == '.' || c == '-'; });
}

size_t find_end(std::string_view line, std::string_view stops, size_t from)
{
    return std::min(line.find_first_of(stops, from), line.size());
}

} // namespace

Range find_userinfo(std::string_view line, size_t from)
{
    const size_t end = find_end(line, " \t\"'`<>/?#\\", from);
    const std::string_view authority = line.substr(from, end - from);
    const size_t colon = authority.find(':');
    size_t at = authority.rfind('@');

    if (at == NONE && colon != NONE && colon > 0 && authority[0] != '[' &&
        !std::all_of(authority.begin() + static_cast<ptrdiff_t>(colon) + 1, authority.end(), is_digit)) {
        /* What follows the colon is not a port but a password, which has one of the characters above. */
        const std::string_view url = line.substr(0, line.find("://", from));
        const size_t limit = find_end(url, " \t<>", from);
        at = line.substr(from, limit - from).rfind('@');
    }
    if (at == NONE) {
        return {};
    }
    return { from + (colon < at ? colon + 1 : 0), from + at };
}

Range find_credentials(std::string_view line, Range word)
{
    const std::string_view text = line.substr(word.begin, word.end - word.begin);

    if (std::none_of(SCHEMES.begin(), SCHEMES.end(), [&](auto scheme) { return same_letters(text, scheme); })) {
        return {};
    }
    const size_t begin = std::min(line.find_first_not_of(" \t", word.end), line.size());
    size_t end = begin;
    while (end < line.size() && (is_name_character(line[end]) || std::string_view("~+/=").find(line[end]) != NONE)) {
        end++;
    }
    const bool none =
        begin == word.end || end - begin < MIN_CREDENTIALS || is_ordinary(line.substr(begin, end - begin));
    return none ? Range{} : Range{ begin, end };
}

Range find_signed_token(std::string_view line, Range run)
{
    const std::string_view text = line.substr(run.begin, run.end - run.begin);

    for (size_t from = text.find(SIGNED); from != NONE;) {
        const size_t dot = std::min(text.find('.', from), text.size());
        const size_t second = std::min(text.find('.', dot + 1), text.size());
        if (dot - from >= SIGNED.size() + MIN_PART && second < text.size() && second - dot > MIN_PART) {
            return { run.begin + from, run.end };
        }
        from = text.find(SIGNED, dot);
    }
    return {};
}

} // namespace sample
