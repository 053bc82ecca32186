/*
 * Reading of files that only root can have written.
 */
#ifndef TESKXML_FILE_H
#define TESKXML_FILE_H

#include <cstddef>

/*
 * Reads a file whole, if it can be trusted: from a top directory down, each directory and the file itself is opened
 * from the one above it, no symbolic link is followed, and what was opened must belong to root and not be writable by
 * group or others. Never waits for a writer of a FIFO. No descriptor stays open.
 *   pfile   absolute path of at most TESKXML_MAX_PATH bytes
 *   ntop    bytes of pfile that name the top directory, the "/" behind it not included; 0: "/" itself
 *   ppdata  out: the content, to be freed by the caller; untouched unless the result is 0
 *   psize   out: its bytes, at most TESKXML_MAX_FILE
 * Result: TESKXML_RET_SUCCESS, ARGUMENT for a path with an empty name, "." or ".." in it, NOTFOUND, FILETYPE,
 * UNTRUSTED, READ, LIMIT, or MEMORY.
 */
int teskxml_file_read(const char* pfile, size_t ntop, char** ppdata, size_t* psize);

#endif
