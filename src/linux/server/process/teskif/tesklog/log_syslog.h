/*
 * The system's own log, which hears of events only.
 */
#ifndef LOG_SYSLOG_H
#define LOG_SYSLOG_H

#include "log_event.h"

namespace tesklog {

/*
 * Sends an event to the journal if there is one, else to /dev/log, as one datagram that is dropped if the receiver is
 * absent or slow: the event is in our own files anyway. Never blocks. For any thread, signal handler and forked child;
 * changes errno.
 */
void syslog_send(const Event& event);

} // namespace tesklog

#endif
