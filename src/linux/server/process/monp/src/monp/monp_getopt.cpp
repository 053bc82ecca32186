/*
 * The command line, and the splitting of the service's own arguments.
 */
#include "monp.h"
#include "monp_log.h"
#include "monp_run.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <regex.h>
#include <strings.h>

/* A type argument with its two dashes: the type itself has 1 to 29 characters. */
static constexpr size_t MONP_TYPEARG_MIN = 3;
static constexpr size_t MONP_TYPEARG_MAX = 31;

/*
 * An option: reads its value, if it takes one, from the next argument and moves *pinx on to it. Logs its own fault.
 */
typedef struct {
    const char* pname;
    int (*pread)(int argc, char** argv, int* pinx);
} MONP_OPTION;

/*
 * atoi, but with a defined result for what an int cannot hold.
 */
static int monp_tonumber(const char* ptext)
{
    long nval = strtol(ptext, nullptr, 10);

    if (nval > INT_MAX) {
        nval = INT_MAX;
    } else if (nval < INT_MIN) {
        nval = INT_MIN;
    }
    return static_cast<int>(nval);
}

static int monp_opttype(const char* pargument)
{
    int nfuncret = MONP_RET_SUCCESS;
    size_t nlen = strlen(pargument);

    if (gmonpparam.type[0] != '\0' || nlen < MONP_TYPEARG_MIN || nlen > MONP_TYPEARG_MAX) {
        nfuncret = MONP_RET_FAIL_PARAM;
        MONP_ERROR("invalid type.");
        goto monp_exit_func;
    }
    memcpy(gmonpparam.type, pargument + 2, nlen - 2 + 1);

monp_exit_func:
    return nfuncret;
}

/*
 * Moves on to the value of an option.
 *   bgiven  -1: the option was given before
 * Result: the value; null when the option was given before or there is no next argument.
 */
static const char* monp_optvalue(int argc, char** argv, int* pinx, int bgiven)
{
    const char* pvalue = nullptr;

    if (bgiven == 0 && *pinx + 1 < argc) {
        (*pinx)++;
        pvalue = argv[*pinx];
    }
    return pvalue;
}

static int monp_optaction(int argc, char** argv, int* pinx)
{
    int nfuncret = MONP_RET_FAIL_PARAM;
    const char* pvalue = monp_optvalue(argc, argv, pinx, gmonpparam.action > 0 ? -1 : 0);

    if (pvalue == nullptr) {
        MONP_ERROR("invalid action.");
        goto monp_exit_func;
    }
    gmonpparam.action = monp_tonumber(pvalue);
    if (gmonprecover[monp_findrow(gmonpparam.action)].action == 0) {
        MONP_ERROR("invalid action. (val=%d)", gmonpparam.action);
        goto monp_exit_func;
    }
    nfuncret = MONP_RET_SUCCESS;

monp_exit_func:
    return nfuncret;
}

static int monp_optparam(int argc, char** argv, int* pinx)
{
    int nfuncret = MONP_RET_FAIL_PARAM;
    const char* pvalue = monp_optvalue(argc, argv, pinx, gmonpparam.param[0] != '\0' ? -1 : 0);

    if (pvalue == nullptr || strlen(pvalue) >= sizeof(gmonpparam.param)) {
        MONP_ERROR("invalid param.");
        goto monp_exit_func;
    }
    memcpy(gmonpparam.param, pvalue, strlen(pvalue) + 1);
    nfuncret = MONP_RET_SUCCESS;

monp_exit_func:
    return nfuncret;
}

static int monp_optrestime(int argc, char** argv, int* pinx)
{
    int nfuncret = MONP_RET_FAIL_PARAM;
    const char* pvalue = monp_optvalue(argc, argv, pinx, gmonpparam.restime >= MONP_OPT_RETRY_MIN ? -1 : 0);

    if (pvalue == nullptr) {
        MONP_ERROR("invalid restart time.");
        goto monp_exit_func;
    }
    gmonpparam.restime = monp_tonumber(pvalue);
    if (gmonpparam.restime < MONP_OPT_RETRY_MIN) {
        MONP_ERROR("invalid restart times. (val=%d)", gmonpparam.restime);
        goto monp_exit_func;
    }
    nfuncret = MONP_RET_SUCCESS;

monp_exit_func:
    return nfuncret;
}

static int monp_optwait(int argc, char** argv, int* pinx)
{
    int nfuncret = MONP_RET_FAIL_PARAM;
    const char* pvalue = monp_optvalue(argc, argv, pinx, gmonpparam.wait >= MONP_OPT_WAIT_MIN ? -1 : 0);

    if (pvalue == nullptr) {
        MONP_ERROR("invalid wait time.");
        goto monp_exit_func;
    }
    gmonpparam.wait = monp_tonumber(pvalue);
    if (gmonpparam.wait < MONP_OPT_WAIT_MIN) {
        MONP_ERROR("invalid wait time. (val=%d)", gmonpparam.wait);
        goto monp_exit_func;
    }
    nfuncret = MONP_RET_SUCCESS;

monp_exit_func:
    return nfuncret;
}

static int monp_optnostart(int, char**, int*)
{
    gbmonpnostart = -1;
    return MONP_RET_SUCCESS;
}

static constexpr MONP_OPTION goptions[] = {
    { "-a", monp_optaction }, { "-o", monp_optparam },   { "-r", monp_optrestime },
    { "-w", monp_optwait },   { "-n", monp_optnostart },
};

static int monp_optother(int argc, char** argv, int* pinx)
{
    int nfuncret = MONP_RET_FAIL_PARAM;
    size_t nrow = 0;

    while (nrow < std::size(goptions) && strcasecmp(argv[*pinx], goptions[nrow].pname) != 0) {
        nrow++;
    }
    if (nrow == std::size(goptions)) {
        MONP_ERROR("unknown option. (val=%s)", argv[*pinx]);
        goto monp_exit_func;
    }
    nfuncret = goptions[nrow].pread(argc, argv, pinx);

monp_exit_func:
    return nfuncret;
}

int monp_getopt(int argc, char** argv)
{
    int nfuncret = MONP_RET_SUCCESS;
    int nret = 0;
    int ninx = 0;
    regex_t typeexp;

    MONP_INFO("start - (argc=%d argv=%p)", argc, static_cast<void*>(argv));

    gmonpparam.action = -1;
    gmonpparam.restime = -1;
    gmonpparam.wait = -1;

    nret = regcomp(&typeexp, "^--", REG_EXTENDED);
    if (nret != 0) {
        nfuncret = MONP_RET_FAIL_PARAM;
        MONP_ERROR("regcomp failed. (ret=%d)", nret);
        goto monp_exit_func;
    }

    for (ninx = 1; ninx < argc && nfuncret == MONP_RET_SUCCESS; ninx++) {
        if (regexec(&typeexp, argv[ninx], 0, nullptr, 0) == 0) {
            nfuncret = monp_opttype(argv[ninx]);
        } else {
            nfuncret = monp_optother(argc, argv, &ninx);
        }
    }
    if (nfuncret == MONP_RET_SUCCESS && gmonpparam.type[0] == '\0') {
        nfuncret = MONP_RET_FAIL_PARAM;
        MONP_ERROR("invalid type.");
    }
    regfree(&typeexp);

monp_exit_func:
    MONP_INFO("end - (ret=%d)", nfuncret);
    return nfuncret;
}

int monp_parse_param(char* pparam, char** pargv, int nmaxargc, int* pparsenum)
{
    int nfuncret = MONP_RET_SUCCESS;
    int ninx = 0;
    int nnum = 0;
    size_t npos = 0;
    size_t nlen = strlen(pparam);

    MONP_TRACE("start - (type=%s param=%s argv=%p maxargc=%d parsenum=%p).", gmonpmonpol.type, pparam,
               static_cast<void*>(pargv), nmaxargc, static_cast<void*>(pparsenum));

    *pparsenum = 0;
    if (nlen >= MONP_OPT_PARAM_LEN) {
        nfuncret = MONP_RET_FAIL_UNKNOWN;
        MONP_ERROR("invalid param length. (type=%s len=%d)", gmonpmonpol.type, static_cast<int>(nlen));
        goto monp_exit_func;
    }

    while (npos < nlen) {
        if (pparam[npos] == ' ') {
            npos++;
            continue;
        }
        if (nnum >= nmaxargc) {
            MONP_WARNING("argument reached the maximum. (type=%s max=%d curnum=%d)", gmonpmonpol.type, nmaxargc, nnum);
            break;
        }
        pargv[nnum] = &pparam[npos];
        nnum++;
        npos += strcspn(&pparam[npos], " ");
        pparam[npos] = '\0';
        npos++;
    }
    *pparsenum = nnum;

    for (ninx = 0; ninx < nnum; ninx++) {
        MONP_INFO("arg%d -> %s (type=%s)", ninx, pargv[ninx], gmonpmonpol.type);
    }

monp_exit_func:
    MONP_TRACE("end - (type=%s ret=%d parsenum=%d)", gmonpmonpol.type, nfuncret, *pparsenum);
    return nfuncret;
}
