/*
 * A file that several processes append lines to, and that is rotated when it has grown to its limit.
 */
#ifndef LOG_FILE_H
#define LOG_FILE_H

#include "log_descriptor.h"
#include "log_record.h"

#include <atomic>
#include <sys/stat.h>

namespace tesklog {

/*
 * Makes the line that says that records are missing.
 *   text    out: the line, without its end
 *   record  the record that is about to follow
 *   lost    how many are missing
 */
using Notice = void (*)(Text& text, const Record& record, unsigned long lost);

/*
 * A count in memory that forked processes share.
 */
using Count = std::atomic<unsigned long>;

static_assert(Count::is_always_lock_free, "processes share it, and signal handlers use it");

/*
 * What tells the files that were put aside from each other. Their order is that of the times.
 */
struct Aside {
    uint64_t time; /* nanoseconds since 1970 */
    uint64_t thread;
};

/*
 * The file as one process sees it. It is never destroyed, and all zero until it is prepared, so that it costs nothing
 * until then.
 */
class File {
public:
    /*
     * Prepares the file without opening it, which the first record does. If the object was last used for the same path,
     * what could not be reported then is still due; else it is forgotten. Not for a signal handler.
     *   directory, ident, suffix  the path's parts: <directory>/<ident><suffix>
     *   size         bytes at which the file is rotated, as far as the process may write that many
     *   generations  older files kept, at least 1
     * Result: 0, or ENAMETOOLONG.
     */
    int prepare(const char* directory, const char* ident, const char* suffix, off_t size, int generations,
                Notice notice);

    /*
     * Opens the file at once, ends a line that a crash left unfinished, numbers files that were put aside, and removes
     * older files above the number to keep.
     * Result: 0, or the errno; the first record, and after that one in a second, tries again.
     */
    int open(const Self& self);

    /*
     * Appends a line. What cannot be written is dropped and counted, and a notice precedes the next line that can.
     * Never waits for another process. For any thread, signal handler and forked child; changes errno.
     *   record  time and writer
     *   line    the line with its end
     */
    void write(const Record& record, const Text& line);

    /*
     * Tells once that rotation began to fail, to the first caller after that. For any thread, signal handler and forked
     * child.
     * Result: the errno for which the file cannot be rotated; 0: it can, or that was told already.
     */
    int take_refusal();

    /*
     * Reports what was dropped, if that is possible now, and gives the descriptor back. Nobody else may be using the
     * file.
     *   record  time and writer of the report
     */
    void close(const Record& record);

    [[nodiscard]] const char* path() const
    {
        return path_;
    }

private:
    class Owner;
    class RotateLock;

    /* log_file.cpp: who follows, and to what */
    bool enter(unsigned epoch);
    void leave();
    void dispose(std::atomic<int>& note) const;
    void restart_count();
    void learn_limit();
    bool is_ours(struct stat& own) const;
    bool is_current(const struct stat& own) const;
    int follow();
    int follow_to(int fd, bool ours, bool gone);
    const char* make_directory_path(char* buffer) const;

    /* log_append.cpp: writing */
    ssize_t write_bytes(int fd, std::string_view bytes) const;
    bool put(const Record& record, std::string_view line);
    bool append(const Record& record, std::string_view line);
    bool needs_detour(const Record& record) const;
    bool detour(const Record& record, std::string_view line);
    bool mend(int broken) const;
    bool is_ragged() const;
    bool stays_ragged() const;
    bool report(const Record& record);
    bool is_full(int64_t now, size_t written);
    void look(const Record& record);
    void bound(const Record& record, size_t written);

    /* log_rotate.cpp: rotating, by the owner only unless said otherwise */

    /*
     * Rotates the file if it is still the one behind the path and has reached its limit; else follows.
     * Result: 0, or the errno for which it could not be rotated.
     */
    int rotate(const Record& record);
    int rotate_full(const struct stat& own, const Record& record);
    int take_first(const struct stat& own) const;
    int take(const struct stat& own, const char* to) const;

    /* Takes a file out of the way without a lock, if the path still leads to it. It is numbered later. Any thread. */
    int put_aside(const struct stat& own, const Record& record) const;

    /* Tells whether a file has grown so far beyond its limit that whoever has the lock must be held up. Any thread. */
    bool is_overdue(const struct stat& found, const Record& record) const;

    /* Numbers the files that were put aside in rotations, unless another process is at it. */
    void number_asides();
    int number_asides_locked();
    int number_aside(const Aside& aside) const;
    int remove_aside(const Aside& aside) const;
    int find_oldest_aside(Aside& oldest);
    bool parse_aside(std::string_view name, Aside& aside) const;
    const char* make_aside_path(const Aside& aside, char* buffer) const;

    int make_room() const;
    int shift_generation(int generation) const;
    int remove_generation(int generation) const;
    bool generation_exists(int generation) const;
    const char* make_generation_path(int generation, char* buffer) const;

    /* Removes the older files that a larger number of them left behind, up to the first gap. */
    void prune() const;

    /* Set by prepare, and unchanged as long as the file is in use. */
    char path_[PATH_LENGTH] = {};
    off_t size_ = 0;
    int generations_ = 0;
    Notice notice_ = nullptr;
    Count* lost_ =
        nullptr;     /* records dropped and not reported yet, by this process and those it shares the count with */
    Count unshared_; /* in use as long as there is no memory for a shared one */

    std::atomic<unsigned> owner_; /* epoch of the process in which somebody follows or rotates; 0: nobody */
    std::atomic<unsigned> noter_; /* epoch of the process that noted the three below */
    std::atomic<int> lock_fd_;    /* the last one of the owner; -1: none */
    std::atomic<int> next_fd_;    /* any other that the owner had open last */
    std::atomic<int> detour_fd_;  /* the last one of those who write to another file meanwhile */
    std::atomic<dev_t> device_;   /* the file behind fd_; changed by the owner only, which a fork may overtake */
    std::atomic<ino_t> inode_;
    std::atomic<int> fd_;             /* -1: none yet. The number stays when the file behind it changes */
    std::atomic<bool> full_;          /* the file behind fd_ was at its limit at the last look at its size */
    std::atomic<bool> unreachable_;   /* there is no file whose name would lead to what is written */
    std::atomic<unsigned> abandoned_; /* how often a file was left that has no name, or is not ours */
    std::atomic<bool> size_limited_;  /* at the last look the process had a limit on file sizes, which raises SIGXFSZ */
    std::atomic<off_t> limit_;        /* bytes at which the file is rotated */
    std::atomic<int64_t> room_;       /* bytes that may be written before the size is looked at */
    /* Times as in Record::now: */
    std::atomic<int64_t> looked_;   /* the last look at the path */
    std::atomic<int64_t> measured_; /* the last look at the size */
    std::atomic<int64_t> failed_;   /* the last rotation that failed */
    std::atomic<int64_t> busy_;     /* the last try for a lock that was taken */
    std::atomic<int> refused_;      /* errno of the last rotation; negative once take_refusal has told it */
};

/*
 * Makes the calling thread the only one in this process that follows or rotates, until it leaves. It never waits:
 * whoever does not get in, be it another thread or a signal handler above the one that is in, writes to the file that
 * is open, or on a detour. An owner from before a fork is not here any more; the descriptors that others had open for
 * the moment are closed.
 */
class File::Owner {
public:
    /*
     *   epoch  Self::epoch of the caller
     */
    Owner(File& file, unsigned epoch) : file_(file), entered_(file.enter(epoch)) {}
    ~Owner()
    {
        if (entered_) {
            file_.leave();
        }
    }
    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;

    explicit operator bool() const
    {
        return entered_;
    }

private:
    File& file_;
    const bool entered_;
};

/* ---------------------------------------------------------------- between log_file.cpp and its users ---- */

/*
 * Opens a regular file for appending and creates it with mode 0640, and its directory with it, if it is missing.
 * Refuses a symbolic link and anything else that is not a file.
 * Result: the descriptor, above 2, or -1 with errno.
 */
int open_for_append(const char* path);

/*
 * Tells whether two looks found the same file.
 */
inline bool is_same(const struct stat& one, const struct stat& other)
{
    return one.st_ino == other.st_ino && one.st_dev == other.st_dev;
}

/*
 * Tells whether an interval has passed.
 *   last, now, interval  nanoseconds
 */
inline bool is_due(const std::atomic<int64_t>& last, int64_t now, int64_t interval)
{
    const int64_t passed = now - last.load(std::memory_order_relaxed);

    return passed >= interval || passed < 0; /* less than nothing: the clock was set back */
}

} // namespace tesklog

#endif
