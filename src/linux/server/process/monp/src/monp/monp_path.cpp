/*
 * The one place where texts are joined, so that no path is ever cut in silence.
 */
#include "monp_path.h"

#include "monp_log.h"
#include "monp_view.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <libgen.h>

int monp_join(char* pdest, size_t nsize, const char* pwhat, const char* pformat, ...)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nlen = 0;
    va_list args;

    va_start(args, pformat);
    nlen = vsnprintf(pdest, nsize, pformat, args);
    va_end(args);

    if (nlen < 0 || static_cast<size_t>(nlen) >= nsize) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("%s does not fit. (type=%s len=%d max=%d)", pwhat, gview.pmonpol->type, nlen,
                   static_cast<int>(nsize) - 1);
        memset(pdest, 0, nsize);
    }
    return nfuncret;
}

void monp_programpath(const char* prelative, PMONP_PROGRAM_INFO pprog)
{
    char szcopy[CS_PRG_CAPTION_LEN] = {};

    memset(pprog, 0, sizeof(*pprog));
    if (monp_join(pprog->szpath, sizeof(pprog->szpath), "program path", "%s%s", gview.pallpol->instpath, prelative) !=
        MONP_RET_SUCCESS) {
        goto monp_exit_func;
    }
    /* basename may write into its argument. */
    memcpy(szcopy, pprog->szpath, sizeof(szcopy));
    if (monp_join(pprog->szbin, sizeof(pprog->szbin), "program name", "%s", basename(szcopy)) != MONP_RET_SUCCESS) {
        memset(pprog->szpath, 0, sizeof(pprog->szpath));
    }

monp_exit_func:
    return;
}

void monp_addarg(char** pargv, int* pnum, const char* pargument)
{
    /* execv takes pointers to characters that it does not write. */
    pargv[*pnum] = const_cast<char*>(pargument);
    (*pnum)++;
}
