/*
 * The order of the searches, and the operator's patterns.
 */
#include "redact.h"

#include "redact_arguments.h"
#include "redact_keys.h"
#include "redact_named.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <re2/re2.h>
#include <stdexcept>
#include <string_view>

namespace sample {

namespace {

using Check = std::function<void()>;

/*
 * Bytes that a pattern is searched in at once, as a dump has few newlines, and those of them that the next search sees
 * again. A search may look at all of them for each match, so they limit the work for a byte.
 */
constexpr size_t WINDOW = 16384;
constexpr size_t OVERLAP = 4096;

constexpr std::array<char, 4096> ZERO_BYTES = {};
constexpr std::string_view ZEROS(ZERO_BYTES.data(), ZERO_BYTES.size());

constexpr size_t CHECK_BYTES = 65536;

re2::RE2::Options options()
{
    re2::RE2::Options options(re2::RE2::POSIX);

    options.set_encoding(re2::RE2::Options::EncodingLatin1); /* bytes: a dump is not text */
    options.set_case_sensitive(false);
    options.set_perl_classes(true);
    options.set_word_boundary(true);
    options.set_log_errors(false);
    return options;
}

/*
 * Looks for matches of one pattern in a line. One that reaches the end of what is searched may go on behind it: it is
 * searched for again from its beginning, and if it is too long for that, the rest of the line goes with it.
 */
void clean_matches(const re2::RE2& pattern, std::span<char> line, const Check& check)
{
    const re2::StringPiece text(line.data(), line.size());
    const int last_group = pattern.NumberOfCapturingGroups();
    std::vector<re2::StringPiece> groups(static_cast<size_t>(last_group) + 1);

    for (size_t from = 0; from < line.size();) {
        const size_t limit = std::min(from + WINDOW, line.size());
        const bool last = limit == line.size();
        check();
        if (!pattern.Match(text, from, limit, re2::RE2::UNANCHORED, groups.data(), last_group + 1)) {
            from = last ? limit : limit - OVERLAP;
            continue;
        }
        const auto begin = static_cast<size_t>(groups[0].data() - line.data());
        const size_t end = begin + groups[0].size();
        const re2::StringPiece secret = groups[static_cast<size_t>(last_group)];
        const size_t secret_begin = secret.data() != nullptr ? static_cast<size_t>(secret.data() - line.data()) : begin;
        if (last || end < limit) {
            std::fill_n(line.begin() + static_cast<ptrdiff_t>(secret_begin), secret.size(), '*');
            from = std::max(from + 1, end);
        } else if (begin > from) {
            from = begin;
        } else {
            std::fill(line.begin() + static_cast<ptrdiff_t>(secret_begin), line.end(), '*');
            from = line.size();
        }
    }
}

/*
 * The searches of one file. Private keys come first: the name in front of one would take its marker away.
 */
class Search {
public:
    Search(const std::vector<std::unique_ptr<re2::RE2>>& patterns, const Check& check)
        : patterns_(patterns), check_(check), named_(check)
    {
    }

    void clean(std::span<char> line)
    {
        keys_.clean(line);
        const std::span<char> rest = arguments_.clean(line);
        if (rest.size() == line.size()) {
            named_.clean(line);
        } else {
            NamedSecrets(check_).clean(rest); /* has nothing to do with the lines around it */
        }
        for (const auto& pattern : patterns_) {
            clean_matches(*pattern, line, check_);
        }
    }

private:
    const std::vector<std::unique_ptr<re2::RE2>>& patterns_;
    const Check& check_;
    PrivateKeys keys_;
    Arguments arguments_;
    NamedSecrets named_;
};

} // namespace

Redactor::Redactor() = default;
Redactor::~Redactor() = default;

void Redactor::add(const std::string& pattern, const std::string& where)
{
    auto compiled = std::make_unique<re2::RE2>(pattern, options());

    if (!compiled->ok()) {
        throw std::runtime_error(where + ": '" + pattern + "' is not a pattern: " + compiled->error());
    }
    patterns_.push_back(std::move(compiled));
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

void Redactor::clean(std::span<char> content, const Check& check) const
{
    const std::string_view text(content.data(), content.size());
    Search search(patterns_, check);
    size_t newline = 0;
    size_t next_check = CHECK_BYTES;

    for (size_t from = 0; from < text.size();) {
        if (text.substr(from).starts_with(ZEROS)) { /* a dump is mostly empty */
            from += ZEROS.size();
            continue;
        }
        if (newline <= from) {
            newline = std::min(text.find('\n', from), text.size());
        }
        const size_t end = from + std::min(text.substr(from, newline - from).find('\0'), newline - from);
        if (end > from) {
            search.clean(content.subspan(from, end - from));
        }
        from = end + 1;
        if (from >= next_check) {
            check();
            next_check = from + CHECK_BYTES;
        }
    }
}

} // namespace sample
