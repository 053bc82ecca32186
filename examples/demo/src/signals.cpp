/*
 * The way to die by signal.
 */
#include "signals.h"

#include <algorithm>
#include <csignal>

#include <unistd.h>

namespace sample {

[[noreturn]] void die_by(int sig, rlim_t core_limit)
{
    rlimit limit = {};
    sigset_t mask;

    getrlimit(RLIMIT_CORE, &limit);
    limit.rlim_cur = core_limit;
    limit.rlim_max = std::max(limit.rlim_max, core_limit);
    setrlimit(RLIMIT_CORE, &limit);

    std::signal(sig, SIG_DFL);
    sigemptyset(&mask);
    sigaddset(&mask, sig);
    sigprocmask(SIG_UNBLOCK, &mask, nullptr);
    kill(getpid(), sig);
    _exit(1);
}

} // namespace sample
