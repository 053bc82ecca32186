/*
 * Secrets that are told by their own form: users and passwords of URLs, credentials of HTTP, signed tokens. Pure
 * functions on a line.
 */
#ifndef SAMPLE_REDACT_TOKENS_H
#define SAMPLE_REDACT_TOKENS_H

#include <cstddef>
#include <string_view>

namespace sample {

/* A part of a line; nothing if both are equal. */
struct Range {
    size_t begin = 0;
    size_t end = 0;

    [[nodiscard]] bool empty() const
    {
        return begin == end;
    }
};

/*
 * The secret in front of the host of a URL: the password, or the user if there is none.
 *   from  the place behind "://"
 */
Range find_userinfo(std::string_view line, size_t from);

/*
 * The credentials behind a word such as Bearer. Ordinary words are none: "basic authentication failed".
 *   word  the place of the word
 */
Range find_credentials(std::string_view line, Range word);

/*
 * The signed token eyJx.y.z in a run of name characters.
 */
Range find_signed_token(std::string_view line, Range run);

} // namespace sample

#endif
