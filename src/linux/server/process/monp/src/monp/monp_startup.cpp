/*
 * The steps of start-up, each on its own; main has their order.
 */
#include "monp_run.h"

#include "monp_log.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <unistd.h>

/*
 * Suffix of each service type's lock file. The configured path is that of the first type.
 */
typedef struct {
    const char* ptype;
    const char* psuffix;
} MONP_LOCKSUFFIX;

static constexpr MONP_LOCKSUFFIX gsuffixes[] = {
    { "pm", "" },         { "event", "_evt" },     { "dusko", "_trn" },
    { "pelkant", "_md" }, { "sorvin", "_sorvin" }, { "tamzile", "_tamzsync" },
    { "goru", "_ib" },    { "lenk", "_api" },      { "nm", "_nm" },
};

/*
 * The log would take the lowest free number; as the standard error it would get what is printed there.
 */
void monp_startup_descriptors(void)
{
    int nfd = 0;

    /* Handed down like those that were open. */
    do {
        nfd = open("/dev/null", O_RDWR);
    } while (nfd >= 0 && nfd <= STDERR_FILENO);
    if (nfd > STDERR_FILENO) {
        close(nfd);
    }
}

static void monp_logdirectory(void)
{
    char szcurpath[CS_PRG_CAPTION_LEN] = {};

    if (getcwd(szcurpath, sizeof(szcurpath)) == nullptr) {
        MONP_ERROR("getcwd() failed. (errno=%d)", errno);
    } else {
        MONP_INFO("curdir -> %s", szcurpath);
    }
}

int monp_startup_settings(int argc, char** argv)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nret = static_cast<int>(getuid());

    /* Not "above 0": a uid in the upper half prints as a negative number and is no more root than any other. */
    if (nret != 0) {
        nfuncret = MONP_RET_FAIL_INIT;
        MONP_ERROR("permission denied. (ret=%d)", nret);
        fprintf(stderr, "%s : permission denied. (ret=%d line=%d)\n", "monp", nret, __LINE__);
        goto monp_exit_func;
    }
    monp_logdirectory();

    nret = monp_getopt(argc, argv);
    if (nret != MONP_RET_SUCCESS) {
        nfuncret = MONP_RET_FAIL_PARAM;
        MONP_ERROR("monp_getopt() failed. (ret=%d)", nret);
        fprintf(stderr, "%s : invalid parameter. (ret=%d line=%d)\n", "monp", nret, __LINE__);
        goto monp_exit_func;
    }

    nret = monp_getconfig();
    if (nret != MONP_RET_SUCCESS) {
        nfuncret = MONP_RET_FAIL_INIT;
        MONP_ERROR("monp_getconfig() failed. (type=%s ret=%d)", gmonpparam.type, nret);
        fprintf(stderr, "%s : monp_getconfig() failed. (ret=%d line=%d)\n", "monp", nret, __LINE__);
        memset(gmonppol.lkfpath, 0, sizeof(gmonppol.lkfpath));
    }

monp_exit_func:
    return nfuncret;
}

void monp_startup_lockfile(void)
{
    size_t nrow = 0;
    char szbase[CS_PRG_CAPTION_LEN] = {};

    if (gmonppol.lkfpath[0] == '\0') {
        goto monp_exit_func;
    }
    memcpy(szbase, gmonppol.lkfpath, sizeof(szbase));
    memset(gmonppol.lkfpath, 0, sizeof(gmonppol.lkfpath));

    while (nrow < std::size(gsuffixes) && strcmp(gmonpparam.type, gsuffixes[nrow].ptype) != 0) {
        nrow++;
    }
    if (nrow < std::size(gsuffixes)) {
        monp_join(gmonppol.lkfpath, sizeof(gmonppol.lkfpath), "lock file", "%s%s", szbase, gsuffixes[nrow].psuffix);
    }

monp_exit_func:
    return;
}

void monp_startup_directory(void)
{
    char szpath[CS_PRG_CAPTION_LEN] = {};

    if (monp_join(szpath, sizeof(szpath), "bin directory", "%s/bin", gmonpallpol.instpath) != MONP_RET_SUCCESS) {
        goto monp_exit_func;
    }
    if (chdir(szpath) != 0) {
        MONP_ERROR("chdir() failed. (path=%s errno=%d)", szpath, errno);
    }

monp_exit_func:
    return;
}

void monp_startup_log(void)
{
    monp_log_close();
    monp_log_open(gmonppol.loglevel, gmonppol.logsize);
}

/*
 * Sets a variable that the policy may leave as it was inherited.
 */
static void monp_setinherited(const char* pname, const char* pvalue)
{
    MONP_INFO("set %s -> %s (type=%s)", pname, pvalue, gmonpparam.type);
    if (pvalue[0] != '\0' && setenv(pname, pvalue, 1) != 0) {
        MONP_ERROR("setenv() failed. (type=%s env=%s path=%s errno=%d)", gmonpparam.type, pname, pvalue, errno);
    }
}

void monp_startup_environment(void)
{
    MONP_INFO("set %s -> %s (type=%s)", "MALLOC_CHECK_", gmonpallpol.env_malchk, gmonpparam.type);
    if (setenv("MALLOC_CHECK_", gmonpallpol.env_malchk, 1) != 0) {
        MONP_ERROR("setenv() failed. (type=%s env=%s alchk=%s errno=%d)", gmonpparam.type, "MALLOC_CHECK_",
                   gmonpallpol.env_malchk, errno);
    }
    monp_setinherited("PATH", gmonpallpol.env_path);
    monp_setinherited("LANG", gmonpallpol.env_lang);
}

void monp_startup_program(PMONP_RUN_INFO prun)
{
    int nparsenum = 0;

    monp_programpath(gmonpmonpol.path, &prun->prog);
    /* Room is left for argument 0 and for the null pointer behind the last one. */
    monp_parse_param(gmonpparam.param, &prun->pargv[1], MONP_OPT_NUM - 2, &nparsenum);
    prun->pargv[0] = prun->prog.szbin;
    prun->pargv[nparsenum + 1] = nullptr;
    MONP_INFO("path=%s bin=%s", prun->prog.szpath, prun->prog.szbin);
}

void monp_removelockfile(void)
{
    if (gmonppol.lkfpath[0] == '\0') {
        goto monp_exit_func;
    }
    if (access(gmonppol.lkfpath, F_OK) != 0) {
        MONP_ERROR("access() failed. (type=%s path=%s err=%d)", gmonpmonpol.type, gmonppol.lkfpath, errno);
    } else if (unlink(gmonppol.lkfpath) != 0) {
        MONP_ERROR("unlink() failed. (type=%s path=%s err=%d)", gmonpmonpol.type, gmonppol.lkfpath, errno);
    }

monp_exit_func:
    return;
}
