/*
 * The monitors of this machine and what each is doing, put together from /proc, the policy, the log and the events.
 */
#ifndef MONPCTL_MONITOR_H
#define MONPCTL_MONITOR_H

#include "machine/history.h"
#include "machine/process.h"
#include "policy/settings.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace monpctl {

enum class State {
    starting,   /* setting itself up, or the service has not reported that it is initialised */
    running,    /* the service has reported */
    waiting,    /* for a start request */
    recovering, /* the service has ended, and the recovery action is under way */
    ending,     /* asked to end, or through with a recovery that ends it */
    unknown,    /* /proc, log and events do not tell */
    dead,       /* there is no monitor, but its lock file was left */
    stopped     /* there is no monitor */
};

const char* word(State state);

/*
 * A running monitor.
 */
struct Monitor {
    std::string type;
    Process process;                  /* the daemon; its first process as long as there is no daemon */
    bool set_up = false;              /* it has its signal handlers; without them a signal would kill it */
    bool launching = false;           /* its first process still waits for it */
    bool no_start = false;            /* it is never to start the service */
    bool replaced = false;            /* its program is not the one that a start would run now */
    std::vector<std::string> options; /* of its command line */
};

/*
 * All that speaks for one state or another.
 */
struct Evidence {
    enum class Child { none, program, service, ended_service, command };

    bool set_up = false;
    bool launching = false;
    bool no_start = false;
    Child child = Child::none; /* of the main thread; program: ours, about to become another */
    bool copies = false;       /* processes run the service's program that the monitor has not started */
    double monitor_age = 0;    /* seconds */
    double service_age = 0;    /* seconds */
    bool first_start = false;  /* the service was started as soon as the monitor was */
    int init_seconds = 0;
    int parent_init_seconds = 0;
    int last_event = 0;
    Start start;
    double exit_after = 0; /* seconds from the service's start to its exit signal, if that was sent */
};

struct Verdict {
    State state;
    std::string reason; /* why it is unknown, or what it waits for; empty: the state says it all */
};

Verdict judge(const Evidence& evidence);

/*
 * What is known of one type.
 */
struct Report {
    std::string type;
    State state = State::unknown;
    std::string reason;
    std::optional<Monitor> monitor;
    std::optional<Process> service;
    std::vector<Process> copies; /* other processes that run the service's program, those that it started left out */
    Record record;
    Settings settings; /* of a monitor started with these options today */
    std::vector<std::string> warnings;
};

/*
 * Looks at the machine as often as asked, and reads the policy of each type once.
 */
class Observer {
public:
    /*
     * One report for each monitor of a type, or one that says that there is none. For an empty type all monitors, and
     * the types whose monitor has died.
     */
    std::vector<Report> look(const std::string& type = "");

private:
    Report report_of(const Monitor& monitor, const std::vector<Process>& all);
    Report report_without(const std::string& type, const std::vector<Process>& all);
    const Settings& settings_of(const std::string& type, const std::vector<std::string>& options);

    Journal journal_;
    std::map<std::vector<std::string>, Settings> settings_;
};

/*
 * Throws a Refusal for a type that is neither known nor that of a running monitor, which must be told and stopped also
 * when its section was moved away.
 */
void require_known_or_running(const std::string& type);

} // namespace monpctl

#endif
