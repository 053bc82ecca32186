/*
 * Datagrams for the system's log. syslog(3) locks, allocates and waits, so the two forms are made by hand: lines of
 * NAME=value for the journal, and priority, time and tag for /dev/log, without a host name, as it is a local socket.
 */
#include "log_syslog.h"

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static constexpr int gfacility = 3; /* system daemons */

static void log_syslog_journal(const LOG_EVENT* pevent, LOG_TEXT* ptext)
{
    const LOG_RECORD* precord = pevent->precord;
    const struct {
        const char* pname;
        const char* pvalue; /* null: the number */
        int nvalue;
    } fields[] = {
        { "MESSAGE", pevent->sztext, 0 },
        { "PRIORITY", nullptr, pevent->pentry->nseverity },
        { "SYSLOG_FACILITY", nullptr, gfacility },
        { "SYSLOG_IDENTIFIER", precord->pident, 0 },
        { "SYSLOG_PID", nullptr, precord->self.npid },
        { "TESK_EVENT", nullptr, precord->nevent },
        { "TESK_EVENT_NAME", pevent->pentry->pname, 0 },
        { "CODE_LINE", nullptr, precord->nline },
        { "CODE_FUNC", precord->pfunction, 0 },
        { "CODE_FILE", precord->pfile, 0 },
    };

    for (const auto& field : fields) {
        log_text_raw(ptext, "\n", ptext->nlen > 0 ? 1 : 0);
        log_text_format(ptext, "%s=", field.pname);
        if (field.pvalue != nullptr) {
            log_text_put(ptext, field.pvalue, strnlen(field.pvalue, LOG_EVENT_LEN));
        } else {
            log_text_format(ptext, "%d", field.nvalue);
        }
    }
    log_text_close(ptext, "\n");
}

static void log_syslog_classic(const LOG_EVENT* pevent, LOG_TEXT* ptext)
{
    static constexpr char gmonths[12][4] = { "Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec" };
    const LOG_TIME* ptime = &pevent->precord->time;

    log_text_format(ptext, "<%d>%s %2u %02u:%02u:%02u ", gfacility * 8 + pevent->pentry->nseverity,
                    gmonths[ptime->nmonth - 1], ptime->nday, ptime->nhour, ptime->nminute, ptime->nsecond);
    log_text_format(ptext, "%s[%d]: [%d %s] %s", pevent->precord->pident, pevent->precord->self.npid,
                    pevent->precord->nevent, pevent->pentry->pname, pevent->sztext);
    log_text_close(ptext, "");
}

/*
 * The receivers, in the order in which they are tried.
 */
static constexpr struct {
    const char* ppath;
    void (*pfmake)(const LOG_EVENT* pevent, LOG_TEXT* ptext);
} greceivers[] = {
    { "/run/systemd/journal/socket", log_syslog_journal },
    { "/dev/log", log_syslog_classic },
};

static bool log_syslog_put(int nsocket, const char* ppath, const LOG_TEXT* ptext)
{
    struct sockaddr_un address = {};

    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, ppath, strlen(ppath) + 1);
    return sendto(nsocket, ptext->ptext, ptext->nlen, MSG_DONTWAIT | MSG_NOSIGNAL,
                  reinterpret_cast<const struct sockaddr*>(&address), sizeof(address)) >= 0;
}

void log_syslog_send(const LOG_EVENT* pevent)
{
    char szdatagram[LOG_LINE_LEN];
    LOG_TEXT text = {};
    const int nsocket = log_fd_above_standard(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    bool bsent = false;

    for (const auto& receiver : greceivers) {
        if (nsocket >= 0 && !bsent) {
            log_text_open(&text, szdatagram, sizeof(szdatagram), LOG_ESC_LINE);
            receiver.pfmake(pevent, &text);
            bsent = log_syslog_put(nsocket, receiver.ppath, &text);
        }
    }
    if (nsocket >= 0) {
        close(nsocket);
    }
}
