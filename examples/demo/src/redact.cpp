/*
 * The built-in patterns, and the search for secrets by line.
 */
#include "redact.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>

namespace sample {

namespace {

/*
 * Bytes that are searched at once, as a dump has few newlines, and those of them that the next search sees again: the
 * longest match that is found wherever it begins. A value behind its name may have any length.
 */
constexpr size_t WINDOW = 16384;
constexpr size_t OVERLAP = 4096;

constexpr int KEY_LINES = 100; /* of a private key; a dump may hold the beginning of one without its end */
constexpr size_t KEY_RUN = 8;  /* characters of a key in a row; shorter ones are words */

/* Names that a secret goes by. */
const std::string NAME = "(pass(word|wd|phrase)|pwd|secret|token|credential|(api|access|private|secret)[_-]?key)s?";

struct BuiltIn {
    std::string expression;
    bool named; /* it ends where the value of a name begins */
};

/*
 * None of them begins with what may go on for long: from each place of a run, it would be read to its end.
 */
std::vector<BuiltIn> built_in()
{
    return {
        { NAME + "[\\\"']*[ \t]*([=:][ \t]*|>)", true },
        { "--([a-z]+-)*[a-z]*" + NAME + "[ \t]+", true },
        { "(basic|bearer)[ \t]+([a-z0-9._~+/=-]{8,})", false },
        { "://[^/ \t:@]*:([^/ \t@]+)@", false },
        { "cookie[\"']?:[ \t]*([^\r]+)", false },
        { "eyJ[a-z0-9_-]{10,}\\.[a-z0-9_-]{10,}\\.[a-z0-9_-]*", false },
    };
}

bool is_key_character(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/' ||
           c == '=';
}

void clean_key_runs(std::span<char> text)
{
    for (auto run = text.begin(); run != text.end();) {
        const auto end = std::find_if_not(run, text.end(), is_key_character);
        if (static_cast<size_t>(end - run) >= KEY_RUN) {
            std::fill(run, end, '*');
        }
        run = std::find_if(end, text.end(), is_key_character);
    }
}

/*
 * Looks for private keys, line by line. `lines` is what is left of a key that has begun, 0 outside of one.
 */
void clean_key(std::span<char> line, int& lines)
{
    const std::string_view text(line.data(), line.size());
    const size_t begin = text.find("PRIVATE KEY-----");
    size_t from = 0;

    if (begin != std::string_view::npos && text.rfind("-----BEGIN ", begin) != std::string_view::npos) {
        lines = KEY_LINES;
        from = begin + std::strlen("PRIVATE KEY-----");
    }
    if (lines > 0 && !line.empty()) {
        const size_t end = text.find("-----END ", from);
        clean_key_runs(line.subspan(from, std::min(end, line.size()) - from));
        lines = end == std::string_view::npos ? lines - 1 : 0;
    }
}

/*
 * Where a text in quotes ends: behind its quote, or with the line. The quotes may be escaped themselves, each by as
 * many backslashes as the first one; with more of them a quote is part of the text, unless they are escaped
 * backslashes.
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
    return line.size();
}

/*
 * Whether a value goes on behind its quote: a shell joins what touches, and a table doubles the quotes in a text.
 */
bool goes_on(std::string_view line, size_t end, char quote)
{
    return end < line.size() && (line[end] == quote || std::strchr(" \t\r\"',;:&<>()[]{}|", line[end]) == nullptr);
}

/*
 * Where the value behind a name ends. Too much is better than a part of the secret: a value without quotes goes on to a
 * blank, as it may have any other character, and that of an XML element to its end.
 */
size_t end_of_value(std::string_view line, std::string_view name, size_t from)
{
    if (name.ends_with('>')) {
        return std::min(line.find("</", from), line.size());
    }
    for (;;) {
        const size_t open = std::min(line.find_first_not_of('\\', from), line.size());
        if (open == line.size() || (line[open] != '"' && line[open] != '\'')) {
            return std::min(line.find_first_of(" \t", from), line.size());
        }
        const size_t end = end_of_quoted(line, open, open - from);
        if (open > from || !goes_on(line, end, line[open])) {
            return end;
        }
        from = end;
    }
}

/*
 * What of a match is secret.
 */
std::span<char> secret_of(const regmatch_t& match, const regmatch_t& group, bool named, std::span<char> line)
{
    const std::string_view text(line.data(), line.size());
    const auto begin = static_cast<size_t>(match.rm_so);
    const auto end = static_cast<size_t>(match.rm_eo);

    if (named) {
        return line.subspan(end, end_of_value(text, text.substr(begin, end - begin), end) - end);
    }
    return group.rm_so < 0
               ? line.subspan(end, 0)
               : line.subspan(static_cast<size_t>(group.rm_so), static_cast<size_t>(group.rm_eo - group.rm_so));
}

/*
 * Looks for matches of one pattern in a line. One that reaches the end of what is searched may go on behind it: it is
 * searched for again from its beginning, and if it is too long for that, the rest of the line goes with it.
 */
void clean_matches(const regex_t& pattern, bool named, std::span<char> line)
{
    std::array<regmatch_t, 10> groups = {};
    const regmatch_t& match = groups[0];
    const regmatch_t& group = groups[std::min(pattern.re_nsub, groups.size() - 1)];

    for (size_t from = 0; from < line.size();) {
        const size_t limit = std::min(from + WINDOW, line.size());
        const bool last = limit == line.size();
        groups[0] = { static_cast<regoff_t>(from), static_cast<regoff_t>(limit) };
        if (regexec(&pattern, line.data(), groups.size(), groups.data(), REG_STARTEND | (last ? 0 : REG_NOTEOL)) != 0) {
            from = last ? limit : limit - OVERLAP;
        } else if (last || match.rm_eo < static_cast<regoff_t>(limit)) {
            const std::span<char> secret = secret_of(match, group, named, line);
            std::fill(secret.begin(), secret.end(), '*');
            const size_t end =
                std::max(static_cast<size_t>(match.rm_eo), static_cast<size_t>(secret.end() - line.begin()));
            from = std::max(from + 1, end);
        } else if (match.rm_so > static_cast<regoff_t>(from)) {
            from = static_cast<size_t>(match.rm_so);
        } else {
            std::fill(line.begin() + (named ? match.rm_so : std::max(match.rm_so, group.rm_so)), line.end(), '*');
            from = line.size();
        }
    }
}

} // namespace

Redactor::Redactor()
{
    for (const auto& [expression, named] : built_in()) {
        add(expression, named, "built-in");
    }
}

Redactor::~Redactor()
{
    for (Pattern& pattern : patterns_) {
        regfree(&pattern.compiled);
    }
}

void Redactor::add(const std::string& pattern, bool named, const std::string& where)
{
    regex_t compiled = {};
    const int ret = regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_ICASE);

    if (ret != 0) {
        std::array<char, 128> reason = {};
        regerror(ret, &compiled, reason.data(), reason.size());
        throw std::runtime_error(where + ": '" + pattern + "' is no pattern: " + reason.data());
    }
    patterns_.push_back({ compiled, named });
}

void Redactor::read(const std::string& path)
{
    std::ifstream file(path);
    int number = 0;

    if (!file && errno != ENOENT) {
        throw std::runtime_error("cannot read '" + path + "': " + std::strerror(errno));
    }
    for (std::string line; std::getline(file, line);) {
        number++;
        if (!line.empty() && line[0] != '#') {
            add(line, false, path + ":" + std::to_string(number));
        }
    }
    if (file.bad()) {
        throw std::runtime_error("cannot read '" + path + "'");
    }
}

void Redactor::clean(std::span<char> content) const
{
    int key_lines = 0;

    for (auto from = content.begin(); from != content.end();) {
        const auto end = std::find_if(from, content.end(), [](char c) { return c == '\n' || c == '\0'; });
        const std::span<char> line(from, end);
        clean_key(line, key_lines);
        for (const Pattern& pattern : patterns_) {
            clean_matches(pattern.compiled, pattern.named, line);
        }
        from = end == content.end() ? end : end + 1;
    }
}

} // namespace sample
