/*
 * The tables of names. A name is taken apart into its words first: DB_userPassword2 has the words db, user, password.
 */
#include "redact_names.h"

#include <algorithm>
#include <span>
#include <string>
#include <vector>

namespace sample {

namespace {

constexpr auto NONE = std::string_view::npos;
constexpr size_t MAX_NAME = 128;

/* Ordinary words that contain a secret's name; they are taken out before the search. */
constexpr std::string_view ORDINARY[] = {
    "passwordless", "tokenless", "tokeniz", "tokenis",  "secretar", "compass",
    "bypass",       "trespass",  "surpass", "keyboard", "keyspace",
};

/* Anywhere in the name, its words joined: "PGPASSWORD", "x-api-key", "accessKeyId". */
constexpr std::string_view SECRETS[] = {
    "password",      "passwd",     "passphrase", "passcode",  "passwort",   "pwd",
    "secret",        "token",      "credential", "apikey",    "accesskey",  "privatekey",
    "encryptionkey", "signingkey", "authkey",    "sharedkey", "accountkey", "identifiedby",
};

/* Only as the last word, as they have other meanings elsewhere: "pass_count", "first-pass.log". */
constexpr std::string_view LAST_SECRETS[] = { "pass", "pw", "psk", "passkey" };

/* Last words of what describes a secret without being one: "token_count", "passwordFile". */
constexpr std::string_view DESCRIPTIONS[] = {
    "age",      "algorithm", "attempts", "changed", "count",    "dir",        "directory", "disabled", "enabled",
    "endpoint", "exp",       "expired",  "expires", "expiry",   "expiration", "file",      "files",    "length",
    "len",      "lifetime",  "limit",    "limits",  "max",      "min",        "mode",      "name",     "names",
    "path",     "paths",     "policy",   "prompt",  "provider", "ref",        "refs",      "required", "retries",
    "size",     "status",    "stdin",    "timeout", "ttl",      "type",       "uri",       "url",      "usage",
};

/* First words of what limits or counts secrets: "max_tokens". */
constexpr std::string_view LIMITS[] = { "max", "min", "num", "total" };

/* Last words that say nothing: "token_expires_in", "pass_value". */
constexpr std::string_view FILLERS[] = {
    "at", "in", "on", "ms", "seconds", "minutes", "days", "bytes", "value", "text", "string", "id",
};

constexpr std::string_view HEADERS[] = { "authorization", "cookie", "cookies" };
constexpr std::string_view NAMES[] = {
    "name", "key", "field", "option", "variable", "var", "property", "param", "parameter", "setting",
};
constexpr std::string_view VALUES[] = { "value", "values", "val", "content", "contents", "default", "data" };

struct LastWord {
    Meaning meaning;
    std::span<const std::string_view> words;
};

constexpr LastWord LAST_WORDS[] = {
    { Meaning::header, HEADERS },
    { Meaning::name, NAMES },
    { Meaning::value, VALUES },
};

/* Last words of a phrase that a text in quotes follows. */
constexpr std::string_view QUOTED[] = { "password", "passwd", "passphrase", "by" };

bool in(std::span<const std::string_view> table, std::string_view word)
{
    return std::find(table.begin(), table.end(), word) != table.end();
}

bool is_lower(char c)
{
    return c >= 'a' && c <= 'z';
}

bool is_upper(char c)
{
    return c >= 'A' && c <= 'Z';
}

/*
 * A name, taken apart: its letters in lower case, and its words as views of them.
 */
struct Name {
    explicit Name(std::string_view name);
    Name(const Name&) = delete;
    Name& operator=(const Name&) = delete;

    std::string joined;
    std::vector<std::string_view> words;
};

Name::Name(std::string_view name)
{
    size_t begin = 0;

    name.remove_prefix(name.size() - std::min(name.size(), MAX_NAME));
    joined.reserve(name.size()); /* the views stay valid */
    for (size_t at = 0; at <= name.size(); at++) {
        const char c = at < name.size() ? name[at] : '\0';
        const bool letter = is_lower(c) || is_upper(c);
        if (joined.size() > begin && (!letter || (is_upper(c) && is_lower(name[at - 1])))) {
            words.emplace_back(&joined[begin], joined.size() - begin);
            begin = joined.size();
        }
        if (letter) {
            joined.push_back(is_upper(c) ? static_cast<char>(c - 'A' + 'a') : c);
        }
    }
}

std::string without_ordinary(std::string text)
{
    for (const std::string_view ordinary : ORDINARY) {
        for (size_t at = text.find(ordinary); at != NONE; at = text.find(ordinary, at)) {
            text.replace(at, ordinary.size(), ".");
        }
    }
    return text;
}

bool has_secret(std::string_view joined, std::string_view last)
{
    return in(LAST_SECRETS, last) || last.ends_with("pass") ||
           std::any_of(std::begin(SECRETS), std::end(SECRETS),
                       [joined](std::string_view secret) { return joined.find(secret) != NONE; });
}

bool is_secret(const Name& name)
{
    std::span<const std::string_view> words = name.words;

    while (words.size() > 1 && in(FILLERS, words.back())) {
        words = words.first(words.size() - 1);
    }
    if (!has_secret(name.joined, words.back()) || (words.size() > 1 && in(LIMITS, words.front())) ||
        in(DESCRIPTIONS, words.back())) {
        return false;
    }
    return has_secret(without_ordinary(name.joined), without_ordinary(std::string(words.back())));
}

} // namespace

bool is_name_character(char c)
{
    return is_lower(c) || is_upper(c) || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
}

Meaning meaning_of(std::string_view name)
{
    const Name taken(name);

    if (taken.words.empty()) {
        return Meaning::plain;
    }
    if (is_secret(taken)) {
        return Meaning::secret;
    }
    for (const auto& [meaning, table] : LAST_WORDS) {
        if (in(table, taken.words.back())) {
            return meaning;
        }
    }
    return Meaning::plain;
}

bool names_secret(std::string_view text)
{
    const bool name = std::all_of(text.begin(), text.end(), is_name_character);
    const Meaning meaning = name ? meaning_of(text) : Meaning::plain;

    return meaning == Meaning::secret || meaning == Meaning::header;
}

bool takes_quoted_value(std::string_view name)
{
    const Name taken(name);

    return !taken.words.empty() && in(QUOTED, taken.words.back()) && is_secret(taken);
}

} // namespace sample
