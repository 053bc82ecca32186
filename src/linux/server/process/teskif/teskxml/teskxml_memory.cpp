/*
 * The scratch memory of a load. Each block has its size in front of it, and blocks lie one behind the other.
 */
#include "teskxml_memory.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <sys/mman.h>

namespace teskxml {

struct alignas(std::max_align_t) Scratch::Header {
    size_t size; /* of the block behind it, rounded up */
};

struct alignas(std::max_align_t) Scratch::Mapping {
    Mapping* older;
    size_t size;
};

namespace {

/* The least that is mapped. Pages that are not used are never made. */
constexpr size_t PIECE = 1024UL * 1024;

constexpr size_t UNIT = alignof(std::max_align_t);

/* Far more than a file of the greatest size needs; keeps the sums below from an overflow. */
constexpr size_t LIMIT = 1024UL * 1024 * 1024;

constexpr size_t rounded(size_t size)
{
    return (size + UNIT - 1) / UNIT * UNIT;
}

} // namespace

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): the first bytes stay unset
Scratch::Scratch() : next_(first_), end_(first_ + sizeof(first_)) {}

Scratch::~Scratch()
{
    while (mappings_ != nullptr) {
        Mapping* const older = mappings_->older;
        munmap(mappings_, mappings_->size);
        mappings_ = older;
    }
}

/*
 * Goes on in a new mapping with room for so many bytes; what is left of the current piece stays unused.
 */
bool Scratch::map(size_t size)
{
    const size_t whole = std::max(PIECE, size + sizeof(Mapping));
    void* const memory =
        mmap(nullptr, whole, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);

    if (memory == MAP_FAILED) {
        return false;
    }
    mappings_ = new (memory) Mapping{ mappings_, whole };
    next_ = static_cast<char*>(memory) + sizeof(Mapping);
    end_ = static_cast<char*>(memory) + whole;
    return true;
}

void* Scratch::take(size_t size)
{
    const size_t whole = sizeof(Header) + rounded(std::min(size, LIMIT));

    if (size > LIMIT || (whole > static_cast<size_t>(end_ - next_) && !map(whole))) {
        return nullptr;
    }
    new (next_) Header{ whole - sizeof(Header) };
    void* const block = next_ + sizeof(Header);
    next_ += whole;
    return block;
}

void* Scratch::resize(void* block, size_t size)
{
    const size_t old = block != nullptr ? (static_cast<Header*>(block) - 1)->size : 0;

    if (size <= old) {
        return block;
    }
    void* const larger = take(size);
    if (larger != nullptr && old > 0) {
        std::memcpy(larger, block, old);
    }
    return larger;
}

void Scratch::give(void* block)
{
    if (block != nullptr && static_cast<char*>(block) + (static_cast<Header*>(block) - 1)->size == next_) {
        next_ = static_cast<char*>(block) - sizeof(Header);
    }
}

} // namespace teskxml
