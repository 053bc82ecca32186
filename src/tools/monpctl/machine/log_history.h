/*
 * The runs of the monitors as the log tells them.
 *
 * A run begins with the line "****** Start Process Monitor ******" of its first process, which reads the policy and
 * leaves a daemon behind. Each line belongs to the last run that its process number was part of before it, in the order
 * of the file: no times are compared, as clocks are set. Where that does not tell whose a line is, nothing is claimed.
 */
#ifndef MONPCTL_LOG_HISTORY_H
#define MONPCTL_LOG_HISTORY_H

#include "common/time_text.h"
#include "machine/follow.h"
#include "machine/log_line.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace monpctl {

/*
 * A monitor's last start of the service. A log level below info has none, and a report shows from the level trace on
 * only.
 */
struct LoggedStart {
    Time time = {};
    pid_t adopted = 0;      /* process that it took over instead of starting one */
    bool reported = false;  /* the service has reported that it is initialised */
    bool exit_sent = false; /* the service has been sent its exit signal */
    bool killed = false;    /* the service has been sent SIGKILL */
    bool over = false;      /* the service has ended, or could not be started */
};

/*
 * An end of the service, or a start without success.
 */
struct LoggedEnd {
    Time time = {};
    int status = 0;       /* 0 to 255, or one of __monp_proc_kill__ */
    int signal = 0;       /* that has ended it; 0: none, or not told */
    int refused = 0;      /* errno of a program that could not be started; 0: it was started */
    bool before = false;  /* before it reported: the start has failed */
    bool asked = false;   /* the monitor had been asked to end */
    bool killed = false;  /* it was sent SIGKILL by the monitor */
    bool adopted = false; /* the process was not the monitor's child, so nothing is known of its end */
};

/*
 * The records of one run of a monitor.
 */
struct LoggedRun {
    std::string type = {}; /* on the command line; empty: not told */
    std::string name = {}; /* as the type's section states it; empty: not told */
    pid_t first = 0;       /* the process that was started; 0: not told */
    pid_t daemon = 0;      /* 0: not told */
    Time begun = {};
    std::optional<int> action = {}; /* as the first process has read them */
    std::optional<int> restart_limit = {};
    std::optional<LoggedStart> start = {};
    std::optional<LoggedEnd> end = {};     /* the last one */
    std::optional<LoggedEnd> failure = {}; /* the last one that was not asked for */
    int restarts = 0;
    int last_event = 0; /* __monp_eventid__; 0: none yet */
    Time last_event_time = {};
    bool limit_reached = false;          /* it makes no more restarts */
    bool reload_failed = false;          /* it ends on its policy */
    std::optional<int> exit_status = {}; /* it has said that it ends */
    Time exit_time = {};
    int lost = 0; /* records of it that could not be written */
};

/*
 * A run, or why it is not known: as part of a sentence, and empty when there was none.
 */
struct RunRecords {
    std::optional<LoggedRun> run = {};
    std::string missing = {};
};

/*
 * The log, read on with each call.
 */
class LogHistory {
public:
    explicit LogHistory(std::filesystem::path log);

    /* Takes what was written since the last call. */
    void read_on();

    /*
     * The run of a monitor that runs.
     *   type   on its command line
     *   pid    the daemon, or the first process as long as there is no daemon
     *   first  the first process, if it is still there; 0 otherwise
     */
    [[nodiscard]] RunRecords of_monitor(const std::string& type, pid_t pid, pid_t first) const;

    /*
     * The last run of a type that no monitor runs of.
     *   name  as its section states it
     */
    [[nodiscard]] RunRecords last_of(const std::string& type, const std::string& name) const;

private:
    /* A run and its place among all lines. */
    struct Entry {
        LoggedRun run;
        size_t place = 0;
        int pending_signal = 0; /* of an end that is not over yet */
        int pending_refusal = 0;
    };

    void take(const LogLine& line);
    void take_first(Entry& entry, const LogLine& line);
    void take_daemon(Entry& entry, const LogLine& line);
    void take_service(Entry& entry, const LogLine& line);
    void take_event(Entry& entry, const LogLine& line);
    void begin(const LogLine& line);
    bool begin_daemon(const LogLine& line);
    Entry& entry_of(pid_t pid);
    [[nodiscard]] const Entry* pending(const std::string& type) const;
    [[nodiscard]] std::string trouble() const;

    std::filesystem::path log_;
    Follower follower_;
    size_t lines_ = 0;
    std::vector<Entry> entries_;
    std::map<pid_t, size_t> owners_;           /* the entry that each process number belongs to now */
    std::map<std::string, int> exec_refusals_; /* errno of a program that could not be executed, by the type's name */
};

/*
 * Why a log cannot be written, as part of a sentence; empty if it can. A directory that is missing is made by the log
 * library as long as the one above it is there.
 *   log  path of the newest file
 */
std::string log_trouble(const std::filesystem::path& log);

/*
 * The lines of the log since a moment that tell why something failed: errors, warnings and events of the given
 * processes and of the programs that these have named as started.
 */
std::vector<std::string> telling_lines(Time since, std::vector<pid_t> processes);

} // namespace monpctl

#endif
