/*
 * Where the library's failures are recorded. Every failing path goes through teskxml_fail once, where its cause is
 * known.
 */
#ifndef TESKXML_ERROR_H
#define TESKXML_ERROR_H

#include "teskxml_tools.h"

#include <cstdarg>

/*
 * A text as a sentence shows it.
 */
typedef struct {
    char text[68];
} TESKXML_SHOWN;

/*
 * Shortens a text of any length for a sentence, where it leaves room for the rest of that.
 *   ptext  the text, of a file or a caller
 * Result: the text, or as many characters of it as fit, with "..." behind them.
 */
TESKXML_SHOWN teskxml_shown(const char* ptext);

/*
 * Records a failure for teskxml_lastfailure. Called only by the library's own operations, under their rules.
 *   ncode    the failure, of __teskxml_result_value__
 *   pfile    file that it lies in; null: none
 *   nline    line in it, from 1; 0: none
 *   ncolumn  column in the line, in bytes, from 1; unused without a line
 *   pformat  the sentence and its arguments, as for printf; "%m" is the errno of the call
 * Result: ncode, so that the caller can fail with it.
 */
int teskxml_fail(int ncode, const char* pfile, int nline, int ncolumn, const char* pformat, ...)
    __attribute__((format(printf, 5, 6)));

/*
 * The same with the arguments in a list.
 */
int teskxml_vfail(int ncode, const char* pfile, int nline, int ncolumn, const char* pformat, va_list args)
    __attribute__((format(printf, 5, 0)));

#endif
