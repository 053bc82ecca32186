/*
 * All that is known of one service type at a moment: what the commands show and act on.
 */
#ifndef MONPCTL_TYPE_STATUS_H
#define MONPCTL_TYPE_STATUS_H

#include "common/time_text.h"
#include "machine/monitors.h"
#include "machine/process.h"
#include "policy/settings.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace monpctl {

enum class State {
    starting,   /* setting itself up, or the service has not reported, as far as can be told */
    running,    /* the service has reported */
    waiting,    /* there is no service, and the monitor waits for a start request */
    recovering, /* the service has ended, and the recovery action is under way */
    ending,     /* the service was told to end, or a recovery that ends the monitor is over */
    gave_up,    /* there is no monitor: it ended because its service or its recovery had failed */
    unknown,    /* what can be seen does not tell */
    dead,       /* there is no monitor, but its lock file was left */
    stopped     /* there is no monitor, and none is missed */
};

/*
 * The state as it is shown: "running", "gave up". Lower case, without an underline.
 */
std::string_view word(State state);

/*
 * An end of the service.
 */
struct ServiceEnd {
    Time time;           /* when the monitor noticed it, by the clock of then */
    int status = 0;      /* as the monitor logs it: 0 to 255, or one of __monp_proc_kill__ */
    bool killed = false; /* by the monitor, as it did not end when asked */
    std::string words;   /* "killed by signal 9", "ended with status 3" */
};

/*
 * A failure of the service, of its start or of the monitor.
 */
struct Failure {
    Time time;
    std::string reason; /* part of a sentence: "ended with status 2 before it reported", "no such program: /opt/x" */
};

/*
 * The records of one run of a monitor: that of the running one, or the last one of a type that has none. Where the
 * records do not tell, a value is missing, and `missing` says why. Without a run all values are missing, and so is
 * `missing`, if there was none.
 */
struct RunHistory {
    std::optional<int> restarts;
    std::optional<int> restart_limit; /* 0: without limit */
    std::optional<ServiceEnd> last_end;
    std::optional<Failure> last_failure;
    std::string missing; /* why records are missing, as part of a sentence; empty: they are complete */
};

/*
 * The recovery action that the monitor has in force.
 */
struct ActionInForce {
    int action = 0;        /* __monp_actions_value__, or what else was given */
    bool in_doubt = false; /* it is that of the policy of today, which need not be what the monitor has read */
};

struct TypeStatus {
    std::string type;
    State state = State::unknown;
    std::string reason; /* part of a sentence: why it is so, or what it waits for; empty: the state says it all */
    std::optional<Time> since; /* when the state began, by today's clock, as far as that is known */
    std::optional<Time> until; /* at the latest then it is decided how a start ends */
    bool start_failed = false; /* the last start has failed, though the monitor may not have noticed yet: see
                                  history.last_failure */
    std::optional<RunningMonitor> monitor;
    std::optional<Process> service;
    bool adopted = false;        /* the monitor has taken over the service instead of starting it */
    std::vector<Process> copies; /* other processes that run the service's program, those that it started left out */
    RunHistory history;
    ActionInForce action;
    Settings settings; /* of a monitor that is started with these options today */
    std::vector<std::string> warnings;
};

} // namespace monpctl

#endif
