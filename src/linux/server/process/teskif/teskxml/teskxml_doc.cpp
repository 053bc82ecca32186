/*
 * The elements of one file. Their size is bounded before the file is parsed: an element needs a "<" of its own, a key
 * has its limit, and the values never get longer than the file, as a reference is longer than what it stands for. So
 * one allocation suffices, and one free undoes everything. Pages beyond the need are never touched.
 */
#include "teskxml_doc.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>
#include <type_traits>

namespace teskxml {

namespace {

/* Without a branch, so that the compiler makes it look at many bytes at once. Comments count too; it is a bound. */
uint32_t count_elements(std::string_view content)
{
    uint32_t count = 0;

    for (size_t at = 1; at < content.size(); at++) {
        count += static_cast<uint32_t>(content[at - 1] == '<') & static_cast<uint32_t>(content[at] != '/');
    }
    return std::min<uint32_t>(count, TESKXML_MAX_KEYS);
}

/* By words, the last one overlapping, as a name taken byte by byte costs more than all the rest of a step. */
inline uint32_t hash_of(Number parent, std::string_view name)
{
    constexpr uint64_t FACTOR = 0x9e3779b97f4a7c15; /* odd, with bits all over */
    uint64_t hash = static_cast<uint64_t>(parent) << 32 | name.size();
    uint64_t word = 0;
    size_t at = 0;

    for (; at + sizeof(word) < name.size(); at += sizeof(word)) {
        std::memcpy(&word, name.data() + at, sizeof(word));
        hash = (hash ^ word) * FACTOR;
        hash ^= hash >> 32;
    }
    if (name.size() >= sizeof(word)) {
        std::memcpy(&word, name.data() + name.size() - sizeof(word), sizeof(word));
    } else {
        for (word = 0; at < name.size(); at++) {
            word = word << 8 | static_cast<unsigned char>(name[at]);
        }
    }
    hash = (hash ^ word) * FACTOR;
    return static_cast<uint32_t>(hash >> 32);
}

} // namespace

static_assert(sizeof(Document) % alignof(Node) == 0, "the elements follow the document");
static_assert(sizeof(Node) % alignof(uint32_t) == 0, "the index follows the elements");
static_assert(std::is_trivially_destructible_v<Document>, "free releases a document");

DocumentPtr Document::create(Kind kind, std::string_view path, std::string_view content)
{
    const uint32_t capacity = count_elements(content);
    /* half of the slots or more stay free, so that a search soon meets a free one */
    const size_t slots = std::bit_ceil(std::max<size_t>(2 * static_cast<size_t>(capacity), 2));
    const size_t text = capacity * static_cast<size_t>(TESKXML_MAX_KEY + 2) + content.size(); /* NULs included */
    void* const block =
        std::malloc(sizeof(Document) + capacity * sizeof(Node) + slots * sizeof(uint32_t) + path.size() + 1 + text);

    if (block == nullptr) {
        return nullptr;
    }
    DocumentPtr document(new (block) Document(kind));
    document->nodes_ = reinterpret_cast<Node*>(document.get() + 1);
    document->capacity_ = capacity;
    document->slots_ = reinterpret_cast<uint32_t*>(document->nodes_ + capacity);
    document->mask_ = static_cast<uint32_t>(slots - 1);
    std::fill_n(document->slots_, slots, NONE);
    char* const copy = reinterpret_cast<char*>(document->slots_ + slots);
    *std::copy(path.begin(), path.end(), copy) = '\0';
    document->path_ = copy;
    document->text_ = copy + path.size() + 1;
    document->text_capacity_ = text;
    return document;
}

/*
 * The slot of a name below its parent: the one that leads to its element, or the free one where it would have to be.
 */
uint32_t* Document::slot(Number parent, std::string_view name) const
{
    for (uint32_t at = hash_of(parent, name);; at++) {
        uint32_t* const found = &slots_[at & mask_];
        if (*found == NONE) {
            return found;
        }
        const Node& one = nodes_[*found];
        if (one.parent == parent && one.name_size == name.size() &&
            std::memcmp(this->name(*found), name.data(), name.size()) == 0) {
            return found;
        }
    }
}

/*
 * Writes the key of a new element behind all texts, where it stays if the element is added.
 * Result: its length.
 */
size_t Document::make_key(Number parent, std::string_view name)
{
    char* const key = text_ + text_size_;
    char* end = key;

    if (parent != TOP) {
        end = std::copy_n(this->key(parent), nodes_[parent].key_size, end);
    }
    *end++ = '/';
    end = std::copy(name.begin(), name.end(), end);
    *end = '\0';
    return static_cast<size_t>(end - key);
}

Document::Added Document::add(Number parent, std::string_view name)
{
    if (size_ == capacity_ || text_capacity_ - text_size_ < TESKXML_MAX_KEY + 1) {
        return { false, NONE };
    }
    uint32_t* const found = slot(parent, name);
    if (*found != NONE) {
        return { false, *found };
    }
    const size_t key_size = make_key(parent, name);
    *found = size_++;
    nodes_[*found] = { parent,
                       static_cast<uint32_t>(text_size_),
                       0,
                       0,
                       static_cast<uint16_t>(key_size),
                       static_cast<uint16_t>(name.size()),
                       0,
                       false };
    text_size_ += key_size + 1;
    return { true, *found };
}

bool Document::add_text(std::string_view text)
{
    Node& newest = nodes_[size_ - 1];

    if (text_capacity_ - text_size_ < text.size()) {
        return false;
    }
    std::copy(text.begin(), text.end(), text_ + text_size_);
    text_size_ += text.size();
    newest.value_size = static_cast<uint16_t>(newest.value_size + text.size());
    return true;
}

bool Document::end_text()
{
    Node& newest = nodes_[size_ - 1];

    while (newest.value_size > 0 && is_blank(text_[text_size_ - 1])) {
        newest.value_size--;
        text_size_--;
    }
    if (newest.value_size == 0) {
        return true; /* the NUL of the key serves */
    }
    if (text_size_ == text_capacity_) {
        return false;
    }
    text_[text_size_++] = '\0';
    return true;
}

const char* Document::key(Number number) const
{
    return text_ + nodes_[number].key;
}

const char* Document::name(Number number) const
{
    return key(number) + nodes_[number].key_size - nodes_[number].name_size;
}

const char* Document::value(Number number) const
{
    return key(number) + nodes_[number].key_size + (nodes_[number].value_size > 0 ? 1 : 0);
}

/*
 * Where the walk to a key can begin: the element that the last key lay in, if this key leads through that.
 */
Number Document::begin(std::string_view key) const
{
    if (last_parent_ == TOP) {
        return TOP;
    }
    const size_t size = nodes_[last_parent_].key_size;
    const bool below =
        size < key.size() && key[size] == '/' && std::memcmp(this->key(last_parent_), key.data(), size) == 0;

    return below ? last_parent_ : TOP;
}

Number Document::find(std::string_view key)
{
    Number found = begin(key);

    key.remove_prefix(found != TOP ? nodes_[found].key_size : 0);
    while (key.starts_with('/') && found != NONE) {
        last_parent_ = found;
        key.remove_prefix(1);
        const std::string_view name(key.data(), std::min(key.find('/'), key.size()));
        found = *slot(found, name);
        key.remove_prefix(name.size());
    }
    return key.empty() && found != TOP ? found : NONE;
}

std::optional<Document::Clash> Document::clash(Document& other) const
{
    for (Number here = 0; here < size_; here++) {
        const Number there = other.find({ key(here), nodes_[here].key_size });
        if (there != NONE && !(nodes_[here].branch && other.nodes_[there].branch)) {
            return Clash{ here, there };
        }
    }
    return std::nullopt;
}

} // namespace teskxml
