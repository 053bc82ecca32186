/*
 * The library's only way to a file. Owner and mode are looked at on the opened descriptor, and each name is opened from
 * the directory that was looked at, so nothing can be exchanged between the look and the use.
 */
#include "teskxml_file.h"

#include "teskxml_error.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

/* Directories are only passed through. A file is opened without waiting, as it may turn out to be a FIFO, and without
   becoming the daemon's terminal. */
static constexpr int gndirflags = O_PATH | O_DIRECTORY;
static constexpr int gnfileflags = O_RDONLY | O_NONBLOCK | O_NOCTTY;

#ifdef TESKXML_TOOLS
static bool gbanyowner = false;

void teskxml_accept_untrusted(int accept)
{
    gbanyowner = accept != 0;
}
#else
/* Nothing that runs in the monitor can turn the checks off. */
static constexpr bool gbanyowner = false;
#endif

/* One step of the way down: pfile up to nend is what is opened or looked at. */
typedef struct {
    const char* pfile;
    size_t nend;
} TESKXML_STEP;

/* Why nothing could be opened; the last row is for every other reason. */
typedef struct {
    int error;
    int code;
    const char* format;
} TESKXML_OPENFAIL;

static constexpr TESKXML_OPENFAIL gopenfail[] = {
    { ENOENT, TESKXML_RET_FAIL_NOTFOUND, "%.*s does not exist" },
    { ELOOP, TESKXML_RET_FAIL_FILETYPE, "%.*s is a symbolic link" },
    { ENOTDIR, TESKXML_RET_FAIL_FILETYPE, "%.*s is no directory, where one is needed, or a symbolic link" },
    { ENXIO, TESKXML_RET_FAIL_FILETYPE, "%.*s is no regular file" }, /* a socket, or a device without a driver */
    { 0, TESKXML_RET_FAIL_READ, "%.*s cannot be opened: %m" },
};

static int teskxml_openfailed(const TESKXML_STEP* pstep)
{
    const TESKXML_OPENFAIL* prow = gopenfail;

    while (prow->error != 0 && prow->error != errno) {
        prow++;
    }
    return teskxml_fail(prow->code, pstep->pfile, 0, 0, prow->format, static_cast<int>(pstep->nend), pstep->pfile);
}

static int teskxml_checktrust(const TESKXML_STEP* pstep, mode_t ntype, const struct stat* pstat)
{
    int nfuncret = TESKXML_RET_SUCCESS;
    int nshown = static_cast<int>(pstep->nend);

    if ((pstat->st_mode & S_IFMT) != ntype) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_FILETYPE, pstep->pfile, 0, 0, "%.*s is no regular file", nshown,
                                pstep->pfile);
    } else if (gbanyowner) {
        nfuncret = TESKXML_RET_SUCCESS;
    } else if (pstat->st_uid != 0) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_UNTRUSTED, pstep->pfile, 0, 0,
                                "%.*s belongs to the user %u instead of root", nshown, pstep->pfile, pstat->st_uid);
    } else if ((pstat->st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_UNTRUSTED, pstep->pfile, 0, 0,
                                "%.*s is writable by group or others (mode %04o)", nshown, pstep->pfile,
                                pstat->st_mode & 07777U);
    }
    return nfuncret;
}

/* Opens pname in the directory *pfd and puts the new descriptor in its place; the directory is closed in every case. */
static int teskxml_stepdown(const TESKXML_STEP* pstep, const char* pname, int nflags, int* pfd, struct stat* pstat)
{
    int nfuncret = TESKXML_RET_SUCCESS;
    int nfd = openat(*pfd, pname, nflags | O_NOFOLLOW | O_CLOEXEC);

    if (nfd < 0) {
        nfuncret = teskxml_openfailed(pstep);
    } else if (fstat(nfd, pstat) != 0) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_READ, pstep->pfile, 0, 0, "fstat failed: %m");
    } else {
        nfuncret = teskxml_checktrust(pstep, (nflags & O_DIRECTORY) != 0 ? S_IFDIR : S_IFREG, pstat);
    }
    if (*pfd >= 0) {
        close(*pfd);
    }
    *pfd = nfd;
    return nfuncret;
}

/* Opens the file by steps; the caller closes *pfd if it is 0 or more, also after a failure. */
static int teskxml_walkdown(const char* pfile, size_t ntop, int* pfd, struct stat* pstat)
{
    int nfuncret = TESKXML_RET_SUCCESS;
    char szname[TESKXML_MAX_PATH + 1] = "/";
    TESKXML_STEP step = { pfile, ntop > 0 ? ntop : 1 };
    const char* pname = nullptr;
    size_t nlen = 0;

    memcpy(szname, pfile, ntop);
    *pfd = AT_FDCWD;
    nfuncret = teskxml_stepdown(&step, szname, gndirflags, pfd, pstat);

    for (pname = pfile + ntop; nfuncret == TESKXML_RET_SUCCESS && *pname == '/'; pname += nlen) {
        pname++;
        nlen = strcspn(pname, "/");
        memcpy(szname, pname, nlen);
        szname[nlen] = '\0';
        step.nend = static_cast<size_t>(pname - pfile) + nlen;

        if (nlen == 0) {
            nfuncret =
                teskxml_fail(TESKXML_RET_FAIL_ARGUMENT, pfile, 0, 0, "a \"/\" in the path has no name behind it");
        } else if (strcmp(szname, ".") == 0 || strcmp(szname, "..") == 0) {
            nfuncret = teskxml_fail(TESKXML_RET_FAIL_ARGUMENT, pfile, 0, 0, "\"%s\" in the path is refused", szname);
        } else {
            nfuncret = teskxml_stepdown(&step, szname, pname[nlen] == '/' ? gndirflags : gnfileflags, pfd, pstat);
        }
    }
    return nfuncret;
}

/* Reads the content by one call. A file that has another size by then is being written, and is not complete. */
static int teskxml_readall(const char* pfile, int nfd, char* pdata, size_t nsize)
{
    int nfuncret = TESKXML_RET_SUCCESS;
    ssize_t nread = 0;

    do {
        nread = read(nfd, pdata, nsize + 1);
    } while (nread < 0 && errno == EINTR);

    if (nread < 0) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_READ, pfile, 0, 0, "read failed: %m");
    } else if (static_cast<size_t>(nread) != nsize) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_READ, pfile, 0, 0, "the file changed while it was read");
    }
    return nfuncret;
}

int teskxml_file_read(const char* pfile, size_t ntop, char** ppdata, size_t* psize)
{
    int nfuncret = TESKXML_RET_SUCCESS;
    int nfd = -1;
    struct stat status = {};
    char* pdata = nullptr;

    nfuncret = teskxml_walkdown(pfile, ntop, &nfd, &status);
    if (nfuncret != TESKXML_RET_SUCCESS) {
        goto monp_exit_close;
    }
    if (status.st_size > TESKXML_MAX_FILE) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_LIMIT, pfile, 0, 0, "%lld bytes, more than %d",
                                static_cast<long long>(status.st_size), TESKXML_MAX_FILE);
        goto monp_exit_close;
    }
    pdata = static_cast<char*>(malloc(static_cast<size_t>(status.st_size) + 1));
    if (pdata == nullptr) {
        nfuncret = teskxml_fail(TESKXML_RET_FAIL_MEMORY, pfile, 0, 0, "out of memory");
        goto monp_exit_close;
    }
    nfuncret = teskxml_readall(pfile, nfd, pdata, static_cast<size_t>(status.st_size));
    if (nfuncret != TESKXML_RET_SUCCESS) {
        goto monp_exit_free;
    }
    *ppdata = pdata;
    *psize = static_cast<size_t>(status.st_size);
    pdata = nullptr;

monp_exit_free:
    free(pdata);
monp_exit_close:
    if (nfd >= 0) {
        close(nfd);
    }
    return nfuncret;
}
