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

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

static constexpr int gendlooks = 10;                 /* milliseconds in which another process's write will have ended */
static constexpr int64_t glookinterval = 1000000000; /* nanoseconds */
static constexpr int64_t gmeasureinterval = 1000000; /* nanoseconds */
static constexpr int64_t groommax = 16384;           /* bytes */
static constexpr int64_t groompart = 16;      /* so many writers at once do not grow the file beyond its limit unseen */
static constexpr int64_t gsmallmax = 4194304; /* bytes of all generations that could be written between two questions */
static constexpr int gwritetries = 10;        /* each takes a rotation through all generations to fail */

/*
 * Writes under a limit on file sizes, whose signal would end a process that does not expect it: the signal is kept from
 * the calling thread, and taken away if it came from us. Whoever ignores it or waits for it is not disturbed.
 */
static ssize_t log_write_guarded(int nfd, const char* pbytes, size_t nbytes)
{
    static constexpr struct timespec gnow = { 0, 0 };
    sigset_t sizesignal;
    sigset_t before;
    ssize_t nwritten = 0;
    int nerror = 0;

    sigemptyset(&sizesignal);
    sigaddset(&sizesignal, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &sizesignal, &before);
    nwritten = write(nfd, pbytes, nbytes);
    nerror = errno;
    if (nwritten < 0 && nerror == EFBIG && sigismember(&before, SIGXFSZ) == 0) {
        sigtimedwait(&sizesignal, nullptr, &gnow);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = nerror;
    return nwritten;
}

static ssize_t log_file_bytes(const LOG_FILE* pfile, int nfd, const char* pbytes, size_t nbytes)
{
    return pfile->bsizelimit.load(std::memory_order_relaxed) ? log_write_guarded(nfd, pbytes, nbytes)
                                                             : write(nfd, pbytes, nbytes);
}

/*
 * Ends a line that broke off, in the place of its last byte, as there is no room for one more; else the next line of
 * another process would be glued to it. The offset of the descriptor is the end of a write, ours or that of a process
 * which shares it; so what stands before it is a line end or the end of a fragment. An appending descriptor cannot
 * write there, so it takes another one.
 *   nbroken  the appending descriptor; if it is the file's own, by the owner only
 * Result: true if the line is ended now.
 */
static bool log_file_mend(const LOG_FILE* pfile, int nbroken)
{
    struct stat own = {};
    struct stat found = {};
    char clast = '\n';
    const off_t nend = lseek(nbroken, 0, SEEK_CUR);
    const int nfd = open(pfile->szpath, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK);
    const bool bended = nfd >= 0 && fstat(nfd, &found) == 0 && fstat(nbroken, &own) == 0 &&
                        found.st_dev == own.st_dev && found.st_ino == own.st_ino && nend > 0 &&
                        pread(nfd, &clast, 1, nend - 1) == 1 && (clast == '\n' || pwrite(nfd, "\n", 1, nend - 1) == 1);

    if (nfd >= 0) {
        close(nfd);
    }
    return bended;
}

/*
 * Appends a line in one write, so that it stays in one piece among the other writers'.
 */
static bool log_file_put(LOG_FILE* pfile, const LOG_RECORD* precord, const LOG_TEXT* pline)
{
    const ssize_t nwritten =
        log_file_bytes(pfile, pfile->nfd.load(std::memory_order_relaxed), pline->ptext, pline->nlen);
    const bool bwhole = nwritten == static_cast<ssize_t>(pline->nlen);

    if (nwritten < 0 && errno == EBADF) {
        pfile->nlooked.store(0, std::memory_order_relaxed); /* closed behind our back: look with the next record */
    } else if (nwritten > 0 && !bwhole && log_file_enter(pfile, precord->self.nepoch)) {
        log_file_mend(pfile, pfile->nfd);
        log_file_leave(pfile);
    }
    return bwhole;
}

/*
 * Tells whether the file ends in the middle of a line, as a full disk or a crash leaves it.
 */
static bool log_file_isragged(const LOG_FILE* pfile)
{
    struct stat own = {};
    char clast = '\n';

    return fstat(pfile->nfd, &own) == 0 && own.st_size > 0 && pread(pfile->nfd, &clast, 1, own.st_size - 1) == 1 &&
           clast != '\n';
}

/*
 * Reports the records that were dropped.
 * Result: true if there are none left to report.
 */
static bool log_file_report(LOG_FILE* pfile, const LOG_RECORD* precord)
{
    char szline[512];
    LOG_TEXT line = {};
    const unsigned long nlost = pfile->pnlost->exchange(0);
    bool breported = true;

    if (nlost > 0) {
        log_text_open(&line, szline, sizeof(szline), LOG_ESC_LINE);
        log_text_raw(&line, "\n", log_file_isragged(pfile) ? 1 : 0);
        pfile->pfnotice(&line, precord, nlost);
        log_text_close(&line, "\n");
        breported = log_file_put(pfile, precord, &line);
        *pfile->pnlost += breported ? 0 : nlost;
    }
    return breported;
}

/*
 * Tells whether the file has reached its limit, after a line was appended to it. Two threads that take from the room at
 * once may take too little, which is no more than if there were one writer more.
 */
static bool log_file_isfull(LOG_FILE* pfile, int64_t nnow, size_t nwritten)
{
    int64_t nroom = pfile->nroom.load(std::memory_order_relaxed) - static_cast<int64_t>(nwritten);
    int64_t nlimit = 0;
    bool bfull = false;

    if (nroom <= 0 || log_file_isdue(pfile->nmeasured, nnow, gmeasureinterval)) {
        nlimit = pfile->nlimit.load(std::memory_order_relaxed);
        nroom = nlimit - lseek(pfile->nfd.load(std::memory_order_relaxed), 0, SEEK_CUR);
        bfull = nroom <= 0;
        pfile->bfull = bfull;
        nroom = nroom / groompart < groommax ? nroom / groompart : groommax;
        nroom = nlimit <= gsmallmax / (pfile->ngenerations + int64_t{ 1 }) ? 0 : nroom;
        pfile->nmeasured.store(nnow, std::memory_order_relaxed);
    }
    pfile->nroom.store(nroom, std::memory_order_relaxed);
    return bfull;
}

/*
 * Tells whether the file ends in the middle of a line for good. Another process's line can be seen while it is being
 * appended, so this waits a little; only for log_init, and only if there is something to wait for.
 */
static bool log_file_staysragged(const LOG_FILE* pfile)
{
    static constexpr struct timespec gmillisecond = { 0, 1000000 };
    bool bragged = log_file_isragged(pfile);
    int nlook = 0;

    for (; bragged && nlook < gendlooks; nlook++) {
        nanosleep(&gmillisecond, nullptr);
        bragged = log_file_isragged(pfile);
    }
    return bragged;
}

int log_file_open(LOG_FILE* pfile, const LOG_SELF* pself)
{
    int ncode = EBUSY;

    if (log_file_enter(pfile, pself->nepoch)) {
        ncode = log_file_follow(pfile);
        if (ncode == 0 && log_file_staysragged(pfile)) {
            log_file_bytes(pfile, pfile->nfd, "\n", 1);
        }
        if (ncode == 0) {
            log_file_number(pfile);
            log_file_prune(pfile);
        }
        log_file_leave(pfile);
    }
    return ncode;
}

/*
 * Looks what is behind the path now.
 */
static void log_file_look(LOG_FILE* pfile, const LOG_RECORD* precord)
{
    if (log_file_enter(pfile, precord->self.nepoch)) {
        pfile->nlooked.store(precord->nnow, std::memory_order_relaxed);
        log_file_limit(pfile);
        log_file_follow(pfile);
        log_file_leave(pfile);
    }
}

/*
 * Appends a line to the file behind the path through a descriptor of its own. For those who find our file full while
 * another thread of this process rotates it, or who interrupted it there: it may be held up for long.
 */
static bool log_file_detour(LOG_FILE* pfile, const LOG_RECORD* precord, const LOG_TEXT* pline)
{
    struct stat found = {};
    int nnone = -1;
    int nfd = log_open_path(pfile->szpath);
    ssize_t nwritten = -1;

    if (nfd >= 0 && fstat(nfd, &found) == 0 && log_file_isoverdue(pfile, &found, precord)) {
        close(nfd);
        log_file_putaside(pfile, &found, precord);
        nfd = log_open_path(pfile->szpath);
    }
    if (nfd >= 0) {
        const bool bnoted = pfile->ndetourfd.compare_exchange_strong(nnone, nfd);
        nwritten = log_file_bytes(pfile, nfd, pline->ptext, pline->nlen);
        if (nwritten > 0 && nwritten != static_cast<ssize_t>(pline->nlen)) {
            log_file_mend(pfile, nfd);
        }
        if (bnoted) {
            pfile->ndetourfd = -1;
        }
        close(nfd);
    }
    return nwritten == static_cast<ssize_t>(pline->nlen);
}

static bool log_file_needsdetour(const LOG_FILE* pfile, const LOG_RECORD* precord)
{
    return pfile->bfull.load(std::memory_order_relaxed) && pfile->nrefused.load(std::memory_order_relaxed) == 0 &&
           pfile->nowner.load(std::memory_order_relaxed) == precord->self.nepoch;
}

/*
 * Appends a line, preceded by a notice if one is due.
 */
static bool log_file_append(LOG_FILE* pfile, const LOG_RECORD* precord, const LOG_TEXT* pline)
{
    bool bappended = false;

    if (log_file_needsdetour(pfile, precord)) {
        bappended = log_file_detour(pfile, precord, pline);
    } else if (!pfile->bunreachable.load(std::memory_order_relaxed)) {
        bappended = (pfile->pnlost->load(std::memory_order_relaxed) == 0 || log_file_report(pfile, precord)) &&
                    log_file_put(pfile, precord, pline);
    }
    return bappended;
}

/*
 * Rotates the file if what was appended last has filled it.
 */
static void log_file_bound(LOG_FILE* pfile, const LOG_RECORD* precord, size_t nwritten)
{
    int ncode = 0;

    if (log_file_isfull(pfile, precord->nnow, nwritten) &&
        log_file_isdue(pfile->nfailed, precord->nnow, glookinterval) && log_file_enter(pfile, precord->self.nepoch)) {
        ncode = log_file_rotate(pfile, precord);
        if (ncode != 0) {
            pfile->nfailed.store(precord->nnow, std::memory_order_relaxed);
        }
        if (ncode == 0 || pfile->nrefused.load(std::memory_order_relaxed) == 0) {
            pfile->nrefused.store(ncode, std::memory_order_relaxed);
        }
        log_file_leave(pfile);
    }
}

void log_file_write(LOG_FILE* pfile, const LOG_RECORD* precord, const LOG_TEXT* pline)
{
    unsigned nabandoned = 0;
    bool bappended = false;
    bool bkept = false;
    int ntries = 0;

    if (log_file_isdue(pfile->nlooked, precord->nnow, glookinterval)) {
        log_file_look(pfile, precord);
    }
    do {
        nabandoned = pfile->nabandoned.load(std::memory_order_relaxed);
        bappended = log_file_append(pfile, precord, pline);
        if (bappended && !log_file_needsdetour(pfile, precord)) {
            log_file_bound(pfile, precord, pline->nlen);
        }
        bkept = bappended && nabandoned == pfile->nabandoned.load(std::memory_order_relaxed);
        ntries++;
    } while (bappended && !bkept && ntries < gwritetries);
    if (!bkept) {
        ++*pfile->pnlost;
    }
}

int log_file_refusal(LOG_FILE* pfile)
{
    int ncode = pfile->nrefused.load(std::memory_order_relaxed);

    return ncode > 0 && pfile->nrefused.compare_exchange_strong(ncode, -ncode) ? ncode : 0;
}

void log_file_close(LOG_FILE* pfile, const LOG_RECORD* precord)
{
    struct stat own = {};

    if (pfile->pnlost->load(std::memory_order_relaxed) > 0) {
        log_file_look(pfile, precord);
        if (!pfile->bunreachable) {
            log_file_report(pfile, precord);
        }
    }
    if (log_file_isours(pfile, &own)) {
        close(pfile->nfd);
    }
    pfile->nfd = -1;
}
