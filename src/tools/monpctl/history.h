/*
 * What the log and the events tell of running monitors that /proc does not show.
 */
#ifndef MONPCTL_HISTORY_H
#define MONPCTL_HISTORY_H

#include "events.h"
#include "follow.h"
#include "process.h"

#include <map>
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
 * The log, read on with each call.
 */
class Journal {
public:
    Journal();

    void read_on();
    /* The last start of a monitor. */
    [[nodiscard]] Start start_of(const Process& monitor) const;

private:
    void take(const LogLine& line);

    Follower follower_;
    std::map<pid_t, Start> starts_;
};

/*
 * The lines of the log since a moment that tell why something failed: errors, warnings and events of the given processes
 * and of the programs that these have named as started.
 */
std::vector<std::string> telling_lines(Time since, std::set<pid_t> processes);

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
 *   events  of all monitors, oldest first
 */
Record record_of(const Process& monitor, const std::vector<Event>& events);

} // namespace monpctl

#endif
