/*
 * Common routines and codes of the cluster's server programs.
 */
#ifndef CSUB_H
#define CSUB_H

/*
 * Results of the common routines.
 */
enum __cs_ret_values__ {
    CS_RET_SUCCESS = 0,
    CS_RET_FAIL_PARM = 1,
    CS_RET_FAIL_EXIST = 2,
    CS_RET_FAIL_GETADDRINFO = 3,
    CS_RET_FAIL_SOCKET = 4,
    CS_RET_FAIL_IOCTL = 5,
    CS_RET_FAIL_UNKOWN = 6,
    CS_RET_FAIL_INITED = 7,
    CS_RET_FAIL_NOTINIT = 8,
    CS_RET_FAIL_CONNECT = 9,
    CS_RET_FAIL_BIND = 10,
    CS_RET_FAIL_BUSY = 11,
    CS_RET_FAIL_NOTFOUND = 12,
    CS_RET_FAIL_DUPLICATE = 13,
    CS_RET_FAIL_TIMEOUT = 14
};

/*
 * Values of flag arguments. State flags, unlike these, hold -1 for true.
 */
enum __cs_flag_values__ { CS_FLAG_OFF = 0, CS_FLAG_ON = 1 };

/*
 * Sizes of character arrays in bytes, the terminating NUL included.
 */
enum __cs_max_length__ {
    CS_TYPE_LEN = 32,         /* type names */
    CS_PRG_CAPTION_LEN = 1024 /* paths */
};

/*
 * Writes a number as decimal text, with a sign if it is negative and no fill characters.
 *   num   the number; the most negative int is refused, as its magnitude does not fit an int
 *   len   bytes of the buffer, 1 or more; what the text leaves of them is zero
 *   pstr  out: the text; no usable number after a failure
 *   plog  log handle for the routine's lines; may be null
 * Result: CS_RET_SUCCESS, or CS_RET_FAIL_UNKOWN when the number is refused or does not fit.
 * Keeps no state; any thread may call it.
 */
int cs_itoasc(const int num, int len, char* pstr, void* plog);

#endif
