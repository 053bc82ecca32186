// The library's calls land in these.
#include "log_fixture.h"

#include <ctime>
#include <sys/syscall.h>

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t id, struct timespec* now) noexcept
{
    if (logSystem.onClock) {
        logSystem.onClock();
    }
    if (id == CLOCK_REALTIME && logSystem.clock != 0) {
        *now = { logSystem.clock / SECOND, logSystem.clock % SECOND };
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, id, now));
}

extern "C" __attribute__((visibility("default"))) int renameat2(int fromdir, const char* from, int todir,
                                                                const char* to, unsigned flags) noexcept
{
    const long result =
        syscall(SYS_renameat2, fromdir, from, todir, to, flags | (logSystem.plainRename ? ~0U : 0)); // EINVAL
    if (logSystem.onRename) {
        logSystem.onRename(to);
    }
    return static_cast<int>(result);
}

extern "C" __attribute__((visibility("default"))) int dup3(int from, int to, int flags) noexcept
{
    if (logSystem.onReplace) {
        logSystem.onReplace();
    }
    const long result = syscall(SYS_dup3, from, to, flags);
    if (logSystem.onReplace) {
        logSystem.onReplace();
    }
    return static_cast<int>(result);
}
