/*
 * What is known of a record beside its text, and the words that its line begins with.
 */
#ifndef LOG_RECORD_H
#define LOG_RECORD_H

#include "log_self.h"
#include "log_text.h"

#include <chrono>
#include <cstdint>

namespace tesklog {

/*
 * A point in time, taken apart.
 */
struct Time {
    std::chrono::year_month_day date;
    unsigned hour, minute, second, micro;
    int zone; /* minutes east of UTC */
};

struct Record {
    const char* ident;
    int level; /* of the public header, or any other value a caller passed */
    int event; /* 0: none */
    const char* file;
    int line;
    const char* function;
    int64_t now; /* nanoseconds since 1970; the system's clock, which may be set back */
    Time time;
    Self self;

    /*
     * Fills in when the record is made and by whom.
     *   zone  minutes east of UTC in which times are written
     */
    void stamp(int zone);

    /* Adds the time, as 2026-11-22T20:51:08.123456+0000. */
    void put_time(Text& text) const;

    /*
     * Adds what stands before the text of a line: time, level word, process/thread, ident, function and file:line, each
     * followed by one blank and with none in itself.
     */
    void put_head(Text& text) const;
};

} // namespace tesklog

#endif
