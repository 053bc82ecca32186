/*
 * The cluster's XML policy library, libteskxml.so.1.0: values by key from the cluster's configuration and policy files.
 * The cluster's own library of this name may take the place of ours without a rebuild; the operations below are all
 * that both have in common.
 *
 * In each file the path of elements is the key: <root><all><path>/opt/x</path></all></root> answers "/root/all/path".
 * Each operation returns 0 for success and a code of the library otherwise. None may be called by two threads at once
 * or in a signal handler.
 */
#ifndef TESKXML_H
#define TESKXML_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Kind of a value.
 */
enum __teskxml_kind__ {
    TESKXML_TEXT = 0, /* copied with its terminating NUL into a character array */
    TESKXML_INT = 1   /* decimal number, stored as a 4-byte int */
};

#define TESKXML_API __attribute__((visibility("default")))

/*
 * Opens the library; must precede every other operation.
 *   ident  name of the caller
 */
TESKXML_API int xmllib_init(const char* ident);

/*
 * Closes the library, with everything that is still loaded. It may be opened again.
 */
TESKXML_API int xmllib_term(void);

/*
 * Loads the cluster's default configuration, or a configuration file given by its path.
 *   path    the file
 *   handle  out: a handle for xmllib_unload_pathconfig
 */
TESKXML_API int xmllib_load_config(void);
TESKXML_API int xmllib_load_pathconfig(const char* path, void** handle);

/*
 * Releases the default configuration, or the one that xmllib_load_pathconfig gave the handle for.
 */
TESKXML_API int xmllib_unload_config(void);
TESKXML_API int xmllib_unload_pathconfig(void* handle);

/*
 * Loads or releases the policy section of a name. Its keys are readable below "/root/" and the name while it is loaded.
 */
TESKXML_API int xmllib_load_policy(const char* name);
TESKXML_API int xmllib_unload_policy(const char* name);

/*
 * Reads one value.
 *   key          path of elements, such as "/root/all/path"
 *   kind         a value of __teskxml_kind__
 *   destination  out: a character array, or an int; untouched unless the result is 0
 *   capacity     bytes that the destination holds
 */
TESKXML_API int xmllib_get_value(const char* key, int kind, void* destination, int* capacity);

#ifdef __cplusplus
}
#endif

#endif
