/*
 * The settings that a monitor of a type runs with, read by the monitor's own code, and the problems in them.
 */
#ifndef MONPCTL_POLICY_SETTINGS_H
#define MONPCTL_POLICY_SETTINGS_H

#include "policy/findings.h"

#include <string>
#include <vector>

namespace monpctl {

struct Settings : Findings {
    std::string type;    /* on the command line */
    std::string name;    /* the type as its section states it, for most log lines and the events; empty: unknown */
    std::string install; /* ends in '/' */
    std::string service; /* absolute path of the executable; empty when it does not fit */
    std::vector<std::string> arguments; /* argument vector of the service */
    std::string lock_file;              /* empty: none */
    std::string marker_file;            /* empty: none */
    int action = 0;                     /* __monp_actions_value__, or any other number that is given */
    bool action_given = false;          /* on the command line */
    int restart_limit = 0;              /* restarts allowed; 0 or less: no limit */
    int wait_seconds = 0;               /* from the exit signal to SIGKILL; 0 or less: no limit */
    int init_seconds = 0;               /* for the service's report */
    int parent_init_seconds = 0;        /* that the launcher's process waits */
    bool held_back = false;             /* by the configuration or a use flag: never started */

    /* The problems that a monitor would end on, at its start or at a reload. */
    [[nodiscard]] std::vector<Problem> errors(bool reload = false) const;
    /* Tells if a start meets none of them. */
    [[nodiscard]] bool usable() const;
};

/*
 * The recovery action of the monitor in words, as in "may reboot the node"; "unknown" for any other number.
 */
std::string action_text(int action);

/*
 * Reads the settings of a monitor that is started with "--TYPE" and the options. Problems go into the result, sorted.
 * It works in the monitor's own records, which this program has to itself, so only one thread may call it.
 */
Settings read_settings(const std::string& type, const std::vector<std::string>& monitor_options = {});

} // namespace monpctl

#endif
