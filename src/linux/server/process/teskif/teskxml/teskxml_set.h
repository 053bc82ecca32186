/*
 * The files that are loaded, and how often each of them is. It knows neither where files lie nor whether the library is
 * open.
 */
#ifndef TESKXML_SET_H
#define TESKXML_SET_H

#include "teskxml_doc.h"

/*
 * First loaded file, the next ones by pnext, in the order of loading; null: none.
 */
const TESKXML_DOC* teskxml_set_first();

/*
 * Finds a loaded file by what it was loaded as and its path, or one that was loaded by path, by its handle.
 *   nkind  of __teskxml_dockind__
 * Result: where the set keeps the pointer to it; where the next one is to be kept if the file is not loaded. Valid
 * until the set changes.
 */
PTESKXML_DOC* teskxml_set_find(int nkind, const char* ppath);
PTESKXML_DOC* teskxml_set_findhandle(uintptr_t nhandle);

/*
 * Loads a file, or counts one more load of it.
 *   nkind     of __teskxml_dockind__
 *   ppath     absolute path of at most TESKXML_MAX_PATH bytes
 *   ntop      bytes of it that name the directory from which on it must be trusted, as for teskxml_file_read
 *   psection  the section that its keys must belong to; null: any key below "/root"
 *   phandle   out: its handle, not 0; untouched unless the result is 0
 * Result: TESKXML_RET_SUCCESS, or a code for the file, its content, a limit or memory; the set is then as it was.
 */
int teskxml_set_load(int nkind, const char* ppath, size_t ntop, const char* psection, uintptr_t* phandle);

/*
 * Undoes one load of a file, and releases it with the last.
 *   ppdoc  as found; what it points to is null for a file that is not loaded
 *   pwhat  how to call it in an error
 * Result: TESKXML_RET_SUCCESS, or TESKXML_RET_FAIL_NOTLOADED.
 */
int teskxml_set_release(PTESKXML_DOC* ppdoc, const char* pwhat);

/*
 * Finds the value of a key. No two files hold the same one.
 *   ppdoc, pnode  out: its file and its number there; untouched for TESKXML_RET_FAIL_NOKEY
 * Result: TESKXML_RET_SUCCESS, TESKXML_RET_FAIL_NOKEY, or TESKXML_RET_FAIL_NOVALUE.
 */
int teskxml_set_lookup(const char* pkey, const TESKXML_DOC** ppdoc, uint32_t* pnode);

/*
 * Releases everything.
 */
void teskxml_set_clear();

#endif
