/*
 * The cluster's log library, libtesklog.so.1.0: one log per identifier, shared by every process that uses it.
 * The cluster's own library of this name may take the place of ours without a rebuild; the three operations below are
 * all that both have in common.
 */
#ifndef TESKLOG_H
#define TESKLOG_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Level of a record. A call passes exactly one; the values are bits, but are never combined.
 */
enum __tesklog_level__ {
    TESKLOG_ERROR = 1,    /* a call or an operation failed, input was refused */
    TESKLOG_WARNING = 2,  /* a failure that is tolerated */
    TESKLOG_INFO = 4,     /* the course of the work */
    TESKLOG_TRACE = 8,    /* entry and exit of lower operations */
    TESKLOG_DETAIL = 16,  /* entry and exit of the innermost operations */
    TESKLOG_EVENT = 32768 /* a numbered event, whose text is the library's own; kept at every configured level */
};

#define TESKLOG_API __attribute__((visibility("default")))

/*
 * Opens the log of an identifier.
 *   ident        name of the log, which is also the word that marks the records
 *   handle       out: the handle for the two operations below; null when the log could not be opened
 *   level        records with a level value above this one are dropped; 0: the library's default, which keeps error,
 *                warning and info. Events are always kept
 *   size         bytes after which the log file is rotated
 *   generations  older files to keep; 0: the library's default, 5
 * Result: 0 when the log is open, else a code, the handle being null then.
 */
TESKLOG_API int log_init(const char* ident, void** handle, int level, int size, int generations);

/*
 * Writes one record. Does nothing with a null handle. May be called by several threads at once, in a signal handler and
 * in a forked child.
 *   level     one value of __tesklog_level__
 *   event     number of the event, 0 for an ordinary record
 *   file, line, function  the call site
 *   format    as for printf; null for an event, whose arguments then follow in the order that its text needs
 * Use TESKLOG_LINE, which lets the compiler check the arguments; this declaration cannot, as events have no format.
 */
TESKLOG_API void log_write(void* handle, int level, int event, const char* file, int line, const char* function,
                           const char* format, ...);

/*
 * Closes a log. Does nothing with a null handle.
 */
TESKLOG_API void log_term(void* handle);

/*
 * Never defined and never called: it gives the compiler a format to check at each TESKLOG_LINE.
 */
int tesklog_checkformat(const char* format, ...) __attribute__((format(printf, 1, 2)));

/*
 * Writes an ordinary record of the place where it stands. The second form is for a record written on behalf of another
 * function than the enclosing one.
 */
#define TESKLOG_LINE(handle, level, ...) TESKLOG_LINE_AS(handle, level, __func__, __VA_ARGS__)
#define TESKLOG_LINE_AS(handle, level, function, ...)                                 \
    do {                                                                              \
        (void)sizeof(tesklog_checkformat(__VA_ARGS__));                               \
        log_write((handle), (level), 0, __FILE__, __LINE__, (function), __VA_ARGS__); \
    } while (0)

#ifdef __cplusplus
}
#endif

#endif
