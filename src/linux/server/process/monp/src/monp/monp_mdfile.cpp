/*
 * The marker file of the service type "pelkant": it exists once the start phase of the service is over in any way.
 */
#include "monp_mdfile.h"

#include "monp_log.h"
#include "monp_path.h"
#include "monp_view.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

int monp_usesmarker(void)
{
    return strcmp(gview.pmonpol->type, "pelkant") == 0 ? -1 : 0;
}

/*
 * Makes the directory unless there is an entry of its name.
 * Result: MONP_RET_SUCCESS or MONP_RET_FAIL_UNKNOWN.
 */
static int monp_makedirectory(const char* pdir)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nerrno = 0;
    struct stat dirstat = {};

    if (stat(pdir, &dirstat) == 0 || mkdir(pdir, 0744) == 0) {
        goto monp_exit_func;
    }
    nerrno = errno;
    /* Another monitor may have been the first. A link to nowhere is there, too, but no directory. */
    if (nerrno != EEXIST || stat(pdir, &dirstat) != 0) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("mkdir failed. (dir=%s errno=%d)", pdir, nerrno);
    }

monp_exit_func:
    return nfuncret;
}

void monp_make_duemdfile(void)
{
    if (gmonpstate.bmarkerdue.exchange(0) != 0) {
        monp_make_mdfile();
    }
}

int monp_make_mdfile(void)
{
    char szdir[CS_PRG_CAPTION_LEN] = {};
    char szfile[CS_PRG_CAPTION_LEN] = {};
    FILE* pfile = nullptr;

    if (gmdfilemaked == -1 || monp_usesmarker() == 0) {
        goto monp_exit_func;
    }
    /* One thread makes and deletes: a file made under the old name beside a reload would stay for ever, and a flag set
       behind its back would stand for a file that is gone. */
    if (monp_ismainthread() == 0) {
        gmonpstate.bmarkerdue = -1;
        goto monp_exit_func;
    }
    MONP_INFO("start - (type=%s)", gview.pmonpol->type);

    if (monp_join(szdir, sizeof(szdir), "marker directory", "%s%s", gview.pallpol->instpath, gview.ppol->mddirpath) !=
        MONP_RET_SUCCESS) {
        goto monp_exit_made;
    }
    if (monp_makedirectory(szdir) != MONP_RET_SUCCESS) {
        goto monp_exit_made;
    }
    if (monp_join(szfile, sizeof(szfile), "marker file", "%s/%s", szdir, gview.ppol->mdfilename) != MONP_RET_SUCCESS) {
        goto monp_exit_made;
    }
    /* Close-on-exec: the other thread may be starting a program right now. */
    pfile = fopen(szfile, "ae");
    if (pfile == nullptr) {
        MONP_ERROR("fopen failed. (file=%s errno=%d)", szfile, errno);
        goto monp_exit_made;
    }
    gmdfilemaked = -1;
    fclose(pfile);

monp_exit_made:
    MONP_INFO("end - (type=%s)", gview.pmonpol->type);

monp_exit_func:
    return MONP_RET_SUCCESS;
}

int monp_delete_mdfile(void)
{
    char szfile[CS_PRG_CAPTION_LEN] = {};
    struct stat filestat = {};

    if (monp_usesmarker() == 0) {
        goto monp_exit_func;
    }
    /* A file that is still to be made belongs to what ends here. */
    gmonpstate.bmarkerdue = 0;
    MONP_INFO("start - (type=%s)", gview.pmonpol->type);

    if (monp_join(szfile, sizeof(szfile), "marker file", "%s%s/%s", gview.pallpol->instpath, gview.ppol->mddirpath,
                  gview.ppol->mdfilename) != MONP_RET_SUCCESS) {
        goto monp_exit_deleted;
    }
    if (stat(szfile, &filestat) != 0) {
        MONP_ERROR("Not exist file. (file=%s errno=%d)", szfile, errno);
    } else if (unlink(szfile) != 0) {
        MONP_ERROR("unlink failed. (file=%s errno=%d)", szfile, errno);
    }

monp_exit_deleted:
    MONP_INFO("end - (type=%s)", gview.pmonpol->type);

monp_exit_func:
    return MONP_RET_SUCCESS;
}
