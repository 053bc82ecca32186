/*
 * Dispositions, ways to die by signal, and a look at the parent before it is signalled.
 */
#include "signals.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include <unistd.h>

namespace sample {

void restore_signals()
{
    sigset_t mask;

    for (int sig = 1; sig <= LAST_CLASSIC_SIGNAL; sig++) {
        std::signal(sig, SIG_DFL);
    }
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
}

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

bool survives_report(pid_t pid)
{
    const unsigned long long bit = 1ULL << (SIGUSR1 - 1);
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;

    while (std::getline(status, line)) {
        const bool listed = line.starts_with("SigIgn:") || line.starts_with("SigCgt:");
        if (listed && (std::strtoull(line.c_str() + std::strlen("SigXxx:"), nullptr, 16) & bit) != 0) {
            return true;
        }
    }
    return false;
}

} // namespace sample
