/*
 * What is known of a record beside its text, and the words that its line begins with.
 */
#ifndef LOG_RECORD_H
#define LOG_RECORD_H

#include "log_self.h"
#include "log_text.h"

#include <cstdint>

/*
 * A point in time, taken apart.
 */
typedef struct {
    unsigned nyear, nmonth, nday; /* month and day from 1 */
    unsigned nhour, nminute, nsecond, nmicro;
    int nzone; /* minutes east of UTC */
} LOG_TIME;

typedef struct {
    const char* pident;
    int nlevel; /* __tesklog_level__, or any other value a caller passed */
    int nevent; /* 0: none */
    const char* pfile;
    int nline;
    const char* pfunction;
    int64_t nnow; /* nanoseconds since 1970; the system's clock, which may be set back */
    LOG_TIME time;
    LOG_SELF self;
} LOG_RECORD;

/*
 * Fills in when a record is made and by whom.
 *   nzone  minutes east of UTC in which times are written
 */
void log_record_stamp(LOG_RECORD* precord, int nzone);

/*
 * Adds the time of a record, as 2026-11-22T20:51:08.123456+0000.
 */
void log_record_time(LOG_TEXT* ptext, const LOG_RECORD* precord);

/*
 * Adds what stands before the text of a line: time, level word, process/thread, ident, function and file:line, each
 * followed by one blank and with none in itself.
 */
void log_record_head(LOG_TEXT* ptext, const LOG_RECORD* precord);

#endif
