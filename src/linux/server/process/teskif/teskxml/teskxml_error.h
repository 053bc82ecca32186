/*
 * Failures in words: each one is described once, where its cause is known.
 */
#ifndef TESKXML_ERROR_H
#define TESKXML_ERROR_H

#include "teskxml_tools.h"

#include <cstdarg>

namespace teskxml {

/*
 * The place of a failure, as far as there is one.
 */
struct Place {
    const char* file = nullptr; /* null: in no file */
    int line = 0;               /* from 1; 0: none */
    int column = 0;             /* in bytes, from 1; unused without a line */
};

inline constexpr Place NOWHERE = {};

/*
 * A text as a sentence shows it.
 */
struct Shown {
    char text[68];
};

/*
 * Shortens a text of any length for a sentence, where it leaves room for the rest of that.
 *   text  of a file or a caller
 * Result: the text, or as many characters of it as fit, with "..." behind them.
 */
Shown shown(const char* text);

/*
 * Records a failure for teskxml_lastfailure. Called only by the library's own operations, under their rules.
 *   code    of TESKXML_RESULT
 *   format  the sentence and its arguments, as for printf; "%m" is the errno of the call
 * Result: the code, so that the caller can fail with it.
 */
int fail(int code, const Place& place, const char* format, ...) __attribute__((format(printf, 3, 4)));

/*
 * The same with the arguments in a list.
 */
int vfail(int code, const Place& place, const char* format, va_list arguments) __attribute__((format(printf, 3, 0)));

} // namespace teskxml

#endif
