/*
 * Datagrams for the system's log. syslog(3) locks, allocates and waits, so the two forms are made by hand: lines of
 * NAME=value for the journal, and priority, time and tag for /dev/log, without a host name, as it is a local socket.
 */
#include "log_syslog.h"

#include "log_descriptor.h"

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace tesklog {

static constexpr int FACILITY = 3; /* system daemons */

static void make_journal(const Event& event, Text& text)
{
    const Record& record = event.record;
    const struct {
        const char* name;
        const char* value; /* null: the number */
        int number;
    } fields[] = {
        { "MESSAGE=", event.text, 0 },
        { "\nPRIORITY=", nullptr, static_cast<int>(event.kind.severity) },
        { "\nSYSLOG_FACILITY=", nullptr, FACILITY },
        { "\nSYSLOG_IDENTIFIER=", record.ident, 0 },
        { "\nSYSLOG_PID=", nullptr, record.self.pid },
        { "\nTESK_EVENT=", nullptr, record.event },
        { "\nTESK_EVENT_NAME=", event.kind.name, 0 },
        { "\nCODE_LINE=", nullptr, record.line },
        { "\nCODE_FUNC=", record.function, 0 },
        { "\nCODE_FILE=", record.file, 0 },
    };

    for (const auto& field : fields) {
        text.raw(field.name);
        if (field.value != nullptr) {
            text.put({ field.value, strnlen(field.value, EVENT_LENGTH) });
        } else {
            text.format("%d", field.number);
        }
    }
    text.close("\n");
}

static void make_classic(const Event& event, Text& text)
{
    static constexpr char MONTHS[12][4] = { "Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec" };
    const Record& record = event.record;
    const Time& time = record.time;

    text.format("<%d>%s %2u %02u:%02u:%02u ", FACILITY * 8 + static_cast<int>(event.kind.severity),
                MONTHS[static_cast<unsigned>(time.date.month()) - 1], static_cast<unsigned>(time.date.day()), time.hour,
                time.minute, time.second);
    text.format("%s[%d]: [%d %s] %s", record.ident, record.self.pid, record.event, event.kind.name, event.text);
    text.close("");
}

/*
 * The receivers, in the order in which they are tried.
 */
static constexpr struct {
    std::string_view path;
    void (*make)(const Event& event, Text& text);
} RECEIVERS[] = {
    { "/run/systemd/journal/socket", make_journal },
    { "/dev/log", make_classic },
};

static bool send_to(int fd, std::string_view path, std::string_view datagram)
{
    struct sockaddr_un address = {};

    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.data(), path.size());
    return sendto(fd, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                  reinterpret_cast<const struct sockaddr*>(&address), sizeof(address)) >= 0;
}

void syslog_send(const Event& event)
{
    char buffer[LINE_LENGTH];
    const Descriptor channel(above_standard(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)));
    bool sent = channel.get() < 0;

    for (const auto& receiver : RECEIVERS) {
        if (!sent) {
            Text text(buffer, Escape::line);
            receiver.make(event, text);
            sent = send_to(channel.get(), receiver.path, text.view());
        }
    }
}

} // namespace tesklog
