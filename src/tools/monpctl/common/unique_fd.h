/*
 * The one owner of a file descriptor.
 */
#ifndef MONPCTL_COMMON_UNIQUE_FD_H
#define MONPCTL_COMMON_UNIQUE_FD_H

#include <cerrno>
#include <unistd.h>
#include <utility>

namespace monpctl {

/*
 * Closes its descriptor at its end. A negative number stands for none, so it can be made from the result of open().
 */
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd()
    {
        reset();
    }

    [[nodiscard]] int get() const
    {
        return fd_;
    }
    /* True with a descriptor. */
    explicit operator bool() const
    {
        return fd_ >= 0;
    }
    /* Closes the descriptor; errno stays as it is. */
    void reset()
    {
        const int kept = errno;

        if (fd_ >= 0) {
            close(std::exchange(fd_, -1));
        }
        errno = kept;
    }

private:
    int fd_ = -1;
};

} // namespace monpctl

#endif
