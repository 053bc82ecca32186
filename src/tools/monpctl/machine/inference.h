/*
 * The inference: from the evidence to the state of a type. It is a pure function: it asks neither the system nor the
 * clock, so each situation can be written down and looked up.
 */
#ifndef MONPCTL_INFERENCE_H
#define MONPCTL_INFERENCE_H

#include "machine/log_history.h"
#include "machine/type_status.h"

#include <optional>
#include <string>

namespace monpctl {

/*
 * All that speaks for one state or another. Times of processes are in seconds after the boot.
 */
struct Evidence {
    /* The moment of the look: by both clocks. */
    double now = 0;
    Time wall_now = {};

    struct Monitor {
        double started = 0;
        bool hidden = false;    /* it is another user's, so /proc tells hardly more than that it runs */
        bool set_up = false;    /* it has its signal handlers */
        bool launching = false; /* its first process still waits for it */
        bool no_start = false;  /* it is never to start the service */
    };
    std::optional<Monitor> monitor = {};

    /* The child of the monitor's main thread, or the adopted service. */
    struct Child {
        pid_t pid = 0;
        double started = 0;
        bool zombie = false;
        bool unborn = false;                 /* it still runs the monitor's program, and is about to run its own */
        double zombie_seconds = 0;           /* as long it has been seen as a zombie */
        std::optional<int> wait_status = {}; /* of a zombie */
    };
    std::optional<Child> child = {};
    std::optional<Child> adopted = {}; /* the process that the log names as taken over, if there is such a process */
    bool copies = false;               /* processes run the service's program that the monitor has not started */

    enum class LockFile { none, left, hidden };
    LockFile lock_file = LockFile::none;

    RunRecords records = {}; /* of the monitor, or the last ones of a type without a monitor */
    std::string untold = {}; /* why the log may lack the newest records, as part of a sentence; empty: it is complete */

    /* The policy of today. */
    std::string program = {}; /* the service's */
    int init_seconds = 0;
    int parent_init_seconds = 0;
    int restart_limit = 0;
    int action = 0;
    bool action_given = false; /* on the monitor's command line, so that the policy does not matter */
    bool held_back = false;
};

/*
 * The part of a status that is inferred.
 */
struct Verdict {
    State state = State::unknown;
    std::string reason = {};
    std::optional<Time> since = {};
    std::optional<Time> until = {};
    bool start_failed = false;
    enum class Service { none, child, adopted };
    Service service = Service::none; /* the process of the evidence that is the service */
    RunHistory history;
    ActionInForce action;
};

Verdict infer(const Evidence& evidence);

/*
 * An end in words: "killed by signal 9", "ended with status 3".
 */
std::string end_words(const LoggedEnd& end);

} // namespace monpctl

#endif
