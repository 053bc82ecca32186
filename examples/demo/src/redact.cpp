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

/* Bytes that are searched at once, and those that the next piece of a long line sees again: a dump has few newlines. */
constexpr size_t WINDOW = 16384;
constexpr size_t OVERLAP = 1024;

constexpr int KEY_LINES = 100; /* of a private key; a dump may hold the beginning of one without its end */
constexpr size_t KEY_RUN = 8;  /* characters of a key in a row; shorter ones are words */

/* Names that a secret goes by, and what may be its value. */
const std::string NAME = "(pass(word|wd|phrase)|pwd|secret|token|credential|(api|access|private|secret)[_-]?key)s?";
const std::string VALUE = "(\"[^\"]*\"|'[^']*'|[^] \t\"',;&<>)}]+)";

std::vector<std::string> built_in()
{
    return {
        NAME + "[\\\"']*[ \t]*([=:][ \t]*|>)\\\\?" + VALUE,
        "--[a-z-]*" + NAME + "[ \t]+" + VALUE,
        "(basic|bearer)[ \t]+([a-z0-9._~+/=-]{8,})",
        "[a-z][a-z0-9+.-]*://[^/ \t:@]*:([^/ \t@]+)@",
        "cookie[\"']?:[ \t]*([^\r]+)",
        "eyJ[a-z0-9_-]{10,}\\.[a-z0-9_-]{10,}\\.[a-z0-9_-]*",
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

void clean_matches(const regex_t& pattern, std::span<char> text)
{
    std::array<regmatch_t, 10> groups = {};
    size_t from = 0;

    while (from < text.size()) {
        groups[0] = { static_cast<regoff_t>(from), static_cast<regoff_t>(text.size()) };
        if (regexec(&pattern, text.data(), groups.size(), groups.data(), REG_STARTEND) != 0) {
            break;
        }
        const regmatch_t& secret = groups[std::min(pattern.re_nsub, groups.size() - 1)];
        if (secret.rm_so >= 0) {
            std::fill(text.begin() + secret.rm_so, text.begin() + secret.rm_eo, '*');
        }
        from = std::max(from + 1, static_cast<size_t>(groups[0].rm_eo));
    }
}

} // namespace

Redactor::Redactor()
{
    for (const std::string& pattern : built_in()) {
        add(pattern, "built-in");
    }
}

Redactor::~Redactor()
{
    for (regex_t& pattern : patterns_) {
        regfree(&pattern);
    }
}

void Redactor::add(const std::string& pattern, const std::string& where)
{
    regex_t compiled = {};
    const int ret = regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_ICASE);

    if (ret != 0) {
        std::array<char, 128> reason = {};
        regerror(ret, &compiled, reason.data(), reason.size());
        throw std::runtime_error(where + ": '" + pattern + "' is no pattern: " + reason.data());
    }
    patterns_.push_back(compiled);
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
            add(line, path + ":" + std::to_string(number));
        }
    }
    if (file.bad()) {
        throw std::runtime_error("cannot read '" + path + "'");
    }
}

void Redactor::clean_line(std::span<char> line) const
{
    for (size_t from = 0; from < line.size(); from += WINDOW - OVERLAP) {
        const std::span<char> window = line.subspan(from, std::min(WINDOW, line.size() - from));
        for (const regex_t& pattern : patterns_) {
            clean_matches(pattern, window);
        }
    }
}

void Redactor::clean(std::span<char> content) const
{
    int key_lines = 0;

    for (auto from = content.begin(); from != content.end();) {
        const auto end = std::find_if(from, content.end(), [](char c) { return c == '\n' || c == '\0'; });
        const std::span<char> line(from, end);
        clean_key(line, key_lines);
        clean_line(line);
        from = end == content.end() ? end : end + 1;
    }
}

} // namespace sample
