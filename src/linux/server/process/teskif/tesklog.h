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
enum tesklog_level {
    TESKLOG_ERROR = 1,    /* a call or an operation failed, input was refused */
    TESKLOG_WARNING = 2,  /* a failure that is tolerated */
    TESKLOG_INFO = 4,     /* the course of the work */
    TESKLOG_TRACE = 8,    /* entry and exit of lower operations */
    TESKLOG_DETAIL = 16,  /* entry and exit of the innermost operations */
    TESKLOG_EVENT = 32768 /* a numbered event, whose text is the library's own; kept at every configured level */
};

#define TESKLOG_API __attribute__((visibility("default")))

/*
 * Opens the log of an identifier, the files <home>/log/<ident>.log and <home>/log/<ident>.events.jsonl. The directory
 * "log" is created if it is missing, the home directory is not. Any number of processes may have the same log open, and
 * one process may open several, up to 32 at a time.
 *   ident        name of the log, which is also the word that marks the records: 1 to 64 letters, digits, '_', '-' and
 *                '.', not beginning with a dot
 *   handle       out: the handle for the two operations below; null when the result is not 0. It is not an address and
 *                is never given out twice
 *   level        records with a level value above this one are dropped; 0: the library's default, which keeps error,
 *                warning and info, as 4 does; below 0: all are dropped. Events are always kept
 *   size         bytes after which a file is rotated; 0 and less: the library's default, 5000000; below 4096: 4096. Not
 *                more than half the process's limit on file sizes (RLIMIT_FSIZE), which is looked at once a second
 *   generations  older files to keep; 0 and less: the library's default, 5. Files with higher numbers are removed
 * Result: 0, or a code: EINVAL for a null handle pointer or an ident that is null or not as above, EMFILE for a log too
 * many, ENAMETOOLONG for a home directory of more than 900 characters, or with a part that is longer than a file name
 * may be. A file that cannot be opened now, for whatever other reason, is no failure: records are dropped and counted,
 * and opening is tried again once a second.
 * For any thread, not for a signal handler. The time zone of the records is that of this moment.
 */
TESKLOG_API int log_init(const char* ident, void** handle, int level, int size, int generations);

/*
 * Writes one record: a line of the log file, in one piece. Does nothing with a null handle and with one that was
 * closed. May be called by several threads at once, in a signal handler (up to 12 KiB of its stack) and in a forked
 * child, but not in a vfork()ed one. Takes no lock, allocates nothing, never blocks, and leaves errno as it is. A
 * record that cannot be written is dropped and counted; the line that can be written next, by this process or one that
 * it shares the log with by a fork, is preceded by their number.
 *   level     one value of tesklog_level
 *   event     number of the event, 0 for an ordinary record; it counts only at the level TESKLOG_EVENT
 *   file, line, function  the call site; null and an empty one are written as "-", a blank as \x20
 *   format    as for printf, but with the conversions d i u x X o c s p % only: from another one on the format is
 *             written as it stands. Control characters and what is not UTF-8 are escaped, in the format as in the
 *             values. Null for an event, whose arguments then follow in the order that its text needs; the arguments
 *             of an event that is not in the catalogue are not touched
 * An event is also written to the events file and sent to the system's log.
 * Use TESKLOG_LINE, which lets the compiler check the arguments; this declaration cannot, as events have no format.
 */
TESKLOG_API void log_write(void* handle, int level, int event, const char* file, int line, const char* function,
                           const char* format, ...);

/*
 * Closes a log. Does nothing with a null handle and with one that was closed. Others may still be writing, and may
 * write later: who was first is written, who comes later is ignored. Reports the number of dropped records if that is
 * possible; else it is kept for a log_init of the same log by this process, unless one of another log comes first. May
 * be called where log_write may, and leaves errno as it is. In a child that was forked while another thread was
 * writing, that writer never leaves: nothing is written any more, but the descriptors stay open, and the place of the
 * log taken, until an exec or the end.
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
