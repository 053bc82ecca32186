/*
 * The walk through a line. Each step ends behind what it has looked at, or has looked only at a few bytes or at blanks.
 */
#include "redact_named.h"

#include <algorithm>
#include <array>

namespace sample {

namespace {

constexpr auto NONE = std::string_view::npos;
constexpr size_t CHECK_BYTES = 65536;
constexpr int MAX_LINES = 100; /* that brackets or an element may go over: a dump may hold one without its end */
constexpr int PAIR_LINES = 8;  /* between a name and its value */
constexpr size_t MAX_PAIR_NAME = 64;
constexpr std::string_view MARKS = " \t#;/*-\"'$:@|<"; /* in front of the first name of a line */

/* Second words of a name in two words: "api key: x", "the password is: x", "identified by 'x'". */
constexpr std::array<std::string_view, 7> SECOND_WORDS = { "key", "Key", "KEY", "phrase", "is", "by", "BY" };

bool at_one_of(std::string_view set, std::string_view line, size_t at)
{
    return at < line.size() && set.find(line[at]) != NONE;
}

size_t end_of_name(std::string_view line, size_t from)
{
    while (from < line.size() && is_name_character(line[from])) {
        from++;
    }
    return from;
}

size_t skip_tag_name(std::string_view line, size_t from)
{
    while (from < line.size() && (is_name_character(line[from]) || line[from] == ':')) {
        from++;
    }
    return from;
}

size_t find(std::string_view line, std::string_view what, size_t from)
{
    return std::min(line.find(what, from), line.size());
}

} // namespace

void NamedSecrets::clean(std::span<char> line)
{
    bytes_ = line;
    line_ = { line.data(), line.size() - (!line.empty() && line.back() == '\r' ? 1 : 0) };
    first_ = true;
    in_string_ = false;
    previous_ = {};
    tag_ = {};
    if (pair_.lines-- <= 0) {
        pair_ = {};
    }
    size_t next_check = CHECK_BYTES;
    for (size_t at = finish_open(); at < line_.size(); at = step(at)) {
        if (at >= next_check) {
            check_();
            next_check = at + CHECK_BYTES;
        }
    }
}

std::string_view NamedSecrets::text(Range range) const
{
    return line_.substr(range.begin, range.end - range.begin);
}

void NamedSecrets::hide(size_t begin, size_t end)
{
    std::fill(bytes_.begin() + static_cast<ptrdiff_t>(begin), bytes_.begin() + static_cast<ptrdiff_t>(end), '*');
}

/*
 * Hides what the lines before have left open. Result: the place behind it.
 */
size_t NamedSecrets::finish_open()
{
    switch (open_) {
    case Open::argument:
        return finish_argument();
    case Open::continuation:
    case Open::block:
        return finish_block();
    case Open::brackets:
        return finish_brackets();
    case Open::element:
        return finish_element();
    default:
        return 0;
    }
}

size_t NamedSecrets::finish_argument()
{
    const size_t dash = skip_blanks(line_, 0);
    const size_t begin = line_.substr(dash).starts_with("- ") ? skip_blanks(line_, dash + 1) : dash;

    open_ = Open::nothing;
    if (at_one_of("-", line_, begin) && names_secret(text({ begin, end_of_name(line_, begin) }))) {
        return 0; /* an option without a value, and then another one */
    }
    const size_t end = end_of_value(line_, begin, {});
    hide(begin, end);
    return end;
}

size_t NamedSecrets::finish_block()
{
    const size_t indent = skip_blanks(line_, 0);

    if (indent == line_.size()) {
        return indent;
    }
    if (indent < indent_ || (indent == indent_ && (open_ != Open::block || !line_.substr(indent).starts_with("- ")))) {
        open_ = Open::nothing;
        return 0;
    }
    hide(indent, line_.size());
    return line_.size();
}

size_t NamedSecrets::finish_brackets()
{
    const size_t end = end_of_brackets(line_, 0, depth_);

    hide(std::min(skip_blanks(line_, 0), end), end);
    if (depth_ <= 0 || --open_lines_ <= 0) {
        open_ = Open::nothing;
    }
    return end;
}

size_t NamedSecrets::finish_element()
{
    const size_t end = find(line_, element_, 0);

    hide(std::min(skip_blanks(line_, 0), end), end);
    if (end < line_.size() || --open_lines_ <= 0) {
        open_ = Open::nothing;
    }
    return end;
}

size_t NamedSecrets::step(size_t at)
{
    const std::string_view rest = line_.substr(at);

    if (is_name_character(line_[at])) {
        return word(at);
    }
    first_ = first_ && MARKS.find(line_[at]) != NONE;
    switch (line_[at]) {
    case '\\':
        return std::min(at + (at_one_of("\\\"'", line_, at + 1) ? 2 : 1), line_.size());
    case '"':
        in_string_ = !in_string_;
        return at + 1;
    case '<':
        return begin_tag(at);
    case '>':
        return end_tag(at);
    case '}':
        pair_ = {};
        return at + 1;
    case ':':
        if (rest.starts_with("://") || rest.starts_with(":\\/\\/")) {
            const size_t begin = at + (rest[1] == '/' ? 3 : 5);
            const Range secret = find_userinfo(line_, begin);
            hide(secret.begin, secret.end);
            return std::max(begin, secret.end);
        }
        return at + 1;
    default:
        return at + 1;
    }
}

/*
 * A run of name characters. Those at its end may be an arrow, or the end of a sentence.
 */
size_t NamedSecrets::word(size_t begin)
{
    const size_t run = end_of_name(line_, begin);
    const size_t last = line_.substr(0, run).find_last_not_of("-.");
    const Range name = { begin, last == NONE || last < begin ? begin : last + 1 };
    const Range token = find_signed_token(line_, { begin, run });
    const Range credentials = find_credentials(line_, name);

    for (const Range secret : { token, credentials }) {
        if (!secret.empty()) {
            hide(secret.begin, secret.end);
            first_ = false;
            return secret.end;
        }
    }
    const size_t end = name.empty() ? 0 : take(look_behind(name));
    previous_ = name;
    first_ = first_ && name.empty();
    return std::max(end, name.empty() ? run : name.end);
}

NamedSecrets::Named NamedSecrets::look_behind(Range name) const
{
    Named named = { name, skip_closing(line_, name.end), 0, 0, Meaning::plain };
    const size_t blank = skip_blanks(line_, named.closed);
    const size_t separator = skip_separator(line_, blank);

    const bool end_of_tag = tag_.open && at_one_of(">", line_, blank);
    const bool separated = separator > blank && !end_of_tag;
    named.separator = separated ? separator : named.closed;
    named.value = skip_blanks(line_, named.separator);
    if (!separated && line_[name.begin] != '-' && !at_one_of("('\"", line_, named.value)) {
        return named; /* no matter what it means */
    }
    named.meaning = meaning_of(text(name));
    const bool escape = name.begin > 0 && line_[name.begin - 1] == '\\' && at_one_of("nrt", line_, name.begin);
    if (named.meaning == Meaning::plain && escape) {
        named.meaning = meaning_of(text({ name.begin + 1, name.end }));
    }
    const bool second = std::find(SECOND_WORDS.begin(), SECOND_WORDS.end(), text(name)) != SECOND_WORDS.end();
    if (second && !previous_.empty() && previous_.end + 1 == name.begin && line_[previous_.end] == ' ') {
        const Range both = { previous_.begin, name.end };
        named.meaning = meaning_of(text(both)) == Meaning::secret ? Meaning::secret : named.meaning;
    }
    return named;
}

/*
 * Result of this and of the following: the place behind what is hidden or known, or 0 if the name is to be passed over.
 */
size_t NamedSecrets::take(const Named& named)
{
    if (named.meaning == Meaning::plain) {
        return 0;
    }
    if (named.separator == named.closed) {
        return line_[named.name.begin] == '-' ? take_option(named) : take_quoted(named);
    }
    switch (named.meaning) {
    case Meaning::name:
        return take_pair_name(named.value);
    case Meaning::value:
        return take_pair_value(named);
    default:
        return take_secret(named);
    }
}

Place NamedSecrets::place_of(const Named& named) const
{
    const size_t begin = named.name.begin;
    const bool quoted = named.closed > named.name.end && at_one_of("\"'`\\", line_, named.name.end);
    const std::string_view between = line_.substr(named.closed, named.value - named.closed);
    const bool escaped = begin > 1 && line_[begin - 2] == '\\';
    Place place;

    place.first = first_;
    place.spaced = between.find_first_of(": \t") != NONE;
    place.quoted_name = quoted;
    place.in_string = in_string_ && !quoted;
    place.query = begin > 0 && at_one_of("?&", line_, begin - 1);
    place.in_tag = tag_.open;
    place.header = named.meaning == Meaning::header;
    place.quote = begin > 0 && !quoted && !escaped && at_one_of("\"'", line_, begin - 1) ? line_[begin - 1] : '\0';
    return place;
}

size_t NamedSecrets::take_secret(const Named& named)
{
    const Place place = place_of(named);
    const size_t end = end_of_value(line_, named.value, place);

    leave_open(named, place, end);
    hide(named.value, end);
    in_string_ = place.in_string;
    return end;
}

/*
 * An option, and its value as the next argument.
 */
size_t NamedSecrets::take_option(const Named& named)
{
    const size_t begin = line_.find_first_not_of(" \t,", named.closed);
    const bool secret = names_secret(text(named.name));

    if (!secret) {
        return 0;
    }
    if (begin == NONE || skip_closing(line_, begin) == line_.size()) {
        open_ = first_ || begin != NONE ? Open::argument : Open::nothing;
        return line_.size();
    }
    const size_t bare = std::min(line_.find_first_not_of("\"'\\", begin), line_.size());
    const bool option = at_one_of("-", line_, bare) && names_secret(text({ bare, end_of_name(line_, bare) }));
    if (begin == named.closed || option) {
        return 0;
    }
    Place place = place_of(named);
    place.first = false;
    place.header = false;
    const size_t end = end_of_value(line_, begin, place);
    hide(begin, end);
    in_string_ = place.in_string;
    return end;
}

size_t NamedSecrets::take_quoted(const Named& named)
{
    const size_t open = at_one_of("(", line_, named.value) ? skip_blanks(line_, named.value + 1) : named.value;

    if (named.closed > named.name.end || !at_one_of("'\"", line_, open) || (line_[open] == '"' && in_string_) ||
        !takes_quoted_value(text({ std::min(named.name.begin, previous_.begin), named.name.end }))) {
        return 0;
    }
    const size_t end = end_of_value(line_, open, {});
    hide(open, end);
    return end;
}

size_t NamedSecrets::take_pair_name(size_t value)
{
    const size_t begin = std::min(line_.find_first_not_of("\"'\\", value), line_.size());
    const size_t end = end_of_name(line_.substr(0, begin + MAX_PAIR_NAME), begin);
    const bool secret =
        (end == line_.size() || at_one_of(" \t\"'\\,;<>/}", line_, end)) && names_secret(text({ begin, end }));

    if (pair_.line.empty()) {
        pair_ = { true, secret, tag_.open, PAIR_LINES, {}, 0, {} };
        return 0;
    }
    if (secret) {
        const std::string_view line(pair_.line.data(), pair_.line.size());
        const size_t last = end_of_value(line, pair_.value, pair_.place);
        std::fill(pair_.line.begin() + static_cast<ptrdiff_t>(pair_.value),
                  pair_.line.begin() + static_cast<ptrdiff_t>(last), '*');
    }
    pair_ = {};
    return 0;
}

size_t NamedSecrets::take_pair_value(const Named& named)
{
    const Pair pair = std::exchange(pair_, {});

    if (!pair.named) {
        pair_ = { false, false, false, PAIR_LINES, bytes_, named.value, place_of(named) };
        return 0;
    }
    return pair.secret ? take_secret(named) : 0;
}

/*
 * A value may go on in the lines behind this one: in brackets that are not closed, or deeper than its name.
 */
void NamedSecrets::leave_open(const Named& named, const Place& place, size_t end)
{
    const std::string_view value = line_.substr(named.value);

    if (end < line_.size()) {
        return;
    }
    if (at_one_of("([{", value, 0) && std::string_view("([{,").find(value[value.find_last_not_of(" \t")]) != NONE) {
        depth_ = 0;
        end_of_brackets(value, 0, depth_);
        open_ = Open::brackets;
        open_lines_ = MAX_LINES;
    } else if (place.first) {
        open_ = value.empty() ? Open::block : Open::continuation;
        indent_ = named.name.begin - (place.quoted_name ? 1 : 0);
    }
}

size_t NamedSecrets::begin_tag(size_t at)
{
    const size_t end = skip_tag_name(line_, at + 1);
    const std::string_view name = text({ at + 1, end });
    const bool first = std::exchange(first_, false);

    tag_.open = false;
    if (at_one_of("/", line_, at + 1)) {
        return skip_tag_name(line_, at + 2);
    }
    if (name.empty() || (end < line_.size() && !at_one_of(" \t/>", line_, end))) {
        return at + 1;
    }
    tag_ = { true, first, { at + 1, end }, meaning_of(name.substr(name.rfind(':') + 1)) };
    if (tag_.meaning == Meaning::secret) {
        pair_ = { true, true, true, 0, {}, 0, {} }; /* it may have its value in an attribute */
    }
    return end;
}

/*
 * The content of an element follows, unless the tag ends with "/".
 */
size_t NamedSecrets::end_tag(size_t at)
{
    const bool content = tag_.open && line_[at - 1] != '/';
    const Pair pair = pair_;

    tag_.open = false;
    if (!content) {
        return at + 1;
    }
    if (tag_.meaning == Meaning::name) {
        take_pair_name(at + 1);
    }
    const bool value = pair.named && pair.secret && (tag_.meaning == Meaning::value || pair.in_tag);
    if (tag_.meaning != Meaning::secret && !value) {
        return at + 1;
    }
    pair_ = {};
    return take_element(at + 1);
}

size_t NamedSecrets::take_element(size_t from)
{
    element_ = "</" + std::string(text(tag_.name));
    const size_t end = find(line_, element_, from);

    if (end == line_.size() && tag_.first && skip_blanks(line_, from) == end) {
        open_ = Open::element;
        open_lines_ = MAX_LINES;
    }
    hide(from, end);
    return end;
}

} // namespace sample
