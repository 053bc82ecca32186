/*
 * The exceptions of this tool. Each text is one sentence for the operator, without a full stop; main prints it.
 */
#ifndef MONPCTL_COMMON_REFUSAL_H
#define MONPCTL_COMMON_REFUSAL_H

#include <stdexcept>

namespace monpctl {

/*
 * The command line asks for something that cannot be done. The tool ends with the status of a wrong command line.
 */
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/*
 * The machine is not as it has to be for what was asked: there is no installation, or a file cannot be read. The
 * command line is not to blame, so the tool ends with the status of a failure.
 */
struct Fault : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace monpctl

#endif
