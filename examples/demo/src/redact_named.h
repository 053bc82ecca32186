/*
 * Secrets that are told by the name in front of them, and those that their own form tells.
 */
#ifndef SAMPLE_REDACT_NAMED_H
#define SAMPLE_REDACT_NAMED_H

#include "redact_names.h"
#include "redact_tokens.h"
#include "redact_values.h"

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace sample {

/*
 * Looks through the lines of one file, each from the left to the right, with work in proportion to their length. NAME
 * is a name that redact_names.h calls a secret:
 *
 *   NAME = x   NAME: x   "NAME": x   NAME => x   NAME := x    x may be a text in quotes or a list
 *   NAME: and deeper lines    NAME = [ and lines to its "]"
 *   --NAME x   "--NAME", "x"   --NAME alone, and the next line
 *   NAME 'x'                                                  as in SQL
 *   name: NAME, value: x                                      in either order, in one line or in lines near by
 *   <NAME type="a">x</NAME>   <entry key="NAME">x</entry>   <name>NAME</name><value>x</value>
 *   Authorization: x   Cookie: x   Basic x   Bearer x   eyJx.y.z   scheme://user:x@host   scheme://x@host
 */
class NamedSecrets {
public:
    /* `check` is called at least once for every 64 KiB of a line; what it throws ends the work. */
    explicit NamedSecrets(std::function<void()> check) : check_(std::move(check)) {}

    /* Turns the secrets of a line into stars. Lines come in their order; their bytes stay where they are. */
    void clean(std::span<char> line);

private:
    /* What the lines so far have left open. */
    enum class Open {
        nothing,
        argument,     /* the value of an option */
        continuation, /* a value: it goes on in deeper lines */
        block,        /* a name without a value: that is in deeper lines, or in the items of a list */
        brackets,
        element,
    };

    /* A name in the line, and what is between it and its value. */
    struct Named {
        Range name;
        size_t closed;    /* behind its quote */
        size_t separator; /* behind its separator; `closed` if there is none */
        size_t value;
        Meaning meaning;
    };

    /* A pair of a name and a value, which stand in fields of their own. */
    struct Pair {
        bool named = false;   /* the name is known, and the value will follow */
        bool secret = false;  /* it is the name of a secret */
        bool in_tag = false;  /* it is an attribute of the tag that has begun */
        int lines = 0;        /* that the value may still be away */
        std::span<char> line; /* of a value that is known while its name is not; else empty */
        size_t value = 0;
        Place place;
    };

    struct Tag {
        bool open = false;
        bool first = false; /* in its line */
        Range name;
        Meaning meaning = Meaning::plain;
    };

    [[nodiscard]] std::string_view text(Range range) const;
    void hide(size_t begin, size_t end);

    size_t finish_open();
    size_t finish_argument();
    size_t finish_block();
    size_t finish_brackets();
    size_t finish_element();

    size_t step(size_t at);
    size_t word(size_t begin);
    [[nodiscard]] Named look_behind(Range name) const;
    [[nodiscard]] Place place_of(const Named& named) const;
    size_t take(const Named& named);
    size_t take_secret(const Named& named);
    size_t take_option(const Named& named);
    size_t take_quoted(const Named& named);
    size_t take_pair_name(size_t value);
    size_t take_pair_value(const Named& named);
    void leave_open(const Named& named, const Place& place, size_t end);
    size_t begin_tag(size_t at);
    size_t end_tag(size_t at);
    size_t take_element(size_t from);

    std::function<void()> check_;

    /* The line, and what is known of it up to the place that is looked at. */
    std::span<char> bytes_;
    std::string_view line_;
    bool first_ = true; /* nothing was there but marks, as of a list or a comment */
    bool in_string_ = false;
    Range previous_; /* the word before */
    Tag tag_;

    /* What goes on over several lines. */
    Pair pair_;
    Open open_ = Open::nothing;
    int open_lines_ = 0; /* at most as many */
    int depth_ = 0;      /* of brackets */
    size_t indent_ = 0;  /* of the name of a block */
    std::string element_;
};

} // namespace sample

#endif
