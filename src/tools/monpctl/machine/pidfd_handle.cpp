#include "machine/pidfd_handle.h"

#include <cerrno>
#include <csignal>
#include <fmt/format.h>
#include <poll.h>
#include <stdexcept>
#include <system_error>

/* Its own declarations do not say so. */
extern "C" {
#include <sys/pidfd.h>
}

namespace monpctl {

namespace {

/* How long we wait for an exiting process to become a zombie. */
constexpr auto EXIT_LIMIT = std::chrono::seconds(1);

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

PidfdHandle::PidfdHandle(const Process& process) : process_(process)
{
    /* Nothing that is asked for here can be meant for process 1, and 0 and less are groups. */
    if (process.pid <= 1) {
        throw std::invalid_argument(fmt::format("process {} cannot be held", process.pid));
    }
    fd_ = UniqueFd(pidfd_open(process.pid, 0));
    /* The kernel calls one that is just being reaped invalid. */
    if (!fd_ && errno != ESRCH && errno != EINVAL) {
        fail(fmt::format("process {} cannot be held", process.pid));
    }
    const auto now = Proc().read(process.pid);
    if (!now || !now->same(process)) {
        fd_.reset();
    }
}

bool PidfdHandle::send(int number, bool handled) const
{
    const std::string name = fmt::format("process {}", process_.pid);

    if (ended(std::chrono::milliseconds(0))) {
        return false;
    }
    /* Held by the pidfd it cannot become another process, but it can run another program. */
    const auto now = Proc().read(process_.pid);
    if (!now || now->zombie()) {
        return false;
    }
    const bool kept = now->same(process_) && now->command == process_.command && now->device == process_.device &&
                      now->inode == process_.inode;
    /* One that is exiting has neither executable nor arguments any more. */
    if (!kept && ended(EXIT_LIMIT)) {
        return false;
    }
    if (!kept) {
        throw std::runtime_error(name + " has become another program and gets no signal");
    }
    if (handled && !now->catches(number)) {
        throw std::runtime_error(fmt::format("{} has no handler for signal {} and gets none", name, number));
    }
    if (pidfd_send_signal(fd_.get(), number, nullptr, 0) != 0) {
        if (errno != ESRCH) {
            fail(name + " cannot be signalled");
        }
        return false;
    }
    return true;
}

bool PidfdHandle::signal(int number) const
{
    return send(number, true);
}

bool PidfdHandle::kill() const
{
    return send(SIGKILL, false);
}

bool PidfdHandle::ended(std::chrono::milliseconds limit) const
{
    pollfd poll_for = { fd_.get(), POLLIN, 0 };

    return !fd_ || poll(&poll_for, 1, static_cast<int>(limit.count())) > 0;
}

} // namespace monpctl
