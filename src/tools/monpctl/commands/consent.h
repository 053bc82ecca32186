/*
 * The question before a stop that may take the node down.
 */
#ifndef MONPCTL_COMMANDS_CONSENT_H
#define MONPCTL_COMMANDS_CONSENT_H

#include "machine/type_status.h"

#include <utility>
#include <vector>

namespace monpctl {

/*
 * The monitors that may be told to end. Each is asked about once, also one that appears while others are being stopped.
 */
class Consent {
public:
    /* yes: nothing is asked, and the answer is yes */
    explicit Consent(bool yes) : yes_(yes) {}

    /* Result: false if the stop of this monitor may take the node down, and nobody agreed. Without a terminal nobody
       can. */
    bool to_stop(const TypeStatus& status);

private:
    bool ask(const TypeStatus& status) const;

    bool yes_;
    std::vector<std::pair<Process, bool>> answers_;
};

/*
 * Warns if the monitor takes the end of its service for a failure, and then recovers from it.
 */
void warn_of_recovery(const TypeStatus& status);

} // namespace monpctl

#endif
