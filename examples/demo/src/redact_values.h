/*
 * How far the value behind a name goes. These are pure functions on a line. Each takes time in proportion to what it
 * steps over, so a caller that goes on behind that has linear work.
 */
#ifndef SAMPLE_REDACT_VALUES_H
#define SAMPLE_REDACT_VALUES_H

#include <cstddef>
#include <string_view>

namespace sample {

/*
 * Where a value stands, which decides where it ends.
 */
struct Place {
    bool first = false;       /* its name is the first word of the line, as in a configuration file */
    bool spaced = false;      /* its separator has a colon or a blank, as in YAML: the value may have blanks itself */
    bool quoted_name = false; /* the name is in quotes of its own, as in JSON */
    bool in_string = false;   /* name and value are within a text in double quotes */
    bool in_tag = false;      /* an attribute of XML: it ends with its quote */
    bool query = false;       /* a parameter of a URL or of a form */
    bool header = false;      /* of an HTTP header: the value goes on to the end of the line */
    char quote = '\0';        /* the quote directly in front of the name, as in -H "Cookie: a=b"; NUL: none */
};

/*
 * The end of the value that begins at `from`, at most the end of the line. Too much is better than a part of a secret:
 * when in doubt, the value goes on.
 */
size_t end_of_value(std::string_view line, size_t from, const Place& place);

/*
 * Steps over blanks; over what may stand between a name and its separator: quotes (also escaped, or in the spelling of
 * URLs and HTML), an index, colours of a terminal; over a separator (= : => := -> ?= += > and the like).
 * Result: the next place, which is `from` if there is nothing to step over.
 */
size_t skip_blanks(std::string_view line, size_t from);
size_t skip_closing(std::string_view line, size_t from);
size_t skip_separator(std::string_view line, size_t from);

/*
 * Steps over brackets, beginning with `depth` open ones; those in quotes do not count. Stops when none is open.
 * Result: that place, or the end of the line with `depth` above 0.
 */
size_t end_of_brackets(std::string_view line, size_t from, int& depth);

} // namespace sample

#endif
