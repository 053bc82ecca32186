/*
 * Numbered events: the catalogue of their texts, and the places they are written to.
 */
#ifndef LOG_EVENT_H
#define LOG_EVENT_H

#include "log_file.h"

#include <cstdarg>

enum __log_event_length__ { LOG_EVENT_LEN = 512 }; /* the text of an event, the terminating NUL included */

/*
 * Severity of an event, numbered as in syslog.
 */
enum __log_severity__ { LOG_SEV_CRITICAL = 2, LOG_SEV_ERROR = 3, LOG_SEV_WARNING = 4 };

/*
 * Arguments that an event takes, in this order; bits.
 */
enum __log_event_args__ { LOG_ARG_NONE = 0, LOG_ARG_TYPE = 1, LOG_ARG_STATUS = 2 };

/*
 * A row of the catalogue.
 */
typedef struct {
    int nevent;
    const char* pname;
    int nseverity;     /* __log_severity__ */
    int nargs;         /* __log_event_args__ */
    const char* ptext; /* format of the sentence, for these arguments */
} LOG_EVENT_ENTRY;

/*
 * An event that was raised.
 */
typedef struct {
    const LOG_RECORD* precord;
    const LOG_EVENT_ENTRY* pentry; /* of an unknown event: the row that stands for all of them */
    int nargs;                     /* of the following two, those that were given */
    const char* ptype;
    int nstatus;
    char sztext[LOG_EVENT_LEN]; /* not escaped */
} LOG_EVENT;

/*
 * Makes the text of an event out of its arguments.
 *   precord  nevent says which; the arguments of an unknown one are not touched
 *   pformat  null, as events have it; else the text is made of this format and the arguments belong to it alone
 */
void log_event_make(LOG_EVENT* pevent, const LOG_RECORD* precord, const char* pformat, va_list pargs);

/*
 * Writes an event as a line of the log, as a JSON object on a line of the events file, and to the system log.
 */
void log_event_write(const LOG_EVENT* pevent, LOG_FILE* plog, LOG_FILE* pevents);

/*
 * Makes the line of the events file that says that events are missing: a PFLOGNOTICE.
 */
void log_event_notice(LOG_TEXT* ptext, const LOG_RECORD* precord, unsigned long nlost);

#endif
