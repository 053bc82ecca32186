/*
 * Owners of memory. The library cannot throw, so nothing here comes from operator new.
 */
#ifndef TESKXML_MEMORY_H
#define TESKXML_MEMORY_H

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace teskxml {

struct Free {
    void operator()(void* block) const
    {
        std::free(block);
    }
};

/*
 * A block of malloc, for types that need no destructor.
 */
template <class T> using Owned = std::unique_ptr<T, Free>;

/*
 * Memory for the time of one load: the file's content, and all that the parser asks for. It never comes from the heap,
 * as small blocks that are freed there would keep its pages for the rest of the process's life. The first bytes are in
 * the object itself, which lives on the stack; from then on they come from mappings, which go with the object.
 *
 * A load of a usual policy fits into the object. Fresh pages would cost it a third of its time.
 */
class Scratch {
public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    /*
     * Gives a block with the alignment of malloc; null: out of memory.
     */
    void* take(size_t size);

    /*
     * Changes the size of a block, which may be null, and keeps its content; it may move.
     * Result: the block; null: out of memory, and the old one is as it was.
     */
    void* resize(void* block, size_t size);

    /*
     * Takes a block back, which may be null. Only the newest one is used again.
     */
    void give(void* block);

private:
    struct Header;
    struct Mapping;

    bool map(size_t size);

    Mapping* mappings_ = nullptr;
    char* next_; /* free bytes of the current piece of memory */
    char* end_;
    alignas(std::max_align_t) char first_[16384]; /* unset, as it is memory for others */
};

} // namespace teskxml

#endif
