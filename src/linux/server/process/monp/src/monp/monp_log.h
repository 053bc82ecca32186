/*
 * The monitor's log calls: each adds the one log handle, the file, the line and the function.
 */
#ifndef MONP_LOG_H
#define MONP_LOG_H

#include "monp.h"
#include "tesklog.h"

#define MONP_ERROR(...) TESKLOG_LINE(gpmonplog, TESKLOG_ERROR, __VA_ARGS__)
#define MONP_WARNING(...) TESKLOG_LINE(gpmonplog, TESKLOG_WARNING, __VA_ARGS__)
#define MONP_INFO(...) TESKLOG_LINE(gpmonplog, TESKLOG_INFO, __VA_ARGS__)
#define MONP_TRACE(...) TESKLOG_LINE(gpmonplog, TESKLOG_TRACE, __VA_ARGS__)
#define MONP_DETAIL(...) TESKLOG_LINE(gpmonplog, TESKLOG_DETAIL, __VA_ARGS__)

/*
 * Raises an event of __monp_eventid__ with the arguments that its text takes.
 */
#define MONP_EVENT(nevent, ...) \
    log_write(gpmonplog, TESKLOG_EVENT, (nevent), __FILE__, __LINE__, __func__, nullptr, __VA_ARGS__)

#endif
