/*
 * The catalogue of events, and their way into the files. What an operator or a program reads about an event is decided
 * here and nowhere else.
 */
#include "log_event.h"

#include "log_syslog.h"

#include <algorithm>
#include <cstring>

namespace tesklog {

static constexpr EventKind UNKNOWN = { 0, "UNKNOWN", Severity::warning, false, false, "Unknown event." };

static constexpr EventKind CATALOGUE[] = {
    { 1, "FAIL_INIT", Severity::error, true, true, "The service %s did not report its initialisation (status %d)." },
    { 2, "FAIL_MON", Severity::error, true, true,
      "The service %s could not be started or ended by itself (status %d)." },
    { 3, "ACT_RESTART", Severity::warning, true, true,
      "The service %s is about to be restarted; its last run ended with status %d." },
    { 4, "ACT_STOP_DAEMON", Severity::critical, true, false,
      "The cluster daemons are being stopped because of the service %s." },
    { 5, "FAIL_STOP_DAEMON", Severity::critical, false, true, "The cluster daemons could not be stopped (status %d)." },
    { 6, "ACT_HALT_SYSTEM", Severity::critical, true, false, "The system is being halted because of the service %s." },
    { 7, "FAIL_HALT_SYSTEM", Severity::critical, false, true, "The system could not be halted (status %d)." },
    { 8, "ACT_REBOOT_SYSTEM", Severity::critical, true, false,
      "The system is being rebooted because of the service %s." },
    { 9, "FAIL_REBOOT_SYSTEM", Severity::critical, false, true, "The system could not be rebooted (status %d)." },
};

static const EventKind& find_kind(int number)
{
    const auto* kind = std::find_if(std::begin(CATALOGUE), std::end(CATALOGUE),
                                    [number](const auto& row) { return row.number == number; });

    return kind != std::end(CATALOGUE) ? *kind : UNKNOWN;
}

static const char* severity_word(Severity severity)
{
    const char* word = "warning";

    if (severity == Severity::critical) {
        word = "critical";
    } else if (severity == Severity::error) {
        word = "error";
    }
    return word;
}

Event::Event(const Record& raised, const char* form, va_list arguments)
    : record(raised), kind(find_kind(raised.event)), has_type_(form == nullptr && kind.takes_type),
      has_status_(form == nullptr && kind.takes_status)
{
    Text made(text, Escape::none);

    made.vformat(form == nullptr ? kind.text : form, arguments);
    made.close("");
    if (has_type_) {
        type_ = va_arg(arguments, const char*);
    }
    if (has_status_) {
        status_ = va_arg(arguments, int);
    }
}

/* ---------------------------------------------------------------- JSON ---- */

/*
 * Bytes that the value of a member may take, escaped: a long one is cut, the object around it stays whole.
 */
static constexpr int SHARE_TEXT = 1536;
static constexpr int SHARE_TYPE = 768;
static constexpr int SHARE_FILE = 512;
static constexpr int SHARE_FUNCTION = 256;
static constexpr int SHARE_REST = 640; /* all other members, the keys, quotes and commas */
static constexpr int SHARE_SHORT = 80; /* of these, each that has a text */

static_assert(SHARE_TEXT + SHARE_TYPE + SHARE_FILE + SHARE_FUNCTION + SHARE_REST < LINE_LENGTH - 32,
              "the largest object fits a line");

/*
 * Adds a member with a text, null for a null pointer.
 *   head   what stands before the value: a comma, the key and the colon
 *   share  one of the sizes above
 */
static void put_member(Text& line, std::string_view head, const char* value, size_t share)
{
    line.raw(head);
    if (value == nullptr) {
        line.raw("null");
    } else {
        line.add('"');
        line.put_share({ value, strnlen(value, share) }, share);
        line.add('"');
    }
}

static void put_member(Text& line, std::string_view head, int value)
{
    line.raw(head);
    line.format("%d", value);
}

/*
 * Begins an object with the members that all of them have.
 */
static void open_object(Text& line, const Record& record)
{
    line.set_escape(Escape::json);
    line.raw("{\"time\":\"");
    record.put_time(line);
    put_member(line, "\",\"ident\":", record.ident, SHARE_SHORT);
    put_member(line, ",\"pid\":", record.self.pid);
    put_member(line, ",\"tid\":", record.self.tid);
}

void Event::put_json(Text& line) const
{
    open_object(line, record);
    put_member(line, ",\"event\":", record.event);
    put_member(line, ",\"name\":", kind.name, SHARE_SHORT);
    put_member(line, ",\"severity\":", severity_word(kind.severity), SHARE_SHORT);
    if (has_type_) {
        put_member(line, ",\"type\":", type_, SHARE_TYPE);
    }
    if (has_status_) {
        put_member(line, ",\"status\":", status_);
    }
    put_member(line, ",\"function\":", record.function, SHARE_FUNCTION);
    put_member(line, ",\"file\":", record.file, SHARE_FILE);
    put_member(line, ",\"line\":", record.line);
    put_member(line, ",\"text\":", text, SHARE_TEXT);
    line.close("}\n");
}

void event_notice(Text& text, const Record& record, unsigned long lost)
{
    open_object(text, record);
    text.raw(",\"lost\":");
    text.number(lost);
    text.add('}');
}

/* ---------------------------------------------------------------- writing ---- */

void Event::write(File& log, File& events) const
{
    char buffer[LINE_LENGTH];
    Text line(buffer, Escape::line);

    record.put_head(line);
    line.format("[%d %s] %s", record.event, kind.name, text);
    line.close("\n");
    log.write(record, line);

    line = Text(buffer, Escape::json);
    put_json(line);
    events.write(record, line);

    syslog_send(*this);
}

} // namespace tesklog
