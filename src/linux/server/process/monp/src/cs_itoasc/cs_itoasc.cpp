/*
 * The common number-to-text routine. It logs through the handle it is given, so that any program can use it.
 */
#include "csub.h"

#include "tesklog.h"

#include <climits>
#include <cstring>

static int cs_countfigures(int nmagnitude)
{
    int nfigure = 1;

    while (nmagnitude >= 10) {
        nmagnitude /= 10;
        nfigure++;
    }
    return nfigure;
}

int cs_itoasc(const int num, int len, char* pstr, void* plog)
{
    int nfuncret = CS_RET_SUCCESS;
    int nmagnitude = 0;
    int nfigure = 0;
    int nwrpos = 0;
    int ninx = 0;

    TESKLOG_LINE(plog, TESKLOG_DETAIL, "start - (src=%d len=%d dest=%p loghdl=%p)", num, len, static_cast<void*>(pstr),
                 plog);

    memset(pstr, 0, static_cast<size_t>(len));

    if (num < 0) {
        nwrpos = 1;
        if (len > nwrpos) {
            pstr[0] = '-';
        }
    }
    if (num == INT_MIN) {
        nfuncret = CS_RET_FAIL_UNKOWN;
        TESKLOG_LINE(plog, TESKLOG_ERROR, "convert failed.");
        goto monp_exit_func;
    }
    nmagnitude = num < 0 ? -num : num;

    nfigure = cs_countfigures(nmagnitude);
    if (nfigure + nwrpos + 1 > len) {
        nfuncret = CS_RET_FAIL_UNKOWN;
        TESKLOG_LINE(plog, TESKLOG_ERROR, "small buffer. (figure=%d wrpos=%d len=%d)", nfigure, nwrpos, len);
        goto monp_exit_func;
    }

    for (ninx = nfigure + nwrpos - 1; ninx >= nwrpos; ninx--) {
        pstr[ninx] = static_cast<char>('0' + nmagnitude % 10);
        nmagnitude /= 10;
    }

monp_exit_func:
    TESKLOG_LINE(plog, nfuncret == CS_RET_SUCCESS ? TESKLOG_DETAIL : TESKLOG_ERROR, "end - (dest=%s)", pstr);
    return nfuncret;
}
