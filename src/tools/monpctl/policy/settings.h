/*
 * What a monitor of a type would run with, read by the monitor's own code, and what is wrong with it.
 */
#ifndef MONPCTL_SETTINGS_H
#define MONPCTL_SETTINGS_H

#include <string>
#include <vector>

namespace monpctl {

enum class Severity {
    note,
    warning, /* the monitor runs, but not as its policy says, or not for long */
    error    /* the monitor ends on it */
};

struct Problem {
    std::string where; /* "file:line", "file" or "command line" */
    Severity severity;
    std::string sentence;
    bool start_only = false; /* a monitor that runs has it behind itself, and is not ended by a reload */

    bool operator==(const Problem&) const = default;
};

struct Setting {
    std::string name; /* key without its leading "/root/"; of what is formed out of several keys, what it is */
    std::string value;
    std::string source; /* "command line", "file:line", "default", "missing", or "formed" */
};

struct Settings {
    std::string type;    /* on the command line */
    std::string name;    /* the type as its section states it, for most log lines and the events; empty: unknown */
    std::string install; /* ends in '/' */
    std::string service; /* absolute path of the executable; empty when it does not fit */
    std::vector<std::string> arguments; /* argument vector of the service */
    std::string lock_file;              /* empty: none */
    std::string marker_file;            /* empty: none */
    int action = 0;                     /* __monp_actions_value__, or what else is given */
    int restart_limit = 0;              /* restarts allowed; 0 or less: no limit */
    int wait_seconds = 0;               /* from the exit signal to SIGKILL; 0 or less: no limit */
    int init_seconds = 0;               /* for the service's report */
    int parent_init_seconds = 0;        /* that the launcher's process waits */
    bool held_back = false;             /* by the configuration or a use flag: never started */
    std::vector<Setting> explained;     /* in the order of reading */
    std::vector<Problem> problems;      /* sorted by sort_problems */

    /* The problems that a monitor would end on, at its start or at a reload. */
    [[nodiscard]] std::vector<Problem> errors(bool reload = false) const;
    /* Whether a start meets none of them. */
    [[nodiscard]] bool usable() const;
};

/*
 * What the monitor does for an action, as words for a sentence; for any other number that it is unknown.
 */
std::string action_text(int action);

/*
 * The sections of the policy directory that are service types, sorted: all but those of the monitor itself and of the
 * recovery commands. The section "pm" is one only if it names a program.
 */
std::vector<std::string> known_types();

/*
 * Throws a Refusal for anything but a known type. Must be called for a type from outside, which may be a path.
 */
void require_known(const std::string& type);

/*
 * The names that a type may bear in lines and events: the type itself and, if it is another one, the name in its
 * section.
 */
std::vector<std::string> names_of(const std::string& type);

/*
 * Reads what a monitor would that is started with "--TYPE" and the options. Faults go into the result.
 */
Settings read_settings(const std::string& type, const std::vector<std::string>& monitor_options = {});

/*
 * Sorts by file and line, and leaves one of several that are equal.
 */
void sort_problems(std::vector<Problem>& problems);

} // namespace monpctl

#endif
