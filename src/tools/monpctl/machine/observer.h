/*
 * The look at the machine: gathers the evidence from /proc, the policy, the lock files and the log, and has it judged.
 */
#ifndef MONPCTL_OBSERVER_H
#define MONPCTL_OBSERVER_H

#include "machine/log_history.h"
#include "machine/process.h"
#include "machine/type_status.h"

#include <map>
#include <string>
#include <vector>

namespace monpctl {

/*
 * Looks as often as asked. It reads the policy of each type once, and the log on from the last look.
 */
class Observer {
public:
    /*
     * Throws a Refusal if the installation is missing.
     *   proc  where the processes are shown
     */
    explicit Observer(Proc proc = Proc());

    /*
     * The statuses of these types in the order given; for an empty list of all: every type that the policy has an entry
     * for, in the order of the entries (where those cannot be read, every type that has a section), and then the types of
     * other running monitors. There is one for each monitor of a type, and one for a type without a monitor. Types from
     * outside must have been checked by require_known_or_running.
     */
    std::vector<TypeStatus> look(const std::vector<std::string>& types = {});

private:
    struct Scene;

    TypeStatus status_of(const RunningMonitor& monitor, const Scene& scene);
    TypeStatus status_without(const std::string& type, const Scene& scene);
    const Settings& settings_of(const std::string& type, const std::vector<std::string>& options);

    Proc proc_;
    LogHistory history_;
    std::map<std::vector<std::string>, Settings> settings_;
};

/*
 * Throws a Refusal for a type that is neither known nor that of a running monitor, which must be told and stopped also
 * when its section was moved away, and if the installation is missing.
 */
void require_known_or_running(const std::string& type);

} // namespace monpctl

#endif
