/*
 * The file that a log is written to at present: opening it, and following its path when another file takes its place.
 */
#include "log_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

static constexpr mode_t gfilemode = 0640;
static constexpr mode_t gdirectorymode = 0750;
static constexpr int gopentries = 100; /* each takes another process's rotation to fail */
static constexpr int gfdhigh = 100;    /* first number for a descriptor that stays open */

/*
 * Begins a new count of dropped records. Of processes that share it, the first that can write reports it, so that
 * nothing is reported twice after a fork, nor forgotten with a process that ended.
 */
static void log_file_count(LOG_FILE* pfile)
{
    void* pshared = MAP_FAILED;

    if (pfile->pnlost != nullptr && pfile->pnlost != &pfile->nunshared) {
        munmap(pfile->pnlost, sizeof(*pfile->pnlost));
    }
    pfile->nunshared = 0;
    pshared = mmap(nullptr, sizeof(*pfile->pnlost), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    pfile->pnlost = pshared != MAP_FAILED ? static_cast<LOG_COUNT*>(pshared) : &pfile->nunshared;
}

int log_file_init(LOG_FILE* pfile, const char* pdirectory, const char* pident, const char* psuffix, off_t nsize,
                  int ngenerations, PFLOGNOTICE pfnotice)
{
    char szpath[LOG_PATH_LEN];
    LOG_TEXT path = {};

    log_text_open(&path, szpath, sizeof(szpath), LOG_ESC_NONE);
    log_text_format(&path, "%s/%s%s", pdirectory, pident, psuffix);
    log_text_close(&path, "");

    if (strcmp(szpath, pfile->szpath) != 0) {
        log_file_count(pfile);
        memcpy(pfile->szpath, szpath, sizeof(szpath));
    }
    pfile->nsize = nsize;
    pfile->ngenerations = ngenerations;
    pfile->pfnotice = pfnotice;
    pfile->nowner = 0;
    pfile->nlockfd = -1;
    pfile->nnextfd = -1;
    pfile->ndetourfd = -1;
    pfile->bfull = false;
    pfile->nfd = -1;
    pfile->bunreachable = false;
    pfile->nabandoned = 0;
    log_file_limit(pfile);
    pfile->nlooked = 0;
    pfile->nroom = 0;
    pfile->nmeasured = 0;
    pfile->nfailed = 0;
    pfile->nbusy = 0;
    pfile->nrefused = 0;
    return path.bcut ? ENAMETOOLONG : 0;
}

void log_file_limit(LOG_FILE* pfile)
{
    struct rlimit size = {};
    off_t nlimit = pfile->nsize;
    const bool bsizelimit = getrlimit(RLIMIT_FSIZE, &size) == 0 && size.rlim_cur != RLIM_INFINITY;

    if (bsizelimit && size.rlim_cur / 2 < static_cast<rlim_t>(nlimit)) {
        nlimit = static_cast<off_t>(size.rlim_cur / 2); /* a limit that is never reached would end the log */
    }
    pfile->bsizelimit = bsizelimit;
    pfile->nlimit = nlimit;
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
 * Gives back a second descriptor with a number that programs seldom come to: one that closes ours unknowingly opens its
 * next file under the lowest free number, and we would write to that until the next look.
 * Result: the descriptor, the given one if there is none so high.
 */
static int log_fd_high(int nfd)
{
    const int nhigh = fcntl(nfd, F_DUPFD_CLOEXEC, gfdhigh);

    return nhigh >= 0 ? nhigh : nfd;
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
        /* past the umask; a failure leaves a mode that only refuses more */
        if (nfd >= 0) {
            fchmod(nfd, gfilemode);
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
 * Tells whether a descriptor is a log's by the name of the file behind it. That may have been renamed or removed since,
 * so what follows the path's last part does not count; nor does the directory, whose path may contain links.
 */
static bool log_fd_isnamed(const LOG_FILE* pfile, int nfd)
{
    char szlink[64];
    char szfound[LOG_PATH_LEN + 64];
    LOG_TEXT link = {};
    const char* pname = strrchr(pfile->szpath, '/') + 1;
    const char* pfound = nullptr;
    ssize_t nlength = 0;

    log_text_open(&link, szlink, sizeof(szlink), LOG_ESC_NONE);
    log_text_format(&link, "/proc/self/fd/%d", nfd);
    log_text_close(&link, "");

    nlength = readlink(szlink, szfound, sizeof(szfound) - 1);
    szfound[nlength > 0 ? nlength : 0] = '\0';
    pfound = strrchr(szfound, '/');
    return pfound != nullptr && strncmp(pfound + 1, pname, strlen(pname)) == 0;
}

const char* log_file_directory(const LOG_FILE* pfile, char* pname)
{
    const size_t nlength = static_cast<size_t>(strrchr(pfile->szpath, '/') - pfile->szpath);

    memcpy(pname, pfile->szpath, nlength);
    pname[nlength] = '\0';
    return pname;
}

static bool log_fd_isdirectory(const LOG_FILE* pfile, int nfd)
{
    char szdirectory[LOG_PATH_LEN];
    struct stat own = {};
    struct stat found = {};

    return fstat(nfd, &own) == 0 && S_ISDIR(own.st_mode) && stat(log_file_directory(pfile, szdirectory), &found) == 0 &&
           own.st_ino == found.st_ino && own.st_dev == found.st_dev;
}

/*
 * Closes a descriptor that was open for a moment when the process was forked. The number may be a later one's or an
 * earlier one's than the descriptors themselves, and somebody else's by now.
 */
static void log_fd_dispose(const LOG_FILE* pfile, std::atomic<int>* pnfd)
{
    const int nfd = pnfd->exchange(-1);

    if (nfd >= 0 && (log_fd_isnamed(pfile, nfd) || log_fd_isdirectory(pfile, nfd))) {
        close(nfd);
    }
}

bool log_file_enter(LOG_FILE* pfile, unsigned nepoch)
{
    unsigned nowner = pfile->nowner.load(std::memory_order_relaxed);
    const bool bentered =
        nowner != nepoch && pfile->nowner.compare_exchange_strong(nowner, nepoch, std::memory_order_acquire);

    if (bentered && nowner != 0) {
        log_fd_dispose(pfile, &pfile->nlockfd);
        log_fd_dispose(pfile, &pfile->nnextfd);
        log_fd_dispose(pfile, &pfile->ndetourfd);
    }
    return bentered;
}

void log_file_leave(LOG_FILE* pfile)
{
    pfile->nowner.store(0, std::memory_order_release);
}

bool log_file_isours(const LOG_FILE* pfile, struct stat* pown)
{
    return fstat(pfile->nfd, pown) == 0 &&
           ((pown->st_dev == pfile->ndevice && pown->st_ino == pfile->ninode) || log_fd_isnamed(pfile, pfile->nfd));
}

bool log_file_iscurrent(const LOG_FILE* pfile, const struct stat* pown)
{
    struct stat found = {};

    return lstat(pfile->szpath, &found) == 0 && found.st_dev == pown->st_dev && found.st_ino == pown->st_ino;
}

int log_file_follow(LOG_FILE* pfile)
{
    struct stat own = {};
    struct stat found = {};
    const bool bours = log_file_isours(pfile, &own);
    const bool bgone = !bours || own.st_nlink == 0; /* as long as the old file has a name, nothing in it is lost */
    int nfd = -1;
    int ncode = 0;

    if (bours && log_file_iscurrent(pfile, &own)) {
        goto monp_exit_reached;
    }
    nfd = log_open_path(pfile->szpath);
    pfile->nnextfd = nfd;
    if (nfd < 0 || fstat(nfd, &found) != 0) {
        ncode = errno;
        pfile->nabandoned += bgone && !pfile->bunreachable ? 1 : 0;
        pfile->bunreachable = bgone;
        goto monp_exit_close;
    }
    if (bours) {
        /* the number stays, so that a thread in the middle of a write never has another file under its hands */
        ncode = dup3(nfd, pfile->nfd, O_CLOEXEC) < 0 ? errno : 0;
    } else {
        pfile->nfd = log_fd_high(nfd);
    }
    if (ncode != 0) {
        goto monp_exit_close;
    }
    pfile->nabandoned += bgone ? 1 : 0;
    pfile->nroom = 0;
    pfile->bfull = false;
    pfile->nbusy = 0;
    pfile->ndevice = found.st_dev;
    pfile->ninode = found.st_ino;

monp_exit_reached:
    pfile->bunreachable = false;
monp_exit_close:
    pfile->nnextfd = -1; /* first: a child must not close what has its number later */
    if (nfd >= 0 && nfd != pfile->nfd) {
        close(nfd);
    }
    return ncode;
}
