/*
 * Descriptors that are open for a moment.
 */
#ifndef LOG_DESCRIPTOR_H
#define LOG_DESCRIPTOR_H

#include <atomic>
#include <unistd.h>

namespace tesklog {

/*
 * Gives back a descriptor above 2 for the one given, which is closed if it was not: a program that closed its standard
 * descriptors must not find our file in their place.
 * Result: the descriptor, or -1 with errno.
 */
int above_standard(int fd);

/*
 * Closes a descriptor at its end. It may be noted meanwhile for a child that is forked, which has to close it, too.
 */
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    /*
     *   note  where to note it, -1 if there is nothing; it is left out if there is another one
     */
    Descriptor(int fd, std::atomic<int>& note) : fd_(fd)
    {
        int none = -1;
        note_ = note.compare_exchange_strong(none, fd) ? &note : nullptr;
    }
    ~Descriptor()
    {
        release();
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int get() const
    {
        return fd_;
    }

    /* Leaves the descriptor open. */
    void keep()
    {
        release();
        fd_ = -1;
    }

private:
    /* Before it is closed: a child must not close what has its number later. */
    void release()
    {
        if (note_ != nullptr) {
            note_->store(-1);
            note_ = nullptr;
        }
    }

    int fd_;
    std::atomic<int>* note_ = nullptr;
};

} // namespace tesklog

#endif
