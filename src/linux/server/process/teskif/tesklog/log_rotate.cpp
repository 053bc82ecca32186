/*
 * Rotation: <path> becomes <path>.1, that becomes <path>.2, and so on. One process at a time does it, under a lock on a
 * file of its own that is never renamed, <path>.lock. Each step is one rename that cannot overwrite anything, so being
 * killed between two of them leaves at most a gap in the numbers, which the next rotation closes.
 */
#include "log_file.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

enum __log_rotate_length__ { LOG_NAME_LEN = LOG_PATH_LEN + 32 }; /* a path with a suffix */

/*
 * Nanoseconds without another try for the lock after it was taken; a rotation is done in less. The file is followed all
 * the same, so whoever finds a new one forgets the wait.
 */
static constexpr int64_t gbusyinterval = 2000000;

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
 * Renames a generation to the next one. That it is gone is no failure: its place is free all the same.
 */
static int log_generation_shift(const LOG_FILE* pfile, int ngeneration)
{
    char szfrom[LOG_NAME_LEN];
    char szto[LOG_NAME_LEN];
    int nrenamed = 0;

    log_generation_path(pfile, ngeneration, szfrom);
    log_generation_path(pfile, ngeneration + 1, szto);
    nrenamed = renameat2(AT_FDCWD, szfrom, AT_FDCWD, szto, RENAME_NOREPLACE);
    if (nrenamed != 0 && (errno == EINVAL || errno == ENOSYS)) {
        nrenamed = rename(szfrom, szto); /* a file system that cannot promise it; the lock has to do */
    }
    return nrenamed == 0 || errno == ENOENT ? 0 : errno;
}

static int log_generation_remove(const LOG_FILE* pfile, int ngeneration)
{
    char szname[LOG_NAME_LEN];

    return unlink(log_generation_path(pfile, ngeneration, szname)) == 0 || errno == ENOENT ? 0 : errno;
}

/*
 * Moves the generations up to the first free number by one. If none is free, the oldest is removed; where that is not a
 * file, the oldest below it.
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
    for (; nfree > 0 && ncode == 0; nfree--) {
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

int log_file_rotate(LOG_FILE* pfile, int64_t nnow)
{
    struct stat own = {};
    int ncode = log_file_follow(pfile);

    if (ncode != 0 || fstat(pfile->nfd, &own) != 0 || own.st_size < pfile->nlimit) {
        goto monp_exit_func; /* it was rotated already, and the file we write to now is another */
    }
    if (!log_file_isdue(pfile->nbusy, nnow, gbusyinterval)) {
        goto monp_exit_func;
    }
    ncode = log_rotate_lock(pfile);
    if (ncode == EWOULDBLOCK) {
        pfile->nbusy = nnow;
    }
    if (ncode == 0 && log_file_iscurrent(pfile, &own)) {
        ncode = log_generations_shift(pfile);
    }
    if (ncode == 0) {
        ncode = log_file_follow(pfile);
    }
    log_rotate_unlock(pfile);
    ncode = ncode == EWOULDBLOCK ? 0 : ncode;

monp_exit_func:
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
