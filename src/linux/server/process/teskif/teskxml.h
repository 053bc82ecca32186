/*
 * The cluster's XML policy library, libteskxml.so.1.0: values by key from the cluster's configuration and policy files.
 * The cluster's own library of this name may take the place of ours without a rebuild; the operations below are all
 * that both have in common.
 *
 * In each file the path of elements is the key: <root><all><path>/opt/x</path></all></root> answers "/root/all/path".
 * Each operation returns 0 for success and a code of the library otherwise. The codes of ours are named below without
 * their prefix TESKXML_RET_FAIL_; they differ from those of another library, so a caller only tells 0 from the rest.
 * No operation may be called by two threads at once or in a signal handler. Loading reads files and allocates memory;
 * nothing else blocks.
 *
 * What ours adds to that, as it runs as root:
 * - A file is read only if it and each directory above it, up to the home directory, belongs to root and is not
 *   writable by group or others, and none of them is a symbolic link. Nothing switches this off.
 * - A file is UTF-8. DOCTYPE, attributes, processing instructions, text beside child elements and a comment between two
 *   parts of a value are refused.
 * - A key has one value: repeated in its file or in another loaded one, it is refused, with both lines named.
 * - Every load is all or nothing. After a failure the loaded keys are the same as before.
 */
#ifndef TESKXML_H
#define TESKXML_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Kind of a value.
 */
enum TESKXML_KIND {
    TESKXML_TEXT = 0, /* copied with its terminating NUL into a character array */
    TESKXML_INT = 1   /* decimal number, stored as a 4-byte int */
};

/* Of the shared library. The copy that is built into a tool keeps its operations to itself. */
#ifndef TESKXML_API
#define TESKXML_API __attribute__((visibility("default")))
#endif

/*
 * Opens the library; must precede every other operation. The home directory is settled here and stays the same until
 * the library is closed; no file is touched yet. It is an absolute path without ".." in it.
 *   ident  name of the caller, not empty; ours does not keep it
 * Result: 0, ARGUMENT, ALREADYOPEN, or HOME.
 */
TESKXML_API int xmllib_init(const char* ident);

/*
 * Closes the library, with everything that is still loaded; no memory stays allocated. It may be opened again.
 * Result: 0, or NOTOPEN.
 */
TESKXML_API int xmllib_term(void);

/*
 * Loads the cluster's default configuration, etc/config.xml in the home directory, or a configuration file given by its
 * path. A file that is loaded already is not read again but counted, and has to be unloaded as often.
 *   path    the file: an absolute path without "//", "." and ".." in it. Outside the home directory every directory
 *           from "/" down is held to the rules for trusted files.
 *   handle  out: a handle for xmllib_unload_pathconfig, never null; untouched unless the result is 0
 * Result: 0, ARGUMENT, NOTOPEN, a code for the file or its content, LIMIT, or MEMORY.
 */
TESKXML_API int xmllib_load_config(void);
TESKXML_API int xmllib_load_pathconfig(const char* path, void** handle);

/*
 * Releases the default configuration, or the one that xmllib_load_pathconfig gave the handle for.
 *   handle  may be any value; one that was not given out, or was released, is refused
 * Result: 0, NOTOPEN, or NOTLOADED.
 */
TESKXML_API int xmllib_unload_config(void);
TESKXML_API int xmllib_unload_pathconfig(void* handle);

/*
 * Loads or releases the policy section of a name. Its keys are readable below "/root/" and the name while it is loaded.
 * The section's file, etc/policy/<name>.xml in the home directory, holds the section, empty or not, and no other keys.
 * A section that is loaded already is not read again but counted, and has to be released as often.
 *   name  1 to 31 characters out of A-Z, a-z, 0-9, "_" and "-"
 * Result: 0, ARGUMENT, NOTOPEN or NAME; of a load also a code for the file or its content, LIMIT, or MEMORY; of a
 * release also NOTLOADED.
 */
TESKXML_API int xmllib_load_policy(const char* name);
TESKXML_API int xmllib_unload_policy(const char* name);

/*
 * Reads one value. Blanks, tabs and line breaks around it are not part of it. An empty element is an empty text; an
 * element with child elements is no value. An int is a whole decimal number with an optional sign.
 *   key          path of elements, such as "/root/all/path"
 *   kind         a value of TESKXML_KIND
 *   destination  out: a character array, or an int; untouched unless the result is 0
 *   capacity     bytes that the destination holds: 1 or more, for an int at least 4; ours does not change it
 * Result: 0, ARGUMENT, NOTOPEN, NOKEY, NOVALUE, KIND, NOTNUMBER, RANGE, or CAPACITY.
 */
TESKXML_API int xmllib_get_value(const char* key, int kind, void* destination, int* capacity);

#ifdef __cplusplus
}
#endif

#endif
