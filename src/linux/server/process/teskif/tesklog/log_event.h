/*
 * Numbered events: the catalogue of their texts, and the places they are written to.
 */
#ifndef LOG_EVENT_H
#define LOG_EVENT_H

#include "log_file.h"

#include <cstdarg>

namespace tesklog {

inline constexpr int EVENT_LENGTH = 512; /* the text of an event, the terminating NUL included */

/*
 * Severity of an event, numbered as in syslog.
 */
enum class Severity { critical = 2, error = 3, warning = 4 };

/*
 * A row of the catalogue.
 */
struct EventKind {
    int number;
    const char* name;
    Severity severity;
    bool takes_type;   /* the first argument is the type */
    bool takes_status; /* the next one is the status */
    const char* text;  /* format of the sentence, for these arguments */
};

/*
 * An event that was raised.
 */
class Event {
public:
    /*
     * Makes the text of an event out of its arguments.
     *   record     its number says which event it is; the arguments of an unknown one are not touched
     *   form       null, as events have it; else the text is made of this format and the arguments belong to it alone
     */
    Event(const Record& record, const char* form, va_list arguments);

    /* Writes it as a line of the log, as a JSON object on a line of the events file, and to the system log. */
    void write(File& log, File& events) const;

    const Record& record;
    const EventKind& kind;   /* of an unknown event: the row that stands for all of them */
    char text[EVENT_LENGTH]; /* not escaped */

private:
    void put_json(Text& line) const;

    bool has_type_, has_status_; /* which of the following two were given */
    const char* type_ = nullptr;
    int status_ = 0;
};

/*
 * Makes the line of the events file that says that events are missing: a Notice.
 */
void event_notice(Text& text, const Record& record, unsigned long lost);

} // namespace tesklog

#endif
