/*
 * The file that a log is written to at present: opening it, and following its path when another file takes its place.
 */
#include "log_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>

namespace tesklog {

static constexpr mode_t FILE_MODE = 0640;
static constexpr mode_t DIRECTORY_MODE = 0750;
static constexpr int OPEN_TRIES = 100; /* each takes another process's rotation to fail */
static constexpr int HIGH_FD = 100;    /* first number for a descriptor that stays open */

/*
 * Begins a new count of dropped records. Of processes that share it, the first that can write reports it, so that
 * nothing is reported twice after a fork, nor forgotten with a process that ended.
 */
void File::restart_count()
{
    if (lost_ != nullptr && lost_ != &unshared_) {
        munmap(lost_, sizeof(*lost_));
    }
    unshared_ = 0;
    void* const shared = mmap(nullptr, sizeof(*lost_), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    lost_ = shared != MAP_FAILED ? static_cast<Count*>(shared) : &unshared_;
}

int File::prepare(const char* directory, const char* ident, const char* suffix, off_t size, int generations,
                  Notice notice)
{
    char buffer[PATH_LENGTH];
    Text made(buffer, Escape::none);

    made.format("%s/%s%s", directory, ident, suffix);
    made.close("");
    if (made.view() != path_) {
        restart_count();
        memcpy(path_, buffer, made.view().size() + 1);
    }
    size_ = size;
    generations_ = generations;
    notice_ = notice;
    owner_ = 0;
    lock_fd_ = -1;
    next_fd_ = -1;
    detour_fd_ = -1;
    fd_ = -1;
    full_ = false;
    unreachable_ = false;
    abandoned_ = 0;
    learn_limit();
    room_ = 0;
    looked_ = 0;
    measured_ = 0;
    failed_ = 0;
    busy_ = 0;
    refused_ = 0;
    return made.cut() ? ENAMETOOLONG : 0;
}

/*
 * Learns what the process may write to a file. Its limit may change at any time. Owner only.
 */
void File::learn_limit()
{
    struct rlimit size = {};
    const bool limited = getrlimit(RLIMIT_FSIZE, &size) == 0 && size.rlim_cur != RLIM_INFINITY;
    off_t limit = size_;

    if (limited && size.rlim_cur / 2 < static_cast<rlim_t>(limit)) {
        limit = static_cast<off_t>(size.rlim_cur / 2); /* a limit that is never reached would end the log */
    }
    size_limited_ = limited;
    limit_ = limit;
}

/* ---------------------------------------------------------------- opening ---- */

int above_standard(int fd)
{
    int above = fd;

    if (fd >= 0 && fd <= STDERR_FILENO) {
        above = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        const int error = errno;
        close(fd);
        errno = error;
    }
    return above;
}

/*
 * Creates the directory that a path lies in; the directory above that one must exist.
 */
static int make_directory(const char* path)
{
    char directory[PATH_LENGTH];
    const char* const end = strrchr(path, '/');
    const size_t length = end != nullptr ? static_cast<size_t>(end - path) : 0;
    int made = -1;

    if (length > 0 && length < sizeof(directory)) {
        memcpy(directory, path, length);
        directory[length] = '\0';
        made = mkdir(directory, DIRECTORY_MODE);
    }
    return made;
}

/*
 * Opens or creates a file. The mode is set by who creates it and by nobody else: an operator may have changed it since.
 */
static int open_or_create(const char* path)
{
    /* non-blocking, as it could be a pipe that nobody reads; readable, to find a line that was cut off */
    static constexpr int FLAGS = O_RDWR | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
    int fd = open(path, FLAGS);

    if (fd < 0 && errno == ENOENT) {
        fd = open(path, FLAGS | O_CREAT | O_EXCL, FILE_MODE);
        /* past the umask; a failure leaves a mode that only refuses more */
        if (fd >= 0) {
            fchmod(fd, FILE_MODE);
        }
    }
    return fd;
}

/*
 * Tells whether opening is worth another try, by the errno of the last one: the directory was missing and is there now,
 * or another process was faster in creating the file, or in renaming it between our two questions.
 */
static bool is_worth_a_try(const char* path)
{
    return errno == EEXIST || (errno == ENOENT && (make_directory(path) == 0 || errno == EEXIST));
}

int open_for_append(const char* path)
{
    struct stat found = {};
    int fd = open_or_create(path);

    for (int tries = 1; fd < 0 && tries < OPEN_TRIES && is_worth_a_try(path); tries++) {
        fd = open_or_create(path);
    }
    if (fd >= 0 && (fstat(fd, &found) != 0 || !S_ISREG(found.st_mode))) {
        close(fd);
        errno = ENOTSUP;
        fd = -1;
    }
    return above_standard(fd);
}

const char* File::make_directory_path(char* buffer) const
{
    const auto length = static_cast<size_t>(strrchr(path_, '/') - path_);

    memcpy(buffer, path_, length);
    buffer[length] = '\0';
    return buffer;
}

/* ---------------------------------------------------------------- whose descriptor it is ---- */

/*
 * Tells whether a descriptor is that of a file by the name behind it. That may have been renamed or removed since, so
 * what follows the path's last part does not count; nor does the directory, whose path may contain links.
 */
static bool is_named(int fd, const char* path)
{
    char buffer[64];
    char target[PATH_LENGTH + 64];
    Text link(buffer, Escape::none);

    link.format("/proc/self/fd/%d", fd);
    link.close("");
    const ssize_t length = readlink(buffer, target, sizeof(target));
    std::string_view name(target, length > 0 ? static_cast<size_t>(length) : 0);
    name.remove_prefix(name.rfind('/') + 1);
    return name.starts_with(strrchr(path, '/') + 1);
}

static bool is_directory(int fd, const char* path)
{
    struct stat own = {};
    struct stat found = {};

    return fstat(fd, &own) == 0 && S_ISDIR(own.st_mode) && stat(path, &found) == 0 && is_same(own, found);
}

/*
 * Closes a descriptor that was open for a moment when the process was forked. The number may be a later one's or an
 * earlier one's than the descriptors themselves, and somebody else's by now.
 */
void File::dispose(std::atomic<int>& note) const
{
    char directory[PATH_LENGTH];
    const int fd = note.exchange(-1);

    const int flags = fd >= 0 && fd != fd_ ? fcntl(fd, F_GETFL) : -1;

    if (flags >= 0 &&
        (((flags & O_APPEND) != 0 && is_named(fd, path_)) || is_directory(fd, make_directory_path(directory)))) {
        ::close(fd);
    }
}

bool File::enter(unsigned epoch)
{
    unsigned owner = owner_.load(std::memory_order_relaxed);
    const bool entered = owner != epoch && owner_.compare_exchange_strong(owner, epoch, std::memory_order_acquire);

    if (entered && noter_.exchange(epoch) != epoch) {
        for (std::atomic<int>* note : { &lock_fd_, &next_fd_, &detour_fd_ }) {
            dispose(*note);
        }
    }
    return entered;
}

void File::leave()
{
    owner_.store(0, std::memory_order_release);
}

/*
 * Tells whether our descriptor still is our file. A program that closes all descriptors takes it from us, and the next
 * file it opens may get the number. The file that we noted may be another one in a child that was forked while it
 * changed, so its name counts as well.
 *   own  out: what our descriptor is
 */
bool File::is_ours(struct stat& own) const
{
    return fstat(fd_, &own) == 0 && ((own.st_dev == device_ && own.st_ino == inode_) || is_named(fd_, path_));
}

/*
 * Tells whether the path still leads to a file.
 *   own  the file, as fstat found it
 */
bool File::is_current(const struct stat& own) const
{
    struct stat found = {};

    return lstat(path_, &found) == 0 && is_same(found, own);
}

/* ---------------------------------------------------------------- following ---- */

/*
 * Writes to the file behind the path from now on, if that is another one. Owner only.
 * Result: 0, or the errno for which there is nothing to write to behind the path.
 */
int File::follow()
{
    struct stat own = {};
    const bool ours = is_ours(own);
    const bool gone = !ours || own.st_nlink == 0; /* as long as the old file has a name, nothing in it is lost */
    int code = 0;

    if (!ours || !is_current(own)) {
        const int fd = open_for_append(path_);
        code = fd < 0 ? errno : follow_to(fd, ours, gone);
        if (fd < 0) {
            abandoned_ += gone && !unreachable_ ? 1 : 0;
            unreachable_ = gone;
        }
    }
    if (code == 0) {
        unreachable_ = false;
    }
    return code;
}

/*
 *   fd    the file behind the path
 *   ours  our descriptor is still that of our file
 *   gone  what was written to that file last is lost
 */
int File::follow_to(int fd, bool ours, bool gone)
{
    struct stat found = {};
    Descriptor next(fd, next_fd_);

    if (fstat(fd, &found) != 0) {
        return errno;
    }
    if (ours) {
        /* the number stays, so that a thread in the middle of a write never has another file under its hands */
        if (dup3(fd, fd_, O_CLOEXEC) < 0) {
            return errno;
        }
    } else {
        /* a number that programs seldom come to: one that closes ours unknowingly opens its next file under the lowest
           free number, and we would write to that until the next look */
        const int high = fcntl(fd, F_DUPFD_CLOEXEC, HIGH_FD);
        fd_ = high >= 0 ? high : fd;
        if (high < 0) {
            next.keep();
        }
    }
    abandoned_ += gone ? 1 : 0;
    room_ = 0;
    busy_ = 0;
    full_ = false;
    device_ = found.st_dev;
    inode_ = found.st_ino;
    return 0;
}

} // namespace tesklog
