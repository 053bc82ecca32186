/*
 * What our XML policy library offers beyond teskxml.h, for the operator's tools and for tests: what each result code
 * means, where exactly the last failure lies, and a walk over everything that is loaded. The cluster's own library has
 * none of this, so a program that has to run with either must do without it.
 *
 * As in teskxml.h, nothing here may be called by two threads at once or in a signal handler.
 */
#ifndef TESKXML_TOOLS_H
#define TESKXML_TOOLS_H

#include "teskxml.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Results of the operations of teskxml.h and of teskxml_walk, one for each cause.
 */
enum __teskxml_result_value__ {
    TESKXML_RET_SUCCESS = 0,

    /* the call */
    TESKXML_RET_FAIL_ARGUMENT,    /* a null argument, a capacity of 0 or less, an empty caller's name or a bad path */
    TESKXML_RET_FAIL_NOTOPEN,     /* xmllib_init is missing */
    TESKXML_RET_FAIL_ALREADYOPEN, /* xmllib_init a second time */
    TESKXML_RET_FAIL_HOME,        /* the home directory is not an absolute path, has ".." in it, or is too long */
    TESKXML_RET_FAIL_NAME,        /* no name of a section */
    TESKXML_RET_FAIL_NOTLOADED,   /* unload of what is not loaded */

    /* the file */
    TESKXML_RET_FAIL_NOTFOUND,  /* it or a directory above it does not exist */
    TESKXML_RET_FAIL_FILETYPE,  /* no regular file, or a symbolic link in the file's or a directory's place */
    TESKXML_RET_FAIL_UNTRUSTED, /* it or a directory above it is not root's alone to write */
    TESKXML_RET_FAIL_READ,      /* any other failure to open or read it */

    /* its content */
    TESKXML_RET_FAIL_SYNTAX,    /* not well-formed XML in UTF-8 */
    TESKXML_RET_FAIL_FORBIDDEN, /* well-formed, but with something that a policy must not hold, such as a DOCTYPE */
    TESKXML_RET_FAIL_SCOPE,     /* an element outside "/root"; in a section's file one outside it, or none */
    TESKXML_RET_FAIL_DUPLICATE, /* a key twice, in this file or in two loaded ones */
    TESKXML_RET_FAIL_LIMIT,     /* a limit of the library is exceeded */

    /* the value */
    TESKXML_RET_FAIL_NOKEY,     /* no loaded file holds the key */
    TESKXML_RET_FAIL_NOVALUE,   /* the key names an element with child elements */
    TESKXML_RET_FAIL_KIND,      /* the kind asked for is none of __teskxml_kind__ */
    TESKXML_RET_FAIL_NOTNUMBER, /* an int is asked for, and the text is no whole decimal number */
    TESKXML_RET_FAIL_RANGE,     /* the number does not fit an int */
    TESKXML_RET_FAIL_CAPACITY,  /* the value does not fit the destination */

    TESKXML_RET_FAIL_MEMORY, /* out of memory */

    TESKXML_RET_NUM
};

/*
 * Limits, as far as a writer of policies can meet them. Lengths are in bytes of UTF-8.
 */
enum __teskxml_limit__ {
    TESKXML_MAX_FILE = 1048576, /* bytes of a file */
    TESKXML_MAX_KEYS = 8192,    /* elements of a file */
    TESKXML_MAX_DEPTH = 16,     /* elements within each other, "root" included */
    TESKXML_MAX_KEY = 511,      /* length of a key */
    TESKXML_MAX_VALUE = 4095,   /* length of a value, blanks after it included */
    TESKXML_MAX_NAME = 31,      /* length of a section's name */
    TESKXML_MAX_PATH = 1023,    /* length of a file's path */
    TESKXML_MAX_LOADED = 64     /* files loaded at a time */
};

/*
 * Tells about the last operation that failed, as "file:line:column: sentence", or "file: sentence" or the sentence
 * alone where there is no such place. Lines end with a line feed and count from 1, columns are bytes from 1, and the
 * place of a value is its start tag. A control character is shown as "?", a text that is cut for its length ends in
 * "...".
 * Result: the text, empty before any failure. It is the library's, outlives xmllib_term, and changes with the next
 * failure.
 */
TESKXML_API const char* teskxml_lasterror(void);

/*
 * Name of a result code as written in this header, and the sentence for it, without a full stop.
 *   code  result of an operation
 * Result: a constant text; for a code that is not of __teskxml_result_value__, one that says so.
 */
TESKXML_API const char* teskxml_codename(int code);
TESKXML_API const char* teskxml_codetext(int code);

/*
 * Called by teskxml_walk for one value. The texts are valid until it returns; it must not load, unload or close.
 *   key      full key path
 *   value    its text; empty for an empty element
 *   file     absolute path of the file it comes from
 *   line     line of its start tag, from 1
 *   context  as given to teskxml_walk
 * Result: 0 to go on; anything else ends the walk.
 */
typedef int (*TESKXML_VISIT)(const char* key, const char* value, const char* file, int line, void* context);

/*
 * Calls an operation for every loaded value: files in the order of loading, values in the order of the file.
 *   visit    the operation
 *   context  passed on to it; may be null
 * Result: TESKXML_RET_SUCCESS also when visit ended the walk, TESKXML_RET_FAIL_ARGUMENT or TESKXML_RET_FAIL_NOTOPEN.
 */
TESKXML_API int teskxml_walk(TESKXML_VISIT visit, void* context);

#ifdef __cplusplus
}
#endif

#endif
