/*
 * The catalogue of events, and their way into the files. What an operator or a program reads about an event is decided
 * here and nowhere else.
 */
#include "log_event.h"

#include "log_syslog.h"

#include <cstring>

static constexpr LOG_EVENT_ENTRY gunknown = { 0, "UNKNOWN", LOG_SEV_WARNING, LOG_ARG_NONE, "Unknown event." };

static constexpr int gtypestatus = LOG_ARG_TYPE | LOG_ARG_STATUS;

static constexpr LOG_EVENT_ENTRY gcatalogue[] = {
    { 1, "FAIL_INIT", LOG_SEV_ERROR, gtypestatus, "The service %s did not report its initialisation (status %d)." },
    { 2, "FAIL_MON", LOG_SEV_ERROR, gtypestatus,
      "The service %s could not be started or ended by itself (status %d)." },
    { 3, "ACT_RESTART", LOG_SEV_WARNING, gtypestatus,
      "The service %s is about to be restarted; its last run ended with status %d." },
    { 4, "ACT_STOP_DAEMON", LOG_SEV_CRITICAL, LOG_ARG_TYPE,
      "The cluster daemons are being stopped because of the service %s." },
    { 5, "FAIL_STOP_DAEMON", LOG_SEV_CRITICAL, LOG_ARG_STATUS,
      "The cluster daemons could not be stopped (status %d)." },
    { 6, "ACT_HALT_SYSTEM", LOG_SEV_CRITICAL, LOG_ARG_TYPE, "The system is being halted because of the service %s." },
    { 7, "FAIL_HALT_SYSTEM", LOG_SEV_CRITICAL, LOG_ARG_STATUS, "The system could not be halted (status %d)." },
    { 8, "ACT_REBOOT_SYSTEM", LOG_SEV_CRITICAL, LOG_ARG_TYPE,
      "The system is being rebooted because of the service %s." },
    { 9, "FAIL_REBOOT_SYSTEM", LOG_SEV_CRITICAL, LOG_ARG_STATUS, "The system could not be rebooted (status %d)." },
};

static const char* log_severity_word(int nseverity)
{
    const char* pword = "warning";

    if (nseverity == LOG_SEV_CRITICAL) {
        pword = "critical";
    } else if (nseverity == LOG_SEV_ERROR) {
        pword = "error";
    }
    return pword;
}

void log_event_make(LOG_EVENT* pevent, const LOG_RECORD* precord, const char* pformat, va_list pargs)
{
    LOG_TEXT text = {};

    pevent->precord = precord;
    pevent->pentry = &gunknown;
    for (const auto& entry : gcatalogue) {
        if (entry.nevent == precord->nevent) {
            pevent->pentry = &entry;
        }
    }
    pevent->nargs = pformat == nullptr ? pevent->pentry->nargs : LOG_ARG_NONE;
    pevent->ptype = nullptr;
    pevent->nstatus = 0;

    log_text_open(&text, pevent->sztext, sizeof(pevent->sztext), LOG_ESC_NONE);
    log_text_vformat(&text, pformat == nullptr ? pevent->pentry->ptext : pformat, pargs);
    log_text_close(&text, "");

    if (pevent->nargs & LOG_ARG_TYPE) {
        pevent->ptype = va_arg(pargs, const char*);
    }
    if (pevent->nargs & LOG_ARG_STATUS) {
        pevent->nstatus = va_arg(pargs, int);
    }
}

/* ---------------------------------------------------------------- JSON ---- */

/*
 * Bytes that the value of a member may take, escaped: a long one is cut, the object around it stays whole.
 */
enum __log_json_share__ {
    LOG_SHARE_TEXT = 1536,
    LOG_SHARE_TYPE = 768,
    LOG_SHARE_FILE = 512,
    LOG_SHARE_FUNCTION = 256,
    LOG_SHARE_REST = 640, /* all other members, the keys, quotes and commas */
    LOG_SHARE_SHORT = 80  /* of these, each that has a text */
};

static_assert(LOG_SHARE_TEXT + LOG_SHARE_TYPE + LOG_SHARE_FILE + LOG_SHARE_FUNCTION + LOG_SHARE_REST <
                  LOG_LINE_LEN - 32,
              "the largest object fits a line");

/*
 * Adds a member with a text, null for a null pointer.
 *   phead   what stands before the value: a comma, the key and the colon
 *   nshare  __log_json_share__
 */
static void log_json_text(LOG_TEXT* pline, const char* phead, const char* pvalue, size_t nshare)
{
    const size_t nlimit = pline->nlimit;

    log_text_raw(pline, phead, strlen(phead));
    if (pvalue == nullptr) {
        log_text_raw(pline, "null", 4);
    } else {
        log_text_char(pline, '"');
        pline->nlimit = pline->nlen + nshare - sizeof("...[cut]");
        log_text_put(pline, pvalue, strnlen(pvalue, nshare));
        pline->nlimit = nlimit;
        if (pline->bcut) {
            pline->bcut = false;
            log_text_raw(pline, "...[cut]", 8);
        }
        log_text_char(pline, '"');
    }
}

static void log_json_number(LOG_TEXT* pline, const char* phead, int nvalue)
{
    log_text_raw(pline, phead, strlen(phead));
    log_text_format(pline, "%d", nvalue);
}

/*
 * Begins an object with the members that all of them have.
 */
static void log_json_open(LOG_TEXT* pline, const LOG_RECORD* precord)
{
    static constexpr char gtime[] = "{\"time\":\"";

    pline->nescape = LOG_ESC_JSON;
    log_text_raw(pline, gtime, sizeof(gtime) - 1);
    log_record_time(pline, precord);
    log_json_text(pline, "\",\"ident\":", precord->pident, LOG_SHARE_SHORT);
    log_json_number(pline, ",\"pid\":", precord->self.npid);
    log_json_number(pline, ",\"tid\":", precord->self.ntid);
}

static void log_event_json(const LOG_EVENT* pevent, LOG_TEXT* pline)
{
    const LOG_RECORD* precord = pevent->precord;

    log_json_open(pline, precord);
    log_json_number(pline, ",\"event\":", precord->nevent);
    log_json_text(pline, ",\"name\":", pevent->pentry->pname, LOG_SHARE_SHORT);
    log_json_text(pline, ",\"severity\":", log_severity_word(pevent->pentry->nseverity), LOG_SHARE_SHORT);
    if (pevent->nargs & LOG_ARG_TYPE) {
        log_json_text(pline, ",\"type\":", pevent->ptype, LOG_SHARE_TYPE);
    }
    if (pevent->nargs & LOG_ARG_STATUS) {
        log_json_number(pline, ",\"status\":", pevent->nstatus);
    }
    log_json_text(pline, ",\"function\":", precord->pfunction, LOG_SHARE_FUNCTION);
    log_json_text(pline, ",\"file\":", precord->pfile, LOG_SHARE_FILE);
    log_json_number(pline, ",\"line\":", precord->nline);
    log_json_text(pline, ",\"text\":", pevent->sztext, LOG_SHARE_TEXT);
    log_text_close(pline, "}\n");
}

void log_event_notice(LOG_TEXT* ptext, const LOG_RECORD* precord, unsigned long nlost)
{
    static constexpr char glost[] = ",\"lost\":";

    log_json_open(ptext, precord);
    log_text_raw(ptext, glost, sizeof(glost) - 1);
    log_text_number(ptext, nlost, 1);
    log_text_char(ptext, '}');
}

/* ---------------------------------------------------------------- writing ---- */

void log_event_write(const LOG_EVENT* pevent, LOG_FILE* plog, LOG_FILE* pevents)
{
    char szline[LOG_LINE_LEN];
    LOG_TEXT line = {};

    log_text_open(&line, szline, sizeof(szline), LOG_ESC_LINE);
    log_record_head(&line, pevent->precord);
    log_text_format(&line, "[%d %s] %s", pevent->precord->nevent, pevent->pentry->pname, pevent->sztext);
    log_text_close(&line, "\n");
    log_file_write(plog, pevent->precord, &line);

    log_text_open(&line, szline, sizeof(szline), LOG_ESC_JSON);
    log_event_json(pevent, &line);
    log_file_write(pevents, pevent->precord, &line);

    log_syslog_send(pevent);
}
