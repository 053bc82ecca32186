/*
 * What the name of a value tells about it.
 */
#ifndef SAMPLE_REDACT_NAMES_H
#define SAMPLE_REDACT_NAMES_H

#include <string_view>

namespace sample {

enum class Meaning {
    plain,
    secret, /* its value is a secret: db_password, apiKey, PGPASS */
    header, /* the rest of the line, or of the text in quotes, is a secret: Authorization, Set-Cookie */
    name,   /* its value is the name of another value: "name" in { "name": "password", "value": "x" } */
    value,  /* the value for such a name */
};

/*
 * Looks a name up in the tables. Its words may be joined by capitals, digits or any other character; the case does not
 * matter. Of a name with more than 128 characters only the last ones count. No state, constant time.
 */
Meaning meaning_of(std::string_view name);

/*
 * Tells whether a text is one name and all of its value has to be hidden: "password" is, "change password" is not.
 */
bool names_secret(std::string_view text);

/*
 * Tells whether a value in quotes may follow this name directly, as in SQL: PASSWORD 'x', IDENTIFIED BY 'x'.
 */
bool takes_quoted_value(std::string_view name);

bool is_name_character(char c);

} // namespace sample

#endif
