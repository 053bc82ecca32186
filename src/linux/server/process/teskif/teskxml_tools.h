/*
 * Operations of our policy reader beyond teskxml.h, for the operator's tools and for tests: the last failure, the names
 * of the result codes, and a walk over everything that is loaded.
 *
 * No shared library has them. The static library teskxml_tools holds our whole reader with these operations, and a tool
 * that is linked with it needs no libteskxml.so.1.0 at all: the cluster's own library may take the place of ours, and
 * the tool still tells what is wrong in a policy. So this header is not installed.
 *
 * As in teskxml.h, nothing here may be called by two threads at once or in a signal handler.
 */
#ifndef TESKXML_TOOLS_H
#define TESKXML_TOOLS_H

#include "teskxml.h"

/*
 * Results of the operations of teskxml.h and of teskxml_walk, one for each cause.
 */
enum TESKXML_RESULT {
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
    TESKXML_RET_FAIL_KIND,      /* the kind asked for is none of TESKXML_KIND */
    TESKXML_RET_FAIL_NOTNUMBER, /* an int is asked for, and the text is no whole decimal number */
    TESKXML_RET_FAIL_RANGE,     /* the number does not fit an int */
    TESKXML_RET_FAIL_CAPACITY,  /* the value does not fit the destination */

    TESKXML_RET_FAIL_MEMORY, /* out of memory */

    TESKXML_RET_NUM
};

/*
 * Limits, as far as a writer of policies can meet them. Lengths are in bytes of UTF-8.
 */
enum TESKXML_LIMIT {
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
 * A failure of an operation.
 */
struct TESKXML_FAILURE {
    int code;         /* of TESKXML_RESULT; TESKXML_RET_SUCCESS before any failure */
    const char* file; /* absolute path of the file that it lies in, as it was opened; empty: in no file */
    int line;         /* from 1; lines end with a line feed, and a value lies where its start tag does; 0: no line */
    int column;       /* in bytes from 1; 0 without a line */
    const char* sentence; /* in words, without the place and without a full stop; each control character is a "?", and
                             a sentence that was cut for its length ends in "..." */
};

/*
 * Tells about the last operation that failed.
 * Result: the failure. Its texts are the reader's; they outlive xmllib_term and change with the next failure.
 */
TESKXML_FAILURE teskxml_lastfailure();

/*
 * Has the next loads take files and directories that others than root could have written, or stop it. For a tool that
 * only judges a policy: it can then find the other faults of a file that no monitor would take.
 *   accept  0: refuse them, as at first; any other number: take them
 */
void teskxml_accept_untrusted(int accept);

/*
 * Name of a result code as written in this header, and the sentence for it, without a full stop.
 *   code  result of an operation
 * Result: a constant text; for a code that is not of TESKXML_RESULT, one that says so.
 */
const char* teskxml_codename(int code);
const char* teskxml_codetext(int code);

/*
 * Called by teskxml_walk for one value. The texts are valid until it returns; it must not load, unload or close.
 *   key      full key path
 *   value    its text; empty for an empty element
 *   file     absolute path of the file it comes from
 *   line     line of its start tag, from 1
 *   context  as given to teskxml_walk
 * Result: 0 to go on; anything else ends the walk.
 */
using TESKXML_VISIT = int (*)(const char* key, const char* value, const char* file, int line, void* context);

/*
 * Calls an operation for every loaded value: files in the order of loading, values in the order of the file.
 *   visit    the operation
 *   context  passed on to it; may be null
 * Result: TESKXML_RET_SUCCESS also when visit ended the walk, TESKXML_RET_FAIL_ARGUMENT or TESKXML_RET_FAIL_NOTOPEN.
 */
int teskxml_walk(TESKXML_VISIT visit, void* context);

#endif
