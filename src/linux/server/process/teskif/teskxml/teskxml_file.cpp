/*
 * The library's only way to a file. Owner and mode are looked at on the opened descriptor, and each name is opened from
 * the directory that was looked at, so nothing can be exchanged between the look and the use.
 */
#include "teskxml_file.h"

#include "teskxml_error.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace teskxml {

namespace {

/* Directories are only passed through. A file is opened without waiting, as it may turn out to be a FIFO, and without
   becoming the daemon's terminal. */
constexpr int DIRECTORY_FLAGS = O_PATH | O_DIRECTORY;
constexpr int FILE_FLAGS = O_RDONLY | O_NONBLOCK | O_NOCTTY;

#ifdef TESKXML_TOOLS
bool accept_any_owner = false;
#else
/* Nothing that runs in the monitor can turn the checks off. */
constexpr bool accept_any_owner = false;
#endif

/* Reason why nothing could be opened; the last row is for every other one. */
struct OpenFailure {
    int error;
    int code;
    const char* format;
};

constexpr OpenFailure OPEN_FAILURES[] = {
    { ENOENT, TESKXML_RET_FAIL_NOTFOUND, "%.*s does not exist" },
    { ELOOP, TESKXML_RET_FAIL_FILETYPE, "%.*s is a symbolic link" },
    { ENOTDIR, TESKXML_RET_FAIL_FILETYPE, "%.*s is no directory, where one is needed, or a symbolic link" },
    { ENXIO, TESKXML_RET_FAIL_FILETYPE, "%.*s is no regular file" }, /* a socket, or a device without a driver */
    { 0, TESKXML_RET_FAIL_READ, "%.*s cannot be opened: %m" },
};

/*
 * A descriptor, closed with its owner.
 */
class UniqueFd {
public:
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    void swap(UniqueFd& other)
    {
        std::swap(fd_, other.fd_);
    }
    [[nodiscard]] int get() const
    {
        return fd_;
    }

private:
    int fd_;
};

/*
 * The way down from the top directory to a file.
 */
class Descent {
public:
    explicit Descent(const char* path) : path_(path) {}

    /* Opens the file by steps. Result: 0, or a code as read_file's. */
    int go(size_t top);
    /* Reads all of the file that was opened. Result: 0, or a code as read_file's. */
    int read_all(Scratch& scratch, std::string_view& content);

private:
    int step(const char* name, int flags);
    int check_trust(mode_t type);
    [[nodiscard]] int open_failed() const;

    /* The path up to the current step, for a sentence. */
    [[nodiscard]] int shown() const
    {
        return static_cast<int>(end_);
    }
    [[nodiscard]] Place place() const
    {
        return { path_ };
    }

    const char* path_;
    size_t end_ = 0;          /* bytes of the path up to the current step */
    UniqueFd fd_{ AT_FDCWD }; /* of the current step */
    struct stat status_ = {};
};

int Descent::open_failed() const
{
    const int error = errno;
    const auto* row = std::ranges::find_if(
        OPEN_FAILURES, [error](const OpenFailure& one) { return one.error == error || one.error == 0; });

    errno = error;
    return fail(row->code, place(), row->format, shown(), path_);
}

int Descent::check_trust(mode_t type)
{
    if ((status_.st_mode & S_IFMT) != type) {
        return fail(TESKXML_RET_FAIL_FILETYPE, place(), "%.*s is no regular file", shown(), path_);
    }
    if (accept_any_owner) {
        return TESKXML_RET_SUCCESS;
    }
    if (status_.st_uid != 0) {
        return fail(TESKXML_RET_FAIL_UNTRUSTED, place(), "%.*s belongs to the user %u instead of root", shown(), path_,
                    status_.st_uid);
    }
    if ((status_.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return fail(TESKXML_RET_FAIL_UNTRUSTED, place(), "%.*s is writable by group or others (mode %04o)", shown(),
                    path_, status_.st_mode & 07777U);
    }
    return TESKXML_RET_SUCCESS;
}

/*
 * Opens a name in the current directory and looks at it.
 */
int Descent::step(const char* name, int flags)
{
    UniqueFd next(openat(fd_.get(), name, flags | O_NOFOLLOW | O_CLOEXEC));

    if (next.get() < 0) {
        return open_failed();
    }
    fd_.swap(next);
    if (fstat(fd_.get(), &status_) != 0) {
        return fail(TESKXML_RET_FAIL_READ, place(), "fstat failed: %m");
    }
    return check_trust((flags & O_DIRECTORY) != 0 ? S_IFDIR : S_IFREG);
}

int Descent::go(size_t top)
{
    char name[TESKXML_MAX_PATH + 1] = "/";

    if (top > 0) {
        *std::copy_n(path_, top, name) = '\0';
    }
    end_ = std::max<size_t>(top, 1);
    int result = step(name, DIRECTORY_FLAGS);

    for (const char* next = path_ + top; result == TESKXML_RET_SUCCESS && *next == '/';) {
        next++;
        const size_t length = std::strcspn(next, "/");
        *std::copy_n(next, length, name) = '\0';
        next += length;
        end_ = static_cast<size_t>(next - path_);

        if (length == 0) {
            result = fail(TESKXML_RET_FAIL_ARGUMENT, place(), "a \"/\" in the path has no name behind it");
        } else if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) {
            result = fail(TESKXML_RET_FAIL_ARGUMENT, place(), "\"%s\" in the path is refused", name);
        } else {
            result = step(name, *next == '/' ? DIRECTORY_FLAGS : FILE_FLAGS);
        }
    }
    return result;
}

/*
 * Reads the content by one call. A file that has another size by then is being written, and is not complete.
 */
int Descent::read_all(Scratch& scratch, std::string_view& content)
{
    if (status_.st_size > TESKXML_MAX_FILE) {
        return fail(TESKXML_RET_FAIL_LIMIT, place(), "%lld bytes, more than %d",
                    static_cast<long long>(status_.st_size), TESKXML_MAX_FILE);
    }
    const size_t size = static_cast<size_t>(status_.st_size);
    char* const data = static_cast<char*>(scratch.take(size + 1));
    if (data == nullptr) {
        return fail(TESKXML_RET_FAIL_MEMORY, place(), "out of memory");
    }
    ssize_t length = 0;
    do {
        length = read(fd_.get(), data, size + 1);
    } while (length < 0 && errno == EINTR);

    if (length < 0) {
        return fail(TESKXML_RET_FAIL_READ, place(), "read failed: %m");
    }
    if (static_cast<size_t>(length) != size) {
        return fail(TESKXML_RET_FAIL_READ, place(), "the file changed while it was read");
    }
    content = { data, size };
    return TESKXML_RET_SUCCESS;
}

} // namespace

int read_file(const char* path, size_t top, Scratch& scratch, std::string_view& content)
{
    Descent descent(path);
    const int result = descent.go(top);

    return result == TESKXML_RET_SUCCESS ? descent.read_all(scratch, content) : result;
}

} // namespace teskxml

#ifdef TESKXML_TOOLS
void teskxml_accept_untrusted(int accept)
{
    teskxml::accept_any_owner = accept != 0;
}
#endif
