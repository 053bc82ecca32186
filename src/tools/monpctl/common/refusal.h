/*
 * The one exception of this tool that is the operator's to mend.
 */
#ifndef MONPCTL_COMMON_REFUSAL_H
#define MONPCTL_COMMON_REFUSAL_H

#include <stdexcept>

namespace monpctl {

/*
 * The command line asks for something that cannot be done. The text is one sentence for the operator; main prints it
 * and ends with EXIT_USAGE.
 */
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace monpctl

#endif
