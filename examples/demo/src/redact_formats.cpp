/*
 * Marks of file formats, and the look of UTF-16 and UTF-32.
 */
#include "redact_formats.h"

#include <algorithm>
#include <array>

namespace sample {

namespace {

using namespace std::string_view_literals;

constexpr size_t BLOCK = 4096; /* bytes that are judged at once */
constexpr size_t MIN_WIDE = 8; /* bytes; in fewer, zeros may be anything */

/* The first bytes of compressed files; zlib's are the three usual ones. */
constexpr std::array COMPRESSED = {
    "\x1f\x8b"sv, /* gzip */
    "\x1f\x9d"sv, /* compress */
    "\x1f\xa0"sv, /* compress, older */
    "BZh"sv,      /* bzip2 */
    "\xfd"
    "7zXZ"sv,
    "\x28\xb5\x2f\xfd"sv, /* zstd */
    "\x04\x22\x4d\x18"sv, /* lz4 */
    "\x02\x21\x4c\x18"sv, /* lz4, older */
    "\x5d\0\0"sv,         /* lzma */
    "LZIP"sv,
    "\x89LZO"sv,
    "PK\x03\x04"sv, /* zip */
    "7z\xbc\xaf\x27\x1c"sv,
    "Rar!"sv,
    "x\x01"sv, /* zlib */
    "x\x9c"sv,
    "x\xda"sv,
    "KDUMP   "sv, /* a compressed dump of a kernel */
    "LPKSHHRH"sv, /* a journal, which compresses its fields */
};

constexpr std::array NAMES = {
    ".gz"sv,   ".tgz"sv, ".Z"sv,   ".bz2"sv, ".xz"sv, ".txz"sv, ".zst"sv, ".lz4"sv,
    ".lzma"sv, ".lz"sv,  ".lzo"sv, ".br"sv,  ".sz"sv, ".zip"sv, ".7z"sv,  ".rar"sv,
};

constexpr std::array WIDE = { "\xff\xfe"sv, "\xfe\xff"sv, "\0\0\xfe\xff"sv };

/*
 * Text in UTF-16 and UTF-32 that is mostly Latin: nearly all bytes of odd or of even places are zero, and the others
 * are not. Memory that is empty has zeros in both.
 */
bool looks_wide(std::string_view block)
{
    const size_t pairs = block.size() / 2;
    std::array<size_t, 2> zeros = {};

    for (size_t at = 0; at < pairs * 2; at++) {
        zeros[at % 2] += block[at] == '\0' ? 1 : 0;
    }
    const auto [fewer, more] = std::minmax(zeros[0], zeros[1]);
    return block.size() >= MIN_WIDE && more * 10 >= pairs * 8 && fewer * 10 <= pairs * 6;
}

bool has_wide_text(std::string_view content, bool is_dump)
{
    for (size_t at = 0; at < content.size(); at += BLOCK) {
        if (looks_wide(content.substr(at, BLOCK))) {
            return true;
        }
        if (is_dump) {
            return false;
        }
    }
    return false;
}

} // namespace

std::string_view why_not_searchable(std::string_view name, std::string_view content, bool is_dump)
{
    const auto begins = [content](std::string_view mark) { return content.starts_with(mark); };
    const auto ends = [name](std::string_view end) { return name.ends_with(end); };

    if (std::any_of(COMPRESSED.begin(), COMPRESSED.end(), begins) || std::any_of(NAMES.begin(), NAMES.end(), ends)) {
        return "compressed";
    }
    if (std::any_of(WIDE.begin(), WIDE.end(), begins) || has_wide_text(content, is_dump)) {
        return "not in UTF-8";
    }
    return {};
}

} // namespace sample
