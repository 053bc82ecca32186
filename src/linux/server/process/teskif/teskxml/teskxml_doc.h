/*
 * One loaded file: its elements with their keys and values and an index to them, in one block of memory.
 */
#ifndef TESKXML_DOC_H
#define TESKXML_DOC_H

#include "teskxml_error.h"
#include "teskxml_memory.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace teskxml {

/*
 * Operation by which a file was loaded. The keys of a section's file lie below "/root/<section>" only.
 */
enum class Kind { config, path_config, section };

/*
 * Number of an element, from 0, the document element, in the order of the start tags.
 */
using Number = uint32_t;

inline constexpr Number NONE = UINT32_MAX;
inline constexpr Number TOP = UINT32_MAX - 1; /* above the document element */

/*
 * An element.
 */
struct Node {
    Number parent;  /* TOP for the document element */
    uint32_t key;   /* where the NUL-terminated key starts in the texts; the value follows it */
    int32_t line;   /* of its start tag, from 1 */
    int32_t column; /* of its start tag, in bytes, from 1 */
    uint16_t key_size;
    uint16_t name_size; /* the end of the key */
    uint16_t value_size;
    bool branch; /* no value: it has child elements, or its place is one where only these may be */
};

class Document;

/*
 * A document and everything in it are one block, which is never moved.
 */
using DocumentPtr = Owned<Document>;

/*
 * A file. The first half of the operations builds it, the other half reads it.
 */
class Document {
public:
    /*
     * Makes an empty document with room for everything a content can hold, so that nothing has to grow later.
     *   path     of the file, copied
     *   content  its elements are counted only
     * Result: the document; null when memory is short.
     */
    static DocumentPtr create(Kind kind, std::string_view path, std::string_view content);

    /*
     * Adds an element behind all others; the first one is the document element.
     *   parent  the element that it lies in; TOP for the document element
     *   name    NUL-terminated; with it the key is no longer than TESKXML_MAX_KEY
     */
    struct Added {
        bool done; /* its place is then 0, and it is not a branch */
        Number
            number; /* if it was not added: the element that has its key already, or NONE when the document is full */
    };
    Added add(Number parent, std::string_view name);

    /*
     * Appends text to the value of the newest element.
     * Result: false when there is no room.
     */
    bool add_text(std::string_view text);

    /*
     * Completes the value of the newest element: drops the blanks behind it and adds the NUL.
     * Result: false when there is no room.
     */
    bool end_text();

    Node& node(Number number)
    {
        return nodes_[number];
    }

    [[nodiscard]] const Node& node(Number number) const
    {
        return nodes_[number];
    }
    [[nodiscard]] std::span<const Node> nodes() const
    {
        return { nodes_, size_ };
    }

    /*
     * Key, such as "/root/all/path", name and value of an element, NUL-terminated. The value of a branch is empty.
     */
    [[nodiscard]] const char* key(Number number) const;
    [[nodiscard]] const char* name(Number number) const;
    [[nodiscard]] const char* value(Number number) const;

    /*
     * Place of an element's start tag, for a failure.
     */
    [[nodiscard]] Place place(Number number) const
    {
        return { path_, nodes_[number].line, nodes_[number].column };
    }

    /*
     * Finds an element by its key: walks from name to name, each looked up among the elements of the one before. The
     * walk begins at the element that the last one came to, if the key leads through that.
     * Result: its number, or NONE.
     */
    Number find(std::string_view key);

    /*
     * Finds a key that this and another document hold, one of them as a value.
     * Result: the first such element here and there.
     */
    struct Clash {
        Number here;
        Number there;
    };
    std::optional<Clash> clash(Document& other) const;

    [[nodiscard]] Kind kind() const
    {
        return kind_;
    }
    [[nodiscard]] const char* path() const
    {
        return path_;
    }

    size_t users = 1;     /* loads that were not undone */
    uintptr_t handle = 0; /* tells it from every other file loaded so far */

private:
    explicit Document(Kind kind) : kind_(kind) {}

    [[nodiscard]] uint32_t* slot(Number parent, std::string_view name) const;
    size_t make_key(Number parent, std::string_view name);
    [[nodiscard]] Number begin(std::string_view key) const;

    Kind kind_;
    const char* path_ = nullptr;
    Node* nodes_ = nullptr;
    uint32_t size_ = 0;
    uint32_t capacity_ = 0;
    /* the index: an element is in the slot of its parent's and its name's hash, or behind it before a free one */
    uint32_t* slots_ = nullptr;
    uint32_t mask_ = 0;        /* slots, a power of two, less 1 */
    Number last_parent_ = TOP; /* in which the last key was looked for, as most keys lie beside the one before */
    char* text_ = nullptr;
    size_t text_size_ = 0;
    size_t text_capacity_ = 0;
};

/*
 * Whether a byte is one of those that are dropped around a value.
 */
constexpr bool is_blank(char byte)
{
    return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r';
}

} // namespace teskxml

#endif
