/*
 * The search for a running service: by its resolved executable path, over all of /proc.
 */
#include "monp.h"
#include "monp_log.h"
#include "monp_path.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <unistd.h>

int free_scandir(struct dirent** pplist, int nproc)
{
    int ninx = 0;

    for (ninx = 0; ninx < nproc; ninx++) {
        free(pplist[ninx]);
    }
    free(pplist);
    return 0;
}

/*
 * The process that an entry of /proc stands for; 0 for every other entry.
 */
static pid_t monp_entrypid(const char* pname)
{
    char* pend = nullptr;
    long nval = 0;

    if (strcmp(pname, ".") == 0 || strcmp(pname, "..") == 0 || strcmp(pname, "self") == 0) {
        goto monp_exit_func;
    }
    nval = strtol(pname, &pend, 10);
    if (*pend != '\0' || nval < 0 || nval > INT_MAX) {
        nval = 0;
    }

monp_exit_func:
    return static_cast<pid_t>(nval);
}

/*
 * Reads where the exe link of a process points. A link that cannot be read, as a kernel thread's, gives an empty text;
 * so does one that does not fit, for a cut path may equal another program's.
 */
static void monp_readexe(const char* pname, char* linkpath, size_t nsize)
{
    char exepath[CS_PRG_CAPTION_LEN] = {};
    ssize_t nlen = 0;

    memset(linkpath, 0, nsize);
    if (monp_join(exepath, sizeof(exepath), "exe link", "/proc/%s/exe", pname) != MONP_RET_SUCCESS) {
        goto monp_exit_func;
    }
    nlen = readlink(exepath, linkpath, nsize);
    if (nlen < 0) {
        linkpath[0] = '\0';
    } else if (static_cast<size_t>(nlen) >= nsize) {
        memset(linkpath, 0, nsize);
        MONP_INFO("executable path does not fit. (type=%s pid=%s max=%d)", gmonpmonpol.type, pname,
                  static_cast<int>(nsize) - 1);
    }

monp_exit_func:
    return;
}

/*
 * Resolves the service's path; empty when that fails, so that it equals no process.
 * Result: MONP_RET_SUCCESS, or MONP_RET_FAIL_UNKNOWN when the resolved path does not fit, which is logged.
 */
static int monp_resolve(const char* checkpath, char* absolutepath, size_t nsize)
{
    int nfuncret = MONP_RET_SUCCESS;
    char szresolved[PATH_MAX] = {};

    memset(absolutepath, 0, nsize);
    if (realpath(checkpath, szresolved) != nullptr) {
        nfuncret = monp_join(absolutepath, nsize, "service path", "%s", szresolved);
    }
    return nfuncret;
}

int monp_getservice(char* checkpath, pid_t* pid)
{
    int nfuncret = MONP_RET_FAIL_UNKNOWN;
    int ninx = 0;
    int nproc = 0;
    pid_t nentry = 0;
    struct dirent** pplist = nullptr;
    char linkpath[CS_PRG_CAPTION_LEN] = {};
    char absolutepath[CS_PRG_CAPTION_LEN] = {};

    *pid = 0;
    nproc = scandir("/proc", &pplist, nullptr, alphasort);
    if (nproc < 0) {
        MONP_ERROR("scandir /proc failed.");
        goto monp_exit_func;
    }

    for (ninx = 0; ninx < nproc && *pid == 0; ninx++) {
        nentry = monp_entrypid(pplist[ninx]->d_name);
        if (nentry <= 0) {
            continue;
        }
        monp_readexe(pplist[ninx]->d_name, linkpath, sizeof(linkpath));
        /* An empty path would equal an unresolvable one, and a kernel thread pass for the service. */
        if (linkpath[0] == '\0') {
            continue;
        }
        /* Anew for each candidate: the program may be replaced while the search runs. */
        if (monp_resolve(checkpath, absolutepath, sizeof(absolutepath)) != MONP_RET_SUCCESS) {
            break;
        }
        if (strcmp(linkpath, absolutepath) == 0) {
            *pid = nentry;
        }
    }
    free_scandir(pplist, nproc);
    /* The list was as long as the system had processes, and the monitor now sleeps for months. */
    malloc_trim(0);

    if (*pid > 0) {
        nfuncret = MONP_RET_SUCCESS;
        MONP_INFO("service process is found. (pid=%d)", *pid);
    } else {
        MONP_INFO("service process is not found.");
    }

monp_exit_func:
    return nfuncret;
}
