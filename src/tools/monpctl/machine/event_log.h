/*
 * The events file of all monitors: one JSON object a line.
 */
#ifndef MONPCTL_EVENT_LOG_H
#define MONPCTL_EVENT_LOG_H

#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace monpctl {

/*
 * One event, or a place where some are missing: id 0 and the name "LOST". Those about a failed recovery command have no
 * type of their own; they get that of the event before it from the same monitor.
 */
struct EventSummary {
    std::string time; /* with microseconds and the offset from UTC */
    std::string type; /* as the type's section states it, which may differ from the type on the command line */
    std::string name; /* such as "FAIL_MON" */
    std::string severity;
    std::string text; /* the sentence */
    int id = 0;       /* __monp_eventid__ */
    std::optional<int> status;
    pid_t monitor = 0;
    std::string line; /* as it stands in the file */
};

/*
 * Reads lines of the events file one after the other; those of one service type, or all if the type is empty.
 */
class EventReader {
public:
    explicit EventReader(const std::string& type);

    /* Nothing for a line that is no event, or not one of the type. */
    std::optional<EventSummary> read(const std::string& line);

private:
    std::vector<std::string> names_;    /* those that the type may appear under */
    std::map<pid_t, std::string> last_; /* the type that each monitor has named last */
};

} // namespace monpctl

#endif
