/*
 * Where the library's failures are recorded. Every failing path goes through teskxml_fail once, where its cause is known.
 */
#ifndef TESKXML_ERROR_H
#define TESKXML_ERROR_H

#include "teskxml_tools.h"

#include <cstdarg>

/*
 * Records a failure for teskxml_lasterror. Called only by the library's own operations, under their rules.
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
