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
 * Closes a descriptor at its end. Its number may be noted for a child that is forked meanwhile, which has to close it,
 * too. The note stays: the memory of a child may be later than its descriptors.
 */
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(int fd, std::atomic<int>& note) : fd_(fd)
    {
        note = fd;
    }
    ~Descriptor()
    {
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
        fd_ = -1;
    }

private:
    int fd_;
};

} // namespace tesklog

#endif
