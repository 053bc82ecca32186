/*
 * Rotation: <path> becomes <path>.1, that becomes <path>.2, and so on. One process at a time numbers the older files,
 * under a lock on a file of its own that is never renamed, <path>.lock. Nobody waits for that: if whoever has the lock
 * is held up, the full file is put aside by any other, as <path>.aside.<time>.<thread>, and numbered later. Each step is
 * one rename that cannot overwrite anything, so being killed between two of them leaves at most a gap in the numbers,
 * which the next rotation closes, or a file put aside, which it numbers.
 */
#include "log_file.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>

namespace tesklog {

static constexpr int NAME_LENGTH = PATH_LENGTH + 64; /* a path with a suffix */
static constexpr std::string_view ASIDE = ".aside.";

/* nanoseconds without another try for the lock after it was taken, unless the file is overdue */
static constexpr int64_t BUSY_INTERVAL = 2000000;

/* bytes beyond the limit that are left to the one who has the lock, and how they differ, so that not all act at once */
static constexpr off_t OVERDUE = 16384;
static constexpr off_t OVERDUE_STEP = 1024;
static constexpr off_t OVERDUE_STEPS = 16;

static constexpr int NUMBERINGS = 3;   /* each takes another process to put a file aside meanwhile */
static constexpr int ASIDES_MAX = 200; /* files put aside that are numbered at once: a writer must get on */
static constexpr int NAME_TRIES = 100; /* each takes a file of this name */

/* ---------------------------------------------------------------- lock ---- */

/*
 * Takes the lock if nobody has it, and gives it back.
 */
class File::RotateLock {
public:
    /* Out of line, as the path need not be on the stack afterwards. */
    __attribute__((noinline)) explicit RotateLock(File& file) : RotateLock(file, Path(file.path_)) {}
    ~RotateLock()
    {
        if (fd_.get() >= 0) {
            flock(fd_.get(), LOCK_UN); /* not by closing alone: a child forked meanwhile holds the same lock */
        }
    }
    RotateLock(const RotateLock&) = delete;
    RotateLock& operator=(const RotateLock&) = delete;

    /* 0, EWOULDBLOCK, or the errno for which the lock cannot be taken. */
    [[nodiscard]] int code() const
    {
        return code_;
    }

private:
    struct Path {
        explicit Path(const char* path)
        {
            Text made(text, Escape::none);
            made.format("%s.lock", path);
            made.close("");
        }
        char text[NAME_LENGTH];
    };

    RotateLock(File& file, const Path& path) : fd_(open_for_append(path.text), file.lock_fd_)
    {
        struct stat held = {};
        struct stat found = {};

        if (fd_.get() < 0 || flock(fd_.get(), LOCK_EX | LOCK_NB) != 0) {
            code_ = errno;
        } else if (fstat(fd_.get(), &held) != 0 || lstat(path.text, &found) != 0 || !is_same(held, found)) {
            code_ = EWOULDBLOCK; /* the lock file was removed meanwhile, so the next one may hold another */
        }
    }

    const Descriptor fd_;
    int code_ = 0;
};

/* ---------------------------------------------------------------- generations ---- */

/*
 * Makes the path of an older file.
 *   generation  1 is the newest of them
 */
const char* File::make_generation_path(int generation, char* buffer) const
{
    Text made(buffer, NAME_LENGTH, Escape::none);

    made.format("%s.%d", path_, generation);
    made.close("");
    return buffer;
}

bool File::generation_exists(int generation) const
{
    char name[NAME_LENGTH];
    struct stat found = {};

    return lstat(make_generation_path(generation, name), &found) == 0;
}

/*
 * Renames a file to a name that must be free.
 * Result: 0, EEXIST, or the errno.
 */
static int rename_free(const char* from, const char* to)
{
    struct stat found = {};
    int renamed = renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE);

    if (renamed != 0 && (errno == EINVAL || errno == ENOSYS)) {
        /* A file system that cannot promise it; the lock or the name has to do. */
        errno = EEXIST;
        renamed = lstat(to, &found) != 0 ? rename(from, to) : -1;
    }
    return renamed == 0 ? 0 : errno;
}

/*
 * Renames a generation to the next one. That it is gone is no failure: its place is free all the same.
 */
int File::shift_generation(int generation) const
{
    char from[NAME_LENGTH];
    char to[NAME_LENGTH];
    const int code = rename_free(make_generation_path(generation, from), make_generation_path(generation + 1, to));

    return code == ENOENT ? 0 : code;
}

int File::remove_generation(int generation) const
{
    char name[NAME_LENGTH];

    return unlink(make_generation_path(generation, name)) == 0 || errno == ENOENT ? 0 : errno;
}

/*
 * Makes room for a new first generation: moves those up to the first free number by one. If none is free, the oldest is
 * removed; where that is not a file, the oldest below it.
 */
int File::make_room() const
{
    int free = 1;
    int code = 0;

    while (free < generations_ && generation_exists(free)) {
        free++;
    }
    if (free == generations_) {
        code = remove_generation(free);
    }
    while (code != 0 && free > 1) {
        free--;
        code = remove_generation(free);
    }
    for (; free > 1 && code == 0; free--) {
        code = shift_generation(free - 1);
    }
    return code;
}

void File::prune() const
{
    char name[NAME_LENGTH];
    int64_t generation = generations_ + int64_t{ 1 };

    while (generation <= INT_MAX && unlink(make_generation_path(static_cast<int>(generation), name)) == 0) {
        generation++;
    }
}

/* ---------------------------------------------------------------- files put aside ---- */

const char* File::make_aside_path(const Aside& aside, char* buffer) const
{
    Text made(buffer, NAME_LENGTH, Escape::none);

    made.format("%s%s%lu.%lu", path_, ASIDE.data(), aside.time, aside.thread);
    made.close("");
    return buffer;
}

/*
 * Takes a number from the start of a text, as make_aside_path writes it.
 */
static bool take_number(std::string_view& text, uint64_t& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool taken = error == std::errc() && text[0] != '0';

    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return taken;
}

static bool take_word(std::string_view& text, std::string_view word)
{
    const bool taken = text.starts_with(word);

    text.remove_prefix(taken ? word.size() : 0);
    return taken;
}

bool File::parse_aside(std::string_view name, Aside& aside) const
{
    return take_word(name, strrchr(path_, '/') + 1) && take_word(name, ASIDE) && take_number(name, aside.time) &&
           take_word(name, ".") && take_number(name, aside.thread) && name.empty();
}

/*
 * Finds the file that was put aside first. By the kernel's own call, as readdir() allocates.
 * Result: how many there are.
 */
__attribute__((noinline)) int File::find_oldest_aside(Aside& oldest)
{
    alignas(struct dirent64) char entries[1024];
    char directory[PATH_LENGTH];
    const Descriptor fd(::open(make_directory_path(directory), O_RDONLY | O_DIRECTORY | O_CLOEXEC), next_fd_);
    int count = 0;
    ssize_t length = 0;

    while (fd.get() >= 0 && (length = getdents64(fd.get(), entries, sizeof(entries))) > 0) {
        for (ssize_t at = 0; at < length;) {
            const auto* entry = reinterpret_cast<const struct dirent64*>(entries + at);
            Aside aside = {};
            if (parse_aside(entry->d_name, aside)) {
                oldest = count == 0 || aside.time < oldest.time ? aside : oldest;
                count++;
            }
            at += entry->d_reclen;
        }
    }
    next_fd_ = -1; /* a program may have the directory open, so this number is not kept */
    return count;
}

__attribute__((noinline)) int File::remove_aside(const Aside& aside) const
{
    char name[NAME_LENGTH];

    return unlink(make_aside_path(aside, name)) == 0 || errno == ENOENT ? 0 : errno;
}

/*
 * Makes a file that was put aside the first generation. Out of line, as its names need not be on the stack while the
 * directory is read.
 */
__attribute__((noinline)) int File::number_aside(const Aside& aside) const
{
    char from[NAME_LENGTH];
    char first[NAME_LENGTH];
    const int code = rename_free(make_aside_path(aside, from), make_generation_path(1, first));

    return code == ENOENT ? 0 : code; /* it was put back */
}

/*
 * Numbers the files that were put aside, the oldest first. For the one who has the lock. If there are more than may be
 * kept, the oldest would only be renamed until it is removed.
 * Result: 0, EWOULDBLOCK if there are more than can be numbered now, or the errno.
 */
int File::number_asides_locked()
{
    Aside aside = {};
    int code = 0;
    int left = find_oldest_aside(aside);

    for (int count = 0; code == 0 && left > 0; count++) {
        if (count >= ASIDES_MAX) {
            code = EWOULDBLOCK;
        } else if (left > generations_) {
            code = remove_aside(aside);
        } else {
            code = make_room();
            code = code == 0 ? number_aside(aside) : code;
        }
        left = find_oldest_aside(aside);
    }
    return code;
}

void File::number_asides()
{
    Aside aside = {};
    int code = 0;

    /* Whoever puts a file aside while we have the lock counts on us, so it is looked for once more without the lock. */
    for (int tries = 0; code == 0 && tries < NUMBERINGS && find_oldest_aside(aside) > 0; tries++) {
        const RotateLock lock(*this);
        code = lock.code() == 0 ? number_asides_locked() : lock.code();
    }
}

/* ---------------------------------------------------------------- rotating ---- */

/*
 * Renames our file, if the path still leads to it. Another process may do the same between the question and the rename,
 * which then takes a file that is not full; that one is put back unless its place is taken by now.
 *   to  a name that is free, or that of the first generation
 */
int File::take(const struct stat& own, const char* to) const
{
    struct stat taken = {};
    const int code = is_current(own) ? rename_free(path_, to) : ENOENT;

    if (code == 0 && lstat(to, &taken) == 0 && !is_same(taken, own)) {
        renameat2(AT_FDCWD, to, AT_FDCWD, path_, RENAME_NOREPLACE); /* not where that could overwrite a new file */
    }
    return code == ENOENT ? 0 : code;
}

bool File::is_overdue(const struct stat& found, const Record& record) const
{
    return found.st_size >= limit_ + OVERDUE + record.self.pid % OVERDUE_STEPS * OVERDUE_STEP;
}

__attribute__((noinline)) int File::put_aside(const struct stat& own, const Record& record) const
{
    char name[NAME_LENGTH];
    Aside aside = { static_cast<uint64_t>(record.now), static_cast<uint64_t>(record.self.tid) };
    int code = EEXIST;

    for (int tries = 0; code == EEXIST && tries < NAME_TRIES; tries++, aside.time++) {
        code = take(own, make_aside_path(aside, name));
    }
    return code;
}

/*
 * Makes our file the first generation, for which there is room. For the one who has the lock.
 */
__attribute__((noinline)) int File::take_first(const struct stat& own) const
{
    char first[NAME_LENGTH];

    return take(own, make_generation_path(1, first));
}

/*
 * Rotates our file, which is full. As long as it is not overdue, that is left to the one who has the lock: of several
 * who rename at once, all but one would take a file that is not full.
 */
int File::rotate_full(const struct stat& own, const Record& record)
{
    const bool overdue = is_overdue(own, record);

    if (!overdue && !is_due(busy_, record.now, BUSY_INTERVAL)) {
        return 0;
    }
    const RotateLock lock(*this);
    int code = lock.code() == 0 ? number_asides_locked() : lock.code();
    if (code == 0) {
        code = make_room();
        code = code == 0 ? take_first(own) : code;
    } else if (code == EWOULDBLOCK) {
        busy_ = record.now;
        code = overdue ? put_aside(own, record) : 0;
    }
    return code == 0 ? follow() : code;
}

int File::rotate(const Record& record)
{
    struct stat own = {};
    int code = follow();

    if (code == 0 && fstat(fd_, &own) == 0 && own.st_size >= limit_) {
        code = rotate_full(own, record);
        if (code == 0) {
            number_asides();
        }
    }
    return code;
}

} // namespace tesklog
