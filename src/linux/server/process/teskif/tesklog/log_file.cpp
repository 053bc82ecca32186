/*
 * Appending to a shared file. A record costs one write, and sometimes a question for the offset, which after an appending
 * write is the end of the file; only who finds the file at its limit, or has not looked for a second, looks at the path.
 * That is enough: a file that was rotated away stays at its limit, so whoever still writes to it finds out. The question
 * costs as much as the write. It is left out as long as the writer has used up only a small part of the room that it last
 * saw, and that was just now: then the file cannot be full, nor can it have gone through all generations.
 */
#include "log_file.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

static constexpr mode_t gfilemode = 0640;
static constexpr mode_t gdirectorymode = 0750;
static constexpr int gopentries = 100;               /* each takes another process's rotation to fail */
static constexpr int gendlooks = 10;                 /* milliseconds in which another process's write will have ended */
static constexpr int64_t glookinterval = 1000000000; /* nanoseconds */
static constexpr int64_t gmeasureinterval = 1000000; /* nanoseconds */
static constexpr int64_t groommax = 16384;           /* bytes */
static constexpr int64_t groompart = 16; /* so many writers at once do not grow the file beyond its limit unseen */

int log_file_init(LOG_FILE* pfile, const char* pdirectory, const char* pident, const char* psuffix, off_t nlimit,
                  int ngenerations, PFLOGNOTICE pfnotice)
{
    LOG_TEXT path = {};
    struct rlimit size = {};

    log_text_open(&path, pfile->szpath, sizeof(pfile->szpath), LOG_ESC_NONE);
    log_text_format(&path, "%s/%s%s", pdirectory, pident, psuffix);
    log_text_close(&path, "");

    pfile->bsizelimit = getrlimit(RLIMIT_FSIZE, &size) == 0 && size.rlim_cur != RLIM_INFINITY;
    if (pfile->bsizelimit && size.rlim_cur / 2 < static_cast<rlim_t>(nlimit)) {
        nlimit = static_cast<off_t>(size.rlim_cur / 2); /* a limit that is never reached would end the log */
    }
    pfile->nlimit = nlimit;
    pfile->ngenerations = ngenerations;
    pfile->pfnotice = pfnotice;
    pfile->nowner = 0;
    pfile->nlockfd = -1;
    pfile->nfd = -1;
    pfile->bunreachable = false;
    pfile->nlooked = 0;
    pfile->nroom = 0;
    pfile->nmeasured = 0;
    pfile->nfailed = 0;
    pfile->nlost = 0;
    return path.bcut ? ENAMETOOLONG : 0;
}

/* ---------------------------------------------------------------- opening ---- */

int log_fd_above_standard(int nfd)
{
    int nabove = nfd;
    int nerror = 0;

    if (nfd >= 0 && nfd <= STDERR_FILENO) {
        nabove = fcntl(nfd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        nerror = errno;
        close(nfd);
        errno = nerror;
    }
    return nabove;
}

/*
 * Creates the directory that a path lies in; the directory above that one must exist.
 */
static int log_make_directory(const char* ppath)
{
    char szdirectory[LOG_PATH_LEN];
    const char* pend = strrchr(ppath, '/');
    const size_t nlength = pend != nullptr ? static_cast<size_t>(pend - ppath) : 0;
    int nmade = -1;

    if (nlength > 0 && nlength < sizeof(szdirectory)) {
        memcpy(szdirectory, ppath, nlength);
        szdirectory[nlength] = '\0';
        nmade = mkdir(szdirectory, gdirectorymode);
    }
    return nmade;
}

/*
 * Opens or creates a file. The mode is set by who creates it and by nobody else: an operator may have changed it since.
 */
static int log_open_or_create(const char* ppath)
{
    /* non-blocking, as it could be a pipe that nobody reads; readable, to find a line that was cut off */
    static constexpr int gflags = O_RDWR | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
    int nfd = open(ppath, gflags);

    if (nfd < 0 && errno == ENOENT) {
        nfd = open(ppath, gflags | O_CREAT | O_EXCL, gfilemode);
        if (nfd >= 0 && fchmod(nfd, gfilemode) != 0) {
            /* the mode is now 0640 less the umask, which only refuses more */
        }
    }
    return nfd;
}

/*
 * Tells whether opening is worth another try, by the errno of the last one: the directory was missing and is there now,
 * or another process was faster in creating the file, or in renaming it between our two questions.
 */
static bool log_open_again(const char* ppath)
{
    return errno == EEXIST || (errno == ENOENT && (log_make_directory(ppath) == 0 || errno == EEXIST));
}

int log_open_path(const char* ppath)
{
    struct stat found = {};
    int nfd = log_open_or_create(ppath);
    int ntries = 1;

    for (; nfd < 0 && ntries < gopentries && log_open_again(ppath); ntries++) {
        nfd = log_open_or_create(ppath);
    }
    if (nfd >= 0 && (fstat(nfd, &found) != 0 || !S_ISREG(found.st_mode))) {
        close(nfd);
        errno = ENOTSUP;
        nfd = -1;
    }
    return log_fd_above_standard(nfd);
}

/* ---------------------------------------------------------------- following ---- */

/*
 * Makes the calling thread the only one in this process that follows or rotates. It never waits: whoever does not get
 * in, be it another thread or a signal handler above the one that is in, writes to the file that is open. An owner from
 * before a fork is not here any more; its lock would be held as long as our copy of the descriptor is open.
 */
static bool log_file_enter(LOG_FILE* pfile, unsigned nepoch)
{
    unsigned nowner = pfile->nowner.load(std::memory_order_relaxed);
    int nlockfd = -1;
    bool bentered =
        nowner != nepoch && pfile->nowner.compare_exchange_strong(nowner, nepoch, std::memory_order_acquire);

    if (bentered && nowner != 0) {
        nlockfd = pfile->nlockfd.exchange(-1);
        if (nlockfd >= 0) {
            close(nlockfd);
        }
    }
    return bentered;
}

static void log_file_leave(LOG_FILE* pfile)
{
    pfile->nowner.store(0, std::memory_order_release);
}

/*
 * Tells whether our descriptor still is our file. A program that closes all descriptors takes it from us, and the next
 * file it opens may get the number.
 */
static bool log_file_isours(const LOG_FILE* pfile, struct stat* pown)
{
    return fstat(pfile->nfd, pown) == 0 && pown->st_dev == pfile->ndevice && pown->st_ino == pfile->ninode;
}

bool log_file_iscurrent(const LOG_FILE* pfile)
{
    struct stat found = {};

    return lstat(pfile->szpath, &found) == 0 && found.st_dev == pfile->ndevice && found.st_ino == pfile->ninode;
}

int log_file_follow(LOG_FILE* pfile)
{
    struct stat own = {};
    struct stat found = {};
    const bool bours = log_file_isours(pfile, &own);
    int nfd = -1;
    int ncode = 0;

    if (bours && log_file_iscurrent(pfile)) {
        goto monp_exit_reached;
    }
    nfd = log_open_path(pfile->szpath);
    if (nfd < 0 || fstat(nfd, &found) != 0) {
        ncode = errno;
        /* as long as the old file has a name, what is written to it is not lost */
        pfile->bunreachable = !bours || own.st_nlink == 0;
        goto monp_exit_close;
    }
    if (bours) {
        /* the number stays, so that a thread in the middle of a write never has another file under its hands */
        ncode = dup3(nfd, pfile->nfd, O_CLOEXEC) < 0 ? errno : 0;
    } else {
        pfile->nfd = nfd;
        nfd = -1;
    }
    if (ncode != 0) {
        goto monp_exit_close;
    }
    pfile->nroom = 0;
    pfile->ndevice = found.st_dev;
    pfile->ninode = found.st_ino;

monp_exit_reached:
    pfile->bunreachable = false;
monp_exit_close:
    if (nfd >= 0) {
        close(nfd);
    }
    return ncode;
}

/* ---------------------------------------------------------------- writing ---- */

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

/*
 * Appends a line in one write, so that it stays in one piece among the other writers'.
 */
static bool log_file_put(LOG_FILE* pfile, const LOG_TEXT* pline)
{
    const int nfd = pfile->nfd.load(std::memory_order_relaxed);
    const ssize_t nwritten =
        pfile->bsizelimit ? log_write_guarded(nfd, pline->ptext, pline->nlen) : write(nfd, pline->ptext, pline->nlen);

    if (nwritten < 0 && errno == EBADF) {
        pfile->nlooked.store(0, std::memory_order_relaxed); /* closed behind our back: look with the next record */
    }
    return nwritten == static_cast<ssize_t>(pline->nlen);
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
    unsigned long nlost = pfile->nlost.exchange(0);
    bool breported = true;

    if (nlost > 0) {
        log_text_open(&line, szline, sizeof(szline), LOG_ESC_LINE);
        log_text_raw(&line, "\n", log_file_isragged(pfile) ? 1 : 0);
        pfile->pfnotice(&line, precord, nlost);
        log_text_close(&line, "\n");
        breported = log_file_put(pfile, &line);
        pfile->nlost += breported ? 0 : nlost;
    }
    return breported;
}

static inline bool log_file_isdue(const std::atomic<int64_t>& nlast, int64_t nnow, int64_t ninterval)
{
    const int64_t npassed = nnow - nlast.load(std::memory_order_relaxed);

    return npassed >= ninterval || npassed < 0; /* less than nothing: the clock was set back */
}

/*
 * Tells whether the file has reached its limit, after a line was appended to it. Two threads that take from the room at
 * once may take too little, which is no more than if there were one writer more.
 */
static bool log_file_isfull(LOG_FILE* pfile, int64_t nnow, size_t nwritten)
{
    int64_t nroom = pfile->nroom.load(std::memory_order_relaxed) - static_cast<int64_t>(nwritten);
    bool bfull = false;

    if (nroom <= 0 || log_file_isdue(pfile->nmeasured, nnow, gmeasureinterval)) {
        nroom = pfile->nlimit - lseek(pfile->nfd.load(std::memory_order_relaxed), 0, SEEK_CUR);
        bfull = nroom <= 0;
        nroom = nroom / groompart < groommax ? nroom / groompart : groommax;
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
    char szend[] = "\n";
    const LOG_TEXT end = { szend, 1, 1, LOG_ESC_NONE, false };
    int ncode = EBUSY;

    if (log_file_enter(pfile, pself->nepoch)) {
        ncode = log_file_follow(pfile);
        if (ncode == 0 && log_file_staysragged(pfile)) {
            log_file_put(pfile, &end);
        }
        log_file_leave(pfile);
    }
    return ncode;
}

void log_file_write(LOG_FILE* pfile, const LOG_RECORD* precord, const LOG_TEXT* pline)
{
    if (log_file_isdue(pfile->nlooked, precord->nnow, glookinterval) && log_file_enter(pfile, precord->self.nepoch)) {
        pfile->nlooked.store(precord->nnow, std::memory_order_relaxed);
        log_file_follow(pfile);
        log_file_leave(pfile);
    }
    if (pfile->bunreachable.load(std::memory_order_relaxed) ||
        (pfile->nlost.load(std::memory_order_relaxed) > 0 && !log_file_report(pfile, precord)) ||
        !log_file_put(pfile, pline)) {
        pfile->nlost++;
        goto monp_exit_func;
    }
    if (log_file_isfull(pfile, precord->nnow, pline->nlen) &&
        log_file_isdue(pfile->nfailed, precord->nnow, glookinterval) && log_file_enter(pfile, precord->self.nepoch)) {
        if (log_file_rotate(pfile) != 0) {
            pfile->nfailed.store(precord->nnow, std::memory_order_relaxed);
        }
        log_file_leave(pfile);
    }

monp_exit_func:
    return;
}

void log_file_close(LOG_FILE* pfile)
{
    struct stat own = {};

    if (log_file_isours(pfile, &own)) {
        close(pfile->nfd);
    }
    pfile->nfd = -1;
}
