/*
 * Reading of files that only root can have written.
 */
#ifndef TESKXML_FILE_H
#define TESKXML_FILE_H

#include "teskxml_memory.h"

#include <string_view>

namespace teskxml {

/*
 * Reads a file whole, if it can be trusted: from a top directory down, each directory and the file itself is opened
 * from the one above it, no symbolic link is followed, and what was opened must belong to root and not be writable by
 * group or others. Never waits for a writer of a FIFO. No descriptor stays open.
 *   path     absolute, of at most TESKXML_MAX_PATH bytes
 *   top      bytes of the path that name the top directory, the "/" behind it not included; 0: "/" itself
 *   scratch  has the content
 *   content  out: at most TESKXML_MAX_FILE bytes; untouched unless the result is 0
 * Result: TESKXML_RET_SUCCESS, ARGUMENT for a path with an empty name, "." or ".." in it, NOTFOUND, FILETYPE,
 * UNTRUSTED, READ, LIMIT, or MEMORY.
 */
int read_file(const char* path, size_t top, Scratch& scratch, std::string_view& content);

} // namespace teskxml

#endif
