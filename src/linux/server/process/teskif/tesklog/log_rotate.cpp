/*
 * Rotation: <path> becomes <path>.1, that becomes <path>.2, and so on. One process at a time numbers the older files,
 * under a lock on a file of its own that is never renamed, <path>.lock. Nobody waits for that: if whoever has
 * the lock is held up, the full file is put aside by any other, as <path>.aside.<time>.<thread>, and numbered later. Each
 * step is one rename that cannot overwrite anything, so being killed between two of them leaves at most a gap in the
 * numbers, which the next rotation closes, or a file put aside, which it numbers.
 */
#include "log_file.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <unistd.h>

enum __log_rotate_length__ { LOG_NAME_LEN = LOG_PATH_LEN + 32 }; /* a path with a suffix */

/* nanoseconds without another try for the lock after it was taken, unless the file is overdue */
static constexpr int64_t gbusyinterval = 2000000;

/* bytes beyond the limit that are left to the one who has the lock, and how they differ, so that not all act at once */
static constexpr off_t goverdue = 16384;
static constexpr off_t goverduestep = 1024;
static constexpr off_t goverduesteps = 16;

static constexpr char gaside[] = ".aside.";
static constexpr int gnumberings = 10;  /* each takes another process to put a file aside meanwhile */
static constexpr int gasidesmax = 1000; /* files put aside that are numbered at once; the next one goes on */
static constexpr int gnametries = 100;  /* each takes a file of this name */

/*
 * Makes the path of an older file.
 *   ngeneration  1 is the newest of them, 0 the file itself
 */
static const char* log_generation_path(const LOG_FILE* pfile, int ngeneration, char* pname)
{
    LOG_TEXT name = {};

    log_text_open(&name, pname, LOG_NAME_LEN, LOG_ESC_NONE);
    log_text_format(&name, "%s", pfile->szpath);
    if (ngeneration > 0) {
        log_text_format(&name, ".%d", ngeneration);
    }
    log_text_close(&name, "");
    return pname;
}

static bool log_generation_exists(const LOG_FILE* pfile, int ngeneration)
{
    char szname[LOG_NAME_LEN];
    struct stat found = {};

    return lstat(log_generation_path(pfile, ngeneration, szname), &found) == 0;
}

/*
 * Renames a file to a name that must be free.
 * Result: 0, EEXIST, or the errno.
 */
static int log_rename_free(const char* pfrom, const char* pto)
{
    struct stat found = {};
    int nrenamed = renameat2(AT_FDCWD, pfrom, AT_FDCWD, pto, RENAME_NOREPLACE);

    if (nrenamed != 0 && (errno == EINVAL || errno == ENOSYS)) {
        /* A file system that cannot promise it; the lock or the name has to do. */
        errno = EEXIST;
        nrenamed = lstat(pto, &found) != 0 ? rename(pfrom, pto) : -1;
    }
    return nrenamed == 0 ? 0 : errno;
}

/*
 * Renames a generation to the next one. That it is gone is no failure: its place is free all the same.
 */
static int log_generation_shift(const LOG_FILE* pfile, int ngeneration)
{
    char szfrom[LOG_NAME_LEN];
    char szto[LOG_NAME_LEN];
    const int ncode = log_rename_free(log_generation_path(pfile, ngeneration, szfrom),
                                      log_generation_path(pfile, ngeneration + 1, szto));

    return ncode == ENOENT ? 0 : ncode;
}

static int log_generation_remove(const LOG_FILE* pfile, int ngeneration)
{
    char szname[LOG_NAME_LEN];

    return unlink(log_generation_path(pfile, ngeneration, szname)) == 0 || errno == ENOENT ? 0 : errno;
}

/*
 * Makes room for a new first generation: moves those up to the first free number by one. If none is free, the oldest is
 * removed; where that is not a file, the oldest below it.
 */
static int log_generations_shift(const LOG_FILE* pfile)
{
    int nfree = 1;
    int ncode = 0;

    while (nfree < pfile->ngenerations && log_generation_exists(pfile, nfree)) {
        nfree++;
    }
    if (nfree == pfile->ngenerations) {
        ncode = log_generation_remove(pfile, nfree);
    }
    while (ncode != 0 && nfree > 1) {
        nfree--;
        ncode = log_generation_remove(pfile, nfree);
    }
    for (; nfree > 1 && ncode == 0; nfree--) {
        ncode = log_generation_shift(pfile, nfree - 1);
    }
    return ncode;
}

/*
 * Takes the lock if nobody has it.
 * Result: 0, EWOULDBLOCK, or the errno for which it cannot be taken.
 */
static int log_rotate_lock(LOG_FILE* pfile)
{
    char szname[LOG_NAME_LEN];
    LOG_TEXT name = {};
    struct stat held = {};
    struct stat found = {};
    int ncode = 0;

    log_text_open(&name, szname, sizeof(szname), LOG_ESC_NONE);
    log_text_format(&name, "%s.lock", pfile->szpath);
    log_text_close(&name, "");

    pfile->nlockfd = log_open_path(szname);
    if (pfile->nlockfd < 0 || flock(pfile->nlockfd, LOCK_EX | LOCK_NB) != 0) {
        ncode = errno;
    } else if (fstat(pfile->nlockfd, &held) != 0 || lstat(szname, &found) != 0 || held.st_ino != found.st_ino) {
        ncode = EWOULDBLOCK; /* the lock file was removed meanwhile, so the next one may hold another */
    }
    return ncode;
}

/*
 * Gives the lock back, if we have it. By name, not by closing alone: a child forked meanwhile holds the same lock.
 */
static void log_rotate_unlock(LOG_FILE* pfile)
{
    const int nlockfd = pfile->nlockfd.exchange(-1);

    if (nlockfd >= 0) {
        flock(nlockfd, LOCK_UN);
        close(nlockfd);
    }
}

/* ---------------------------------------------------------------- files put aside ---- */

/*
 * What tells the files put aside from each other. Their order is that of the times.
 */
typedef struct {
    uint64_t ntime; /* nanoseconds since 1970 */
    uint64_t ntid;
} LOG_ASIDE;

static const char* log_aside_path(const LOG_FILE* pfile, const LOG_ASIDE* paside, char* pname)
{
    LOG_TEXT name = {};

    log_text_open(&name, pname, LOG_NAME_LEN, LOG_ESC_NONE);
    log_text_format(&name, "%s%s%lu.%lu", pfile->szpath, gaside, paside->ntime, paside->ntid);
    log_text_close(&name, "");
    return pname;
}

static bool log_aside_parse(const LOG_FILE* pfile, std::string_view name, LOG_ASIDE* paside)
{
    const std::string_view file = strrchr(pfile->szpath, '/') + 1;
    const char* const pend = name.data() + name.size();
    std::from_chars_result parsed = { nullptr, std::errc::invalid_argument };

    if (name.starts_with(file) && name.substr(file.size()).starts_with(gaside)) {
        parsed = std::from_chars(name.data() + file.size() + sizeof(gaside) - 1, pend, paside->ntime);
    }
    if (parsed.ec == std::errc() && parsed.ptr != pend && *parsed.ptr == '.') {
        parsed = std::from_chars(parsed.ptr + 1, pend, paside->ntid);
    }
    return parsed.ec == std::errc() && parsed.ptr == pend;
}

/*
 * Finds the file that was put aside first. By the kernel's own call, as readdir() allocates. Owner only.
 * Result: false if there is none.
 */
static bool log_aside_oldest(LOG_FILE* pfile, LOG_ASIDE* poldest)
{
    alignas(struct dirent64) char entries[2048];
    char szdirectory[LOG_PATH_LEN];
    LOG_ASIDE aside = {};
    ssize_t nread = 0;
    bool bfound = false;

    const int nfd = open(log_file_directory(pfile, szdirectory), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    pfile->nnextfd = nfd;
    while (nfd >= 0 && (nread = getdents64(nfd, entries, sizeof(entries))) > 0) {
        for (ssize_t nat = 0; nat < nread;) {
            const struct dirent64* pentry = reinterpret_cast<const struct dirent64*>(entries + nat);
            if (log_aside_parse(pfile, pentry->d_name, &aside) && (!bfound || aside.ntime < poldest->ntime)) {
                *poldest = aside;
                bfound = true;
            }
            nat += pentry->d_reclen;
        }
    }
    pfile->nnextfd = -1;
    if (nfd >= 0) {
        close(nfd);
    }
    return bfound;
}

/*
 * Numbers the files that were put aside, the oldest first. For the one who has the lock.
 */
static int log_asides_number(LOG_FILE* pfile)
{
    char szaside[LOG_NAME_LEN];
    char szfirst[LOG_NAME_LEN];
    LOG_ASIDE aside = {};
    int ncode = 0;

    log_generation_path(pfile, 1, szfirst);
    for (int ncount = 0; ncode == 0 && ncount < gasidesmax && log_aside_oldest(pfile, &aside); ncount++) {
        ncode = log_generations_shift(pfile);
        if (ncode == 0) {
            ncode = log_rename_free(log_aside_path(pfile, &aside, szaside), szfirst);
            ncode = ncode == ENOENT ? 0 : ncode; /* it was put back */
        }
    }
    return ncode;
}

void log_file_number(LOG_FILE* pfile)
{
    LOG_ASIDE aside = {};
    int ncode = 0;

    /* Whoever puts a file aside while we have the lock counts on us, so it is looked for once more without the lock. */
    for (int ntry = 0; ncode == 0 && ntry < gnumberings && log_aside_oldest(pfile, &aside); ntry++) {
        ncode = log_rotate_lock(pfile);
        if (ncode == 0) {
            ncode = log_asides_number(pfile);
        }
        log_rotate_unlock(pfile);
    }
}

/* ---------------------------------------------------------------- rotating ---- */

/*
 * Renames our file, if the path still leads to it. Another process may do the same between the question and the rename,
 * which then takes a file that is not full; that one is put back unless its place is taken by now.
 *   pto  a name that is free, or that of the first generation
 */
static int log_file_take(const LOG_FILE* pfile, const struct stat* pown, const char* pto)
{
    struct stat taken = {};
    int ncode = ENOENT;

    if (log_file_iscurrent(pfile, pown)) {
        ncode = log_rename_free(pfile->szpath, pto);
    }
    if (ncode == 0 && lstat(pto, &taken) == 0 && (taken.st_ino != pown->st_ino || taken.st_dev != pown->st_dev)) {
        renameat2(AT_FDCWD, pto, AT_FDCWD, pfile->szpath, RENAME_NOREPLACE); /* nothing else could be trusted here */
    }
    return ncode == ENOENT ? 0 : ncode;
}

bool log_file_isoverdue(const LOG_FILE* pfile, const struct stat* pfound, const LOG_RECORD* precord)
{
    return pfound->st_size >= pfile->nlimit + goverdue + precord->self.npid % goverduesteps * goverduestep;
}

int log_file_putaside(const LOG_FILE* pfile, const struct stat* pown, const LOG_RECORD* precord)
{
    char szaside[LOG_NAME_LEN];
    LOG_ASIDE aside = { static_cast<uint64_t>(precord->nnow), static_cast<uint64_t>(precord->self.ntid) };
    int ncode = EEXIST;

    for (int ntry = 0; ncode == EEXIST && ntry < gnametries; ntry++, aside.ntime++) {
        ncode = log_file_take(pfile, pown, log_aside_path(pfile, &aside, szaside));
    }
    return ncode;
}

/*
 * Makes our file the first generation. For the one who has the lock.
 */
static int log_file_takefirst(LOG_FILE* pfile, const struct stat* pown)
{
    char szfirst[LOG_NAME_LEN];
    int ncode = log_asides_number(pfile);

    if (ncode == 0) {
        ncode = log_generations_shift(pfile);
    }
    if (ncode == 0) {
        ncode = log_file_take(pfile, pown, log_generation_path(pfile, 1, szfirst));
    }
    return ncode;
}

/*
 * Rotates our file, which is full. As long as it is not overdue, that is left to the one who has the lock: of several
 * who rename at once, all but one would take a file that is not full.
 */
static int log_file_rotatefull(LOG_FILE* pfile, const struct stat* pown, const LOG_RECORD* precord)
{
    const bool boverdue = log_file_isoverdue(pfile, pown, precord);
    int ncode = EWOULDBLOCK;

    if (boverdue || log_file_isdue(pfile->nbusy, precord->nnow, gbusyinterval)) {
        ncode = log_rotate_lock(pfile);
        if (ncode == 0) {
            ncode = log_file_takefirst(pfile, pown);
        } else if (ncode == EWOULDBLOCK) {
            pfile->nbusy = precord->nnow;
            ncode = boverdue ? log_file_putaside(pfile, pown, precord) : ncode;
        }
        if (ncode == 0) {
            ncode = log_file_follow(pfile);
        }
        log_rotate_unlock(pfile);
        if (ncode == 0) {
            log_file_number(pfile);
        }
    }
    return ncode == EWOULDBLOCK ? 0 : ncode;
}

int log_file_rotate(LOG_FILE* pfile, const LOG_RECORD* precord)
{
    struct stat own = {};
    int ncode = log_file_follow(pfile);

    if (ncode == 0 && fstat(pfile->nfd, &own) == 0 && own.st_size >= pfile->nlimit) {
        ncode = log_file_rotatefull(pfile, &own, precord);
    }
    return ncode;
}

void log_file_prune(const LOG_FILE* pfile)
{
    char szname[LOG_NAME_LEN];
    int64_t ngeneration = static_cast<int64_t>(pfile->ngenerations) + 1;

    while (ngeneration <= INT_MAX && unlink(log_generation_path(pfile, static_cast<int>(ngeneration), szname)) == 0) {
        ngeneration++;
    }
}
