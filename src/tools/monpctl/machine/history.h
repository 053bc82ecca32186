/*
 * What the log and the events tell of running monitors that /proc does not show.
 */
#ifndef MONPCTL_HISTORY_H
#define MONPCTL_HISTORY_H

#include "machine/events.h"
#include "machine/follow.h"
#include "machine/process.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace monpctl {

using Time = std::chrono::system_clock::time_point;

/*
 * A line of the log.
 */
struct LogLine {
    Time time;
    std::string level;
    pid_t pid = 0;
    pid_t thread = 0;
    std::string function;
    std::string text;
};

/*
 * Result: nothing for a text that is no line of the log.
 */
std::optional<LogLine> parse_log_line(const std::string& line);

/*
 * A time as log and events write it; the epoch for a text that is none.
 */
Time parse_time(const std::string& text);

/*
 * Whether something happened in the life of a process: its number may have been another's before.
 */
bool in_life_of(const Process& process, Time time);

/*
 * The monitor's last start of the service, as far as its log goes: without lines of the level info there is none, and a
 * report shows from the level trace on only.
 */
struct Start {
    bool known = false; /* the log tells of it */
    Time time;
    pid_t adopted = 0;      /* process that it took over instead of starting one */
    bool reported = false;  /* the service has reported that it is initialised */
    bool exit_sent = false; /* the service has been sent its exit signal */
    Time exit_time;
    bool over = false; /* the service has ended */
};

/*
 * What the events tell of a running monitor.
 */
struct Record {
    int restarts = 0;
    std::optional<int> last_status; /* of the last end of the service that was not asked for */
    int last_event = 0;             /* __monp_eventid__; 0: none yet */
    Time last_event_time;
};

/*
 * The log and the events, read on with each call.
 */
class Journal {
public:
    /*
     * Takes what these processes have written since the last call; all that they have, once there is a new one among
     * them. Lines of others are left out.
     */
    void read_on(const std::set<pid_t>& monitors);

    /* The last start of a monitor, and its events. */
    [[nodiscard]] Start start_of(const Process& monitor) const;
    [[nodiscard]] Record record_of(const Process& monitor) const;

private:
    void begin();
    void take(const LogLine& line);

    std::unique_ptr<Follower> log_;
    std::unique_ptr<Follower> events_file_;
    std::set<pid_t> monitors_;
    std::map<pid_t, Start> starts_;
    std::vector<Event> events_;
};

/*
 * The lines of the log since a moment that tell why something failed: errors, warnings and events of the given
 * processes and of the programs that these have named as started.
 */
std::vector<std::string> telling_lines(Time since, std::set<pid_t> processes);

} // namespace monpctl

#endif
