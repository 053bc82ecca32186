/*
 * The monitor's log calls: each adds the one log handle, the file, the line and the function.
 */
#ifndef MONP_LOG_H
#define MONP_LOG_H

#include "monp.h"
#include "tesklog.h"

/*
 * Opens the log. A library that cannot open it leaves the monitor without one, and every line is dropped.
 *   nlevel, nsize  as log_init takes them
 * Main thread, while no log is open.
 */
void monp_log_open(int nlevel, int nsize);

/*
 * Closes the log, if one is open. Lines that begin from now on are dropped; one that another thread is writing is
 * awaited. If that takes more than a second, its disk is not answering: the log is left open then, as a handle must not
 * be closed under a writer, and the end of the process closes it. Main thread; sleeps only if a line is being written.
 */
void monp_log_close(void);

/*
 * Take the log handle for a call that is given it, and tell that the call is over. In between the log is not closed.
 * Result of monp_log_take: the handle, null when no log is open.
 * In pairs, around each single call. Any thread; errno stays as it is.
 */
void* monp_log_take(void);
void monp_log_leave(void);

/*
 * Writes a line on behalf of the function that it stands in, or of another one.
 */
#define MONP_LINE(nlevel, ...) MONP_LINE_AS(nlevel, __func__, __VA_ARGS__)
#define MONP_LINE_AS(nlevel, pfunction, ...)                                  \
    do {                                                                      \
        TESKLOG_LINE_AS(monp_log_take(), (nlevel), (pfunction), __VA_ARGS__); \
        monp_log_leave();                                                     \
    } while (0)

#define MONP_ERROR(...) MONP_LINE(TESKLOG_ERROR, __VA_ARGS__)
#define MONP_WARNING(...) MONP_LINE(TESKLOG_WARNING, __VA_ARGS__)
#define MONP_INFO(...) MONP_LINE(TESKLOG_INFO, __VA_ARGS__)
#define MONP_TRACE(...) MONP_LINE(TESKLOG_TRACE, __VA_ARGS__)
#define MONP_DETAIL(...) MONP_LINE(TESKLOG_DETAIL, __VA_ARGS__)

/*
 * Raises an event of __monp_eventid__ with the arguments that its text takes.
 */
#define MONP_EVENT(nevent, ...)                                                                                  \
    do {                                                                                                         \
        log_write(monp_log_take(), TESKLOG_EVENT, (nevent), __FILE__, __LINE__, __func__, nullptr, __VA_ARGS__); \
        monp_log_leave();                                                                                        \
    } while (0)

#endif
