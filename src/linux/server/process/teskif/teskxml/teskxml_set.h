/*
 * The files that are loaded, and how often each of them is. It knows neither where files lie nor whether the library is
 * open.
 */
#ifndef TESKXML_SET_H
#define TESKXML_SET_H

#include "teskxml_doc.h"

namespace teskxml {

/*
 * A file to be loaded.
 */
struct Source {
    Kind kind;
    const char* path;              /* absolute, of at most TESKXML_MAX_PATH bytes */
    size_t top;                    /* bytes of it that name the directory from which on it must be trusted */
    const char* section = nullptr; /* the section that its keys must belong to; null: any key below "/root" */
};

/*
 * Loads a file, or counts one more load of it.
 *   handle  out: its handle, not 0; untouched unless the result is 0
 * Result: TESKXML_RET_SUCCESS, or a code for the file, its content, a limit or memory; the set is then as it was.
 */
int load(const Source& source, uintptr_t& handle);

/*
 * Undoes one load of a file, and releases it with the last. A file that was loaded by path is named by its handle.
 *   what  how to call it in a failure
 * Result: TESKXML_RET_SUCCESS, or TESKXML_RET_FAIL_NOTLOADED.
 */
int release(Kind kind, const char* path, const char* what);
int release(uintptr_t handle, const char* what);

/*
 * A value that was looked for.
 */
struct Found {
    const Document* document;
    Number number;
};

/*
 * Finds the value of a key. No two files hold the same one.
 *   found  out: untouched for TESKXML_RET_FAIL_NOKEY
 * Result: TESKXML_RET_SUCCESS, TESKXML_RET_FAIL_NOKEY, or TESKXML_RET_FAIL_NOVALUE.
 */
int look_up(std::string_view key, Found& found);

/*
 * The loaded files, in the order of loading. Valid until the set changes.
 */
std::span<const DocumentPtr> loaded();

/*
 * Releases everything.
 */
void clear();

} // namespace teskxml

#endif
