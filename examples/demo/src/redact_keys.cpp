/*
 * Private keys: what stands between their two markers.
 */
#include "redact_keys.h"

#include <algorithm>
#include <string_view>

namespace sample {

namespace {

constexpr auto NONE = std::string_view::npos;
constexpr int KEY_LINES = 100; /* a dump may hold the beginning of a key without its end */
constexpr size_t KEY_RUN = 8;  /* characters of a key in a row; shorter ones are words */
constexpr std::string_view BEGIN = "-----BEGIN ";
constexpr std::string_view END = "-----END ";
constexpr std::string_view PRIVATE = "PRIVATE KEY";
constexpr std::string_view DASHES = "-----";
constexpr size_t MAX_MARKER = 64;

bool is_key_character(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/' ||
           c == '=';
}

void clean_runs(std::span<char> text)
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
 * The place behind the next marker of a private key, or NONE.
 */
size_t find_key(std::string_view text, size_t from)
{
    for (size_t begin = text.find(BEGIN, from); begin != NONE; begin = text.find(BEGIN, begin + 1)) {
        const size_t name = begin + BEGIN.size();
        const std::string_view marker = text.substr(name, MAX_MARKER);
        const size_t end = marker.find(DASHES);
        if (end != NONE && marker.substr(0, end).find(PRIVATE) != NONE) {
            return name + end + DASHES.size();
        }
    }
    return NONE;
}

} // namespace

void PrivateKeys::clean(std::span<char> line)
{
    const std::string_view text(line.data(), line.size());

    for (size_t from = 0; !line.empty();) {
        if (lines_ <= 0) {
            from = find_key(text, from);
            if (from == NONE) {
                return;
            }
            lines_ = KEY_LINES;
        }
        const size_t end = std::min(text.find(END, from), text.size());
        clean_runs(line.subspan(from, end - from));
        if (end == text.size()) {
            lines_--;
            return;
        }
        lines_ = 0;
        from = end;
    }
}

} // namespace sample
