/*
 * Appending to a shared file. A record costs one write, and sometimes a question for the offset, which after an
 * appending write is the end of the file; only who finds the file at its limit, or has not looked for a second, looks
 * at the path. That is enough: a file that was rotated away stays at its limit, so whoever still writes to it finds
 * out. The question costs as much as the write. It is left out as long as the writer has used up only a small part of
 * the room that it last saw, and that was just now: then the file cannot be full, nor can it have gone through all
 * generations, unless these are so small that the question is asked each time. Who then finds its file without a name
 * writes its line once more.
 */
#include "log_file.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>

namespace tesklog {

static constexpr int END_LOOKS = 10;                 /* milliseconds in which another process's write will have ended */
static constexpr int64_t LOOK_INTERVAL = 1000000000; /* nanoseconds */
static constexpr int64_t MEASURE_INTERVAL = 1000000; /* nanoseconds */
static constexpr int64_t ROOM_MAX = 16384;           /* bytes */
static constexpr int64_t ROOM_PART = 16;      /* so many writers at once do not grow the file beyond its limit unseen */
static constexpr int64_t SMALL_MAX = 4194304; /* bytes of all generations that could be written between two questions */
static constexpr int WRITE_TRIES = 10;        /* each takes a rotation through all generations to fail */

/* ---------------------------------------------------------------- bytes ---- */

/*
 * Writes under a limit on file sizes, whose signal would end a process that does not expect it: the signal is kept from
 * the calling thread, and taken away if it came from us. Whoever ignores it or waits for it is not disturbed.
 */
static ssize_t write_guarded(int fd, std::string_view bytes)
{
    static constexpr struct timespec NOW = { 0, 0 };
    sigset_t size_signal;
    sigset_t before;

    sigemptyset(&size_signal);
    sigaddset(&size_signal, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &size_signal, &before);
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    const int error = errno;
    if (written < 0 && error == EFBIG && sigismember(&before, SIGXFSZ) == 0) {
        sigtimedwait(&size_signal, nullptr, &NOW);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return written;
}

ssize_t File::write_bytes(int fd, std::string_view bytes) const
{
    return size_limited_.load(std::memory_order_relaxed) ? write_guarded(fd, bytes)
                                                         : ::write(fd, bytes.data(), bytes.size());
}

/*
 * Ends a line that broke off, in the place of its last byte, as there is no room for one more; else the next line of
 * another process would be glued to it. The offset of the descriptor is the end of a write, ours or that of a process
 * which shares it; so what stands before it is a line end or the end of a fragment. An appending descriptor cannot
 * write there, so it takes another one.
 *   broken  the appending descriptor; if it is the file's own, by the owner only
 * Result: true if the line is ended now.
 */
bool File::mend(int broken) const
{
    struct stat own = {};
    struct stat found = {};
    char last = '\n';
    const off_t end = lseek(broken, 0, SEEK_CUR);
    const Descriptor file(::open(path_, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK));
    const bool same = fstat(file.get(), &found) == 0 && fstat(broken, &own) == 0 && is_same(own, found);

    return same && end > 0 && pread(file.get(), &last, 1, end - 1) == 1 &&
           (last == '\n' || pwrite(file.get(), "\n", 1, end - 1) == 1);
}

/*
 * Appends a line in one write, so that it stays in one piece among the other writers'.
 */
bool File::put(const Record& record, std::string_view line)
{
    const ssize_t written = write_bytes(fd_.load(std::memory_order_relaxed), line);
    const bool whole = written == static_cast<ssize_t>(line.size());

    if (written < 0 && errno == EBADF) {
        looked_.store(0, std::memory_order_relaxed); /* closed behind our back: look with the next record */
    } else if (written > 0 && !whole) {
        if (const Owner owner(*this, record.self.epoch); owner) {
            mend(fd_);
        }
    }
    return whole;
}

/* ---------------------------------------------------------------- lost records ---- */

/*
 * Tells whether the file ends in the middle of a line, as a full disk or a crash leaves it.
 */
bool File::is_ragged() const
{
    struct stat own = {};
    char last = '\n';

    return fstat(fd_, &own) == 0 && own.st_size > 0 && pread(fd_, &last, 1, own.st_size - 1) == 1 && last != '\n';
}

/*
 * Tells whether the file ends in the middle of a line for good. Another process's line can be seen while it is being
 * appended, so this waits a little; only for log_init, and only if there is something to wait for.
 */
bool File::stays_ragged() const
{
    static constexpr struct timespec MILLISECOND = { 0, 1000000 };
    bool ragged = is_ragged();

    for (int looks = 0; ragged && looks < END_LOOKS; looks++) {
        nanosleep(&MILLISECOND, nullptr);
        ragged = is_ragged();
    }
    return ragged;
}

/*
 * Reports the records that were dropped.
 * Result: true if there are none left to report.
 */
bool File::report(const Record& record)
{
    char buffer[512];
    const unsigned long lost = lost_->exchange(0);
    bool reported = true;

    if (lost > 0) {
        Text line(buffer, Escape::line);
        line.raw(is_ragged() ? "\n" : "");
        notice_(line, record, lost);
        line.close("\n");
        reported = put(record, line.view());
        *lost_ += reported ? 0 : lost;
    }
    return reported;
}

/* ---------------------------------------------------------------- size and path ---- */

/*
 * Tells whether the file has reached its limit, after a line was appended to it. Two threads that take from the room at
 * once may take too little, which is no more than if there were one writer more.
 */
bool File::is_full(int64_t now, size_t written)
{
    int64_t room = room_.load(std::memory_order_relaxed) - static_cast<int64_t>(written);
    bool full = false;

    if (room <= 0 || is_due(measured_, now, MEASURE_INTERVAL)) {
        const int64_t limit = limit_.load(std::memory_order_relaxed);
        room = limit - lseek(fd_.load(std::memory_order_relaxed), 0, SEEK_CUR);
        full = room <= 0;
        room = limit <= SMALL_MAX / (generations_ + int64_t{ 1 }) ? 0 : std::min(room / ROOM_PART, ROOM_MAX);
        measured_.store(now, std::memory_order_relaxed);
        full_.store(full, std::memory_order_relaxed);
    }
    room_.store(room, std::memory_order_relaxed);
    return full;
}

int File::open(const Self& self)
{
    const Owner owner(*this, self.epoch);
    const int code = owner ? follow() : EBUSY;

    if (code == 0) {
        if (stays_ragged()) {
            write_bytes(fd_, "\n");
        }
        number_asides();
        prune();
    }
    return code;
}

/*
 * Looks what is behind the path now.
 */
void File::look(const Record& record)
{
    if (const Owner owner(*this, record.self.epoch); owner) {
        looked_.store(record.now, std::memory_order_relaxed);
        learn_limit();
        follow();
    }
}

/*
 * Rotates the file if what was appended last has filled it.
 */
void File::bound(const Record& record, size_t written)
{
    if (!is_full(record.now, written) || !is_due(failed_, record.now, LOOK_INTERVAL)) {
        return;
    }
    if (const Owner owner(*this, record.self.epoch); owner) {
        const int code = rotate(record);
        if (code != 0) {
            failed_.store(record.now, std::memory_order_relaxed);
        }
        if (code == 0 || refused_.load(std::memory_order_relaxed) == 0) {
            refused_.store(code, std::memory_order_relaxed);
        }
    }
}

/* ---------------------------------------------------------------- records ---- */

/*
 * Tells whether our file is full while another thread of this process rotates it, or while this one is interrupted in
 * that. It may be held up for long.
 */
bool File::needs_detour(const Record& record) const
{
    return full_.load(std::memory_order_relaxed) && refused_.load(std::memory_order_relaxed) == 0 &&
           owner_.load(std::memory_order_relaxed) == record.self.epoch;
}

/*
 * Appends a line to the file behind the path through a descriptor of its own.
 */
bool File::detour(const Record& record, std::string_view line)
{
    struct stat found = {};

    if (stat(path_, &found) == 0 && is_overdue(found, record)) {
        put_aside(found, record);
    }
    const int fd = open_for_append(path_);
    const Descriptor file(fd, detour_fd_);
    const ssize_t written = fd >= 0 ? write_bytes(fd, line) : -1;
    const bool whole = written == static_cast<ssize_t>(line.size());
    if (written > 0 && !whole) {
        mend(fd);
    }
    return whole;
}

/*
 * Appends a line, preceded by a notice if one is due, and rotates the file if it is full.
 */
bool File::append(const Record& record, std::string_view line)
{
    bool appended = false;

    if (needs_detour(record)) {
        appended = detour(record, line);
    } else if (!unreachable_.load(std::memory_order_relaxed)) {
        appended = (lost_->load(std::memory_order_relaxed) == 0 || report(record)) && put(record, line);
        if (appended) {
            bound(record, line.size());
        }
    }
    return appended;
}

void File::write(const Record& record, const Text& line)
{
    bool appended = false;
    bool kept = false;

    if (is_due(looked_, record.now, LOOK_INTERVAL)) {
        look(record);
    }
    for (int tries = 0; tries == 0 || (appended && !kept && tries < WRITE_TRIES); tries++) {
        const unsigned abandoned = abandoned_.load(std::memory_order_relaxed);
        appended = append(record, line.view());
        kept = appended && abandoned == abandoned_.load(std::memory_order_relaxed);
    }
    if (!kept) {
        ++*lost_;
    }
}

int File::take_refusal()
{
    int code = refused_.load(std::memory_order_relaxed);

    return code > 0 && refused_.compare_exchange_strong(code, -code) ? code : 0;
}

void File::close(const Record& record)
{
    struct stat own = {};

    if (lost_->load(std::memory_order_relaxed) > 0) {
        look(record);
        if (!unreachable_) {
            report(record);
        }
    }
    if (is_ours(own)) {
        ::close(fd_);
    }
    fd_ = -1;
}

} // namespace tesklog
