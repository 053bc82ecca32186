/*
 * Patterns of what must not leave the node, and their use on the content of files.
 */
#ifndef SAMPLE_REDACT_H
#define SAMPLE_REDACT_H

#include <regex.h>
#include <span>
#include <string>
#include <vector>

namespace sample {

/*
 * Extended regular expressions, without regard to case, for secrets within a line, which in a dump ends with a zero
 * byte too. Of each match the last group in parentheses is a secret, or all of it if there is none. In a line of more
 * than 16 KiB a match of more than 4 KiB may be missed; one that goes on to the end of what is searched at once is not.
 */
class Redactor {
public:
    /* With the built-in patterns: passwords, tokens and keys with their name, credentials of URLs and of HTTP. */
    Redactor();
    ~Redactor();
    Redactor(const Redactor&) = delete;
    Redactor& operator=(const Redactor&) = delete;

    /*
     * Adds the patterns of a file, one a line; empty lines and those that begin with "#" do not count. A missing file
     * has none. Throws std::runtime_error with the place of a pattern that is none.
     */
    void read(const std::string& path);

    /*
     * Turns each byte of a secret into a star, as a dump has to keep its offsets. That covers private keys in PEM form
     * as well, over several lines.
     */
    void clean(std::span<char> content) const;

private:
    struct Pattern {
        regex_t compiled;
        bool named; /* matches the name of a secret, which follows: in quotes, or up to a blank */
    };

    void add(const std::string& pattern, bool named, const std::string& where);

    std::vector<Pattern> patterns_;
};

} // namespace sample

#endif
