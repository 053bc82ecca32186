/*
 * A file that several processes append lines to, and that is rotated when it has grown to its limit.
 */
#ifndef LOG_FILE_H
#define LOG_FILE_H

#include "log_record.h"

#include <atomic>
#include <sys/stat.h>

/*
 * Makes the line that says that records are missing.
 *   ptext    out: the line, without its end
 *   precord  the record that is about to follow
 *   nlost    how many are missing
 */
typedef void (*PFLOGNOTICE)(LOG_TEXT* ptext, const LOG_RECORD* precord, unsigned long nlost);

/*
 * A count in memory that forked processes share.
 */
typedef std::atomic<unsigned long> LOG_COUNT;

static_assert(LOG_COUNT::is_always_lock_free, "processes share it, and signal handlers use it");

/*
 * The file as one process sees it. Everything above nowner is set before the file is used and stays.
 */
typedef struct {
    char szpath[LOG_PATH_LEN];
    off_t nsize;      /* bytes at which the file is rotated, as far as the process may write that many */
    int ngenerations; /* older files kept, at least 1 */
    PFLOGNOTICE pfnotice;
    LOG_COUNT* pnlost;   /* records dropped and not reported yet, by this process and those it shares the count with */
    LOG_COUNT nunshared; /* in use as long as there is no memory for a shared one */

    std::atomic<unsigned> nowner; /* epoch of the process in which somebody follows or rotates; 0: nobody */
    std::atomic<int> nlockfd;     /* the owner's, -1: none */
    std::atomic<int> ndetourfd;   /* as nnextfd, of the first of those who write to another file meanwhile */
    std::atomic<int> nnextfd;     /* the owner's, -1: none; any other that it has open for the moment */
    std::atomic<dev_t> ndevice;   /* the file behind nfd; changed by the owner only, which a fork may overtake */
    std::atomic<ino_t> ninode;
    std::atomic<int> nfd;             /* -1: none yet. The number stays when the file behind it changes */
    std::atomic<bool> bfull;          /* the file behind nfd was at its limit at the last look at its size */
    std::atomic<bool> bunreachable;   /* there is no file whose name would lead to what is written */
    std::atomic<unsigned> nabandoned; /* how often a file was left that has no name, or is not ours */
    std::atomic<bool> bsizelimit;     /* at the last look the process had a limit on file sizes, which raises SIGXFSZ */
    std::atomic<off_t> nlimit;        /* bytes at which the file is rotated */
    std::atomic<int64_t> nlooked;     /* LOG_RECORD.nnow of the last look at the path */
    std::atomic<int64_t> nroom;       /* bytes that may be written before the size is looked at */
    std::atomic<int64_t> nmeasured;   /* LOG_RECORD.nnow of the last look at the size */
    std::atomic<int64_t> nfailed;     /* LOG_RECORD.nnow of the last rotation that failed */
    std::atomic<int64_t> nbusy;       /* LOG_RECORD.nnow of the last try for a lock that was taken */
    std::atomic<int> nrefused;        /* errno of the last rotation; negative once log_file_refusal has told it */
} LOG_FILE;

/*
 * Prepares a file without opening it, which the first record does. If the record was last used for the same path, what
 * could not be reported then is still due; else it is forgotten. Not for a signal handler.
 *   pdirectory, pident, psuffix  the path's parts: <pdirectory>/<pident><psuffix>
 *   nsize, ngenerations, pfnotice  as in the record above
 * Result: 0, or ENAMETOOLONG.
 */
int log_file_init(LOG_FILE* pfile, const char* pdirectory, const char* pident, const char* psuffix, off_t nsize,
                  int ngenerations, PFLOGNOTICE pfnotice);

/*
 * Opens the file at once, ends a line that a crash left unfinished, and removes older files above the number to keep.
 * Result: 0, or the errno; the first record, and after that one in a second, tries again.
 */
int log_file_open(LOG_FILE* pfile, const LOG_SELF* pself);

/*
 * Appends a line. What cannot be written is dropped and counted, and a notice precedes the next line that can.
 * Never waits for another process. For any thread, signal handler and forked child; changes errno.
 *   precord  time and writer
 *   pline    the line with its end
 */
void log_file_write(LOG_FILE* pfile, const LOG_RECORD* precord, const LOG_TEXT* pline);

/*
 * Tells once that rotation began to fail, to the first caller after that. For any thread, signal handler and forked
 * child.
 * Result: the errno for which the file cannot be rotated; 0: it can, or that was told already.
 */
int log_file_refusal(LOG_FILE* pfile);

/*
 * Reports what was dropped, if that is possible now, and gives the descriptor back. Nobody else may be using the file.
 *   precord  time and writer of the report
 */
void log_file_close(LOG_FILE* pfile, const LOG_RECORD* precord);

/* ---------------------------------------------------------------- between log_file.cpp and its users ---- */

/*
 * Opens a regular file for appending and creates it with mode 0640, and its directory with it, if it is missing.
 * Refuses a symbolic link and anything else that is not a file.
 * Result: the descriptor, above 2, or -1 with errno.
 */
int log_open_path(const char* ppath);

/*
 * Gives back a descriptor above 2 for the one given, which is closed if it was not: a program that closed its standard
 * descriptors must not find our file in their place.
 * Result: the descriptor, or -1 with errno.
 */
int log_fd_above_standard(int nfd);

/*
 * Makes the path of the directory that a file lies in.
 *   pname  out, LOG_PATH_LEN bytes
 */
const char* log_file_directory(const LOG_FILE* pfile, char* pname);

/*
 * Makes the calling thread the only one in this process that follows or rotates, its owner, until it leaves. It never
 * waits: whoever does not get in, be it another thread or a signal handler above the one that is in, writes to the file
 * that is open. An owner from before a fork is not here any more; the descriptors that it had open for the moment are
 * closed.
 *   nepoch  LOG_SELF.nepoch of the caller
 */
bool log_file_enter(LOG_FILE* pfile, unsigned nepoch);
void log_file_leave(LOG_FILE* pfile);

/*
 * Tells whether our descriptor still is our file. A program that closes all descriptors takes it from us, and the next
 * file it opens may get the number. The file that we noted may be another one in a child that was forked while it
 * changed, so its name counts as well.
 *   pown  out: what our descriptor is
 */
bool log_file_isours(const LOG_FILE* pfile, struct stat* pown);

/*
 * Tells whether the path still leads to the file that we write to.
 *   pown  our file, as log_file_isours found it
 */
bool log_file_iscurrent(const LOG_FILE* pfile, const struct stat* pown);

/*
 * Learns what the process may write to a file. Its limit may change at any time. Owner only.
 */
void log_file_limit(LOG_FILE* pfile);

/*
 * Writes to the file behind the path from now on, if that is another one. Owner only.
 * Result: 0, or the errno for which there is nothing to write to behind the path.
 */
int log_file_follow(LOG_FILE* pfile);

/*
 * Rotates the file if it is still the one behind the path and has reached its limit; else follows. Owner only.
 * Result: 0, or the errno for which it could not be rotated.
 */
int log_file_rotate(LOG_FILE* pfile, const LOG_RECORD* precord);

/*
 * Tells whether a file has grown so far beyond its limit that whoever has the lock must be held up.
 */
bool log_file_isoverdue(const LOG_FILE* pfile, const struct stat* pfound, const LOG_RECORD* precord);

/*
 * Takes a file out of the way without a lock, if the path still leads to it. It is numbered later. For any thread.
 * Result: 0, or the errno.
 */
int log_file_putaside(const LOG_FILE* pfile, const struct stat* pown, const LOG_RECORD* precord);

/*
 * Numbers the files that were put aside in rotations, unless another process is at it. Owner only.
 */
void log_file_number(LOG_FILE* pfile);

/*
 * Removes the older files that a larger number of them left behind, up to the first gap.
 */
void log_file_prune(const LOG_FILE* pfile);

/*
 * Tells whether an interval has passed.
 *   nlast, nnow, ninterval  nanoseconds
 */
static inline bool log_file_isdue(const std::atomic<int64_t>& nlast, int64_t nnow, int64_t ninterval)
{
    const int64_t npassed = nnow - nlast.load(std::memory_order_relaxed);

    return npassed >= ninterval || npassed < 0; /* less than nothing: the clock was set back */
}

#endif
