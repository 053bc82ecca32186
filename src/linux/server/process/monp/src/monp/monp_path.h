/*
 * Bounded joining of texts, and the path of a program below the installation directory.
 */
#ifndef MONP_PATH_H
#define MONP_PATH_H

#include "monp.h"

#include <cstddef>

/*
 * Formats into a buffer. What does not fit is refused, logged at error level with its length, and leaves the buffer
 * empty, so that nobody can use a path that was cut.
 *   pwhat  what the text is, for the log line
 * Result: MONP_RET_SUCCESS or MONP_RET_FAIL_UNKNOWN. Any thread.
 */
int monp_join(char* pdest, size_t nsize, const char* pwhat, const char* pformat, ...)
    __attribute__((format(printf, 4, 5)));

/*
 * A program of the installation.
 */
typedef struct {
    char szpath[CS_PRG_CAPTION_LEN]; /* instpath and the relative path; empty when refused: no such program ever runs */
    char szbin[MONP_BIN_LEN];        /* its file name, which becomes argument 0 */
} MONP_PROGRAM_INFO, *PMONP_PROGRAM_INFO;

/*
 * Forms path and file name of a program. If either does not fit, both are empty, and starting the program fails at its
 * access check like one that is missing.
 *   prelative  path below the installation directory
 *   pprog      out
 * Any thread.
 */
void monp_programpath(const char* prelative, PMONP_PROGRAM_INFO pprog);

/*
 * Appends an argument to an argument vector.
 *   pargv     MONP_OPT_NUM entries
 *   pnum      entries used, counted up
 *   pargument the argument; the vector keeps the pointer. Null ends the vector
 */
void monp_addarg(char** pargv, int* pnum, const char* pargument);

#endif
