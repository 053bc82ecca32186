/*
 * The command "stop".
 */
#include "commands/stop.h"

#include "commands/consent.h"
#include "commands/console.h"
#include "commands/type_choice.h"
#include "machine/adoption.h"
#include "machine/observer.h"
#include "machine/pidfd_handle.h"

#include <algorithm>
#include <csignal>
#include <fmt/format.h>
#include <iterator>
#include <memory>
#include <ranges>

namespace monpctl {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/* Added to the time that the policy grants the service, and the whole limit when the policy sets none. */
constexpr int SPARE_SECONDS = 10;
constexpr int UNLIMITED_SECONDS = 60;

/* Between two end requests, and until a killed process is gone. */
constexpr auto REQUEST_PAUSE = seconds(1);
constexpr auto KILL_LIMIT = seconds(3);

/*
 * A process that was seen, held until it has ended.
 */
struct HeldProcess {
    Process process;
    std::unique_ptr<PidfdHandle> handle;

    [[nodiscard]] bool ended(Clock::time_point limit) const
    {
        const auto left = std::chrono::duration_cast<milliseconds>(limit - Clock::now());
        return handle->ended(std::max(left, milliseconds(0)));
    }
};

using HeldProcesses = std::vector<HeldProcess>;

void hold(HeldProcesses& held, const Process& process)
{
    const bool known = std::ranges::any_of(held, [&](const HeldProcess& one) { return one.process.same(process); });

    if (!known) {
        held.push_back({ process, std::make_unique<PidfdHandle>(process) });
    }
}

/*
 * One stop of one type.
 */
class Stop {
public:
    Stop(std::string type, const StopOptions& given) : type_(std::move(type)), given_(given), consent_(given.yes) {}
    Exit run();

private:
    bool prepare(const std::vector<TypeStatus>& statuses);
    void request_end();
    void request_once(const TypeStatus& status);
    void kill_left();
    static void kill_all(const HeldProcesses& held);
    bool name_survivors();
    Exit outcome();

    const std::string type_;
    const StopOptions& given_;
    Consent consent_;
    Observer observer_;
    HeldProcesses monitors_;
    HeldProcesses services_; /* each with its descendants behind it */
    HeldProcesses copies_;   /* that run the service's program outside a monitor */
    Clock::time_point limit_;
    int seconds_ = 0;
    bool had_monitor_ = false;
    bool killed_ = false; /* by us */
    std::optional<Time> old_end_;
};

int default_seconds(const Settings& settings)
{
    return settings.wait_seconds > 0 ? settings.init_seconds + settings.wait_seconds + SPARE_SECONDS
                                     : UNLIMITED_SECONDS;
}

/*
 * Result: false if one of the monitors must not be stopped.
 */
bool Stop::prepare(const std::vector<TypeStatus>& statuses)
{
    for (const auto& status : statuses) {
        if (status.monitor && !consent_.to_stop(status)) {
            return false;
        }
        warn_of_recovery(status);
        had_monitor_ = had_monitor_ || status.monitor;
        for (const auto& copy : status.copies) {
            hold(copies_, copy);
        }
        if (status.history.last_end) {
            old_end_ = status.history.last_end->time;
        }
    }
    seconds_ = given_.kill_after.value_or(given_.wait.value_or(default_seconds(statuses.front().settings)));
    limit_ = Clock::now() + seconds(seconds_);
    return true;
}

void Stop::request_once(const TypeStatus& status)
{
    hold(monitors_, status.monitor->process);
    if (status.service) {
        hold(services_, *status.service);
        for (const auto& descendant : descendants_of(status.service->pid)) {
            hold(services_, descendant);
        }
    }
    if (status.monitor->set_up) {
        monitors_.back().handle->signal(SIGUSR2);
    }
}

/*
 * Asks every monitor of the type to end, again each second: a request that comes in the middle of a restart is
 * forgotten. One that has no handlers yet would be killed by it, and is waited for; one without consent is not.
 */
void Stop::request_end()
{
    for (;;) {
        const HeldProcess* awaited = nullptr;
        auto statuses = observer_.look({ type_ });
        std::erase_if(statuses, [](const TypeStatus& status) { return !status.monitor; });
        for (const auto& status : statuses) {
            if (consent_.to_stop(status)) {
                request_once(status);
                awaited = &*std::ranges::find_if(
                    monitors_, [&](const HeldProcess& one) { return one.process.same(status.monitor->process); });
            }
        }
        if (awaited == nullptr || Clock::now() > limit_) {
            return;
        }
        /* Whichever ends first may be the last. */
        static_cast<void>(awaited->ended(std::min(Clock::now() + REQUEST_PAUSE, limit_)));
    }
}

void Stop::kill_all(const HeldProcesses& held)
{
    for (const auto& one : held) {
        if (!one.ended(Clock::now())) {
            one.handle->kill();
        }
    }
}

/*
 * The monitors first: one that lived would take the end of its service for a failure. A service that runs without a
 * monitor was asked by nobody, and gets the time to end by itself; a copy beside a monitor is somebody else's.
 */
void Stop::kill_left()
{
    const auto left = [](const HeldProcess& one) { return !one.ended(Clock::now()); };

    if (!had_monitor_) {
        for (auto& copy : copies_) {
            static_cast<void>(copy.ended(limit_));
        }
        std::ranges::move(copies_, std::back_inserter(services_));
        copies_.clear();
    }
    killed_ = std::ranges::any_of(monitors_, left) || std::ranges::any_of(services_, left);
    kill_all(monitors_);
    for (const auto& monitor : monitors_) {
        static_cast<void>(monitor.ended(Clock::now() + KILL_LIMIT));
    }
    kill_all(services_);
}

/*
 * The way to end a service that has outlived its monitor.
 */
std::string way_out(const Process& service)
{
    return adoptable(service) ? "a start takes it over, and the next stop then ends it"
                              : "no monitor can take it over, as " + unadoptable_reason(service);
}

/*
 * Names each process that has outlived the stop.
 * Result: true if there was none.
 */
bool Stop::name_survivors()
{
    const auto limit = Clock::now() + KILL_LIMIT;
    bool none = true;

    for (const auto& monitor : monitors_) {
        /* One that is ending may be gone from /proc a moment before its end is told. */
        if (!monitor.ended(none ? limit : Clock::now())) {
            complain(type_, fmt::format("its monitor, process {}, still runs", monitor.process.pid));
            none = false;
        }
    }
    for (const auto& status : observer_.look({ type_ })) {
        for (const auto& copy : status.copies) {
            hold(services_, copy);
        }
    }
    for (const auto& service : services_) {
        if (!service.ended(none ? limit : Clock::now())) {
            complain(type_, fmt::format("process {}, {}, survives; {}", service.process.pid, service.process.executable,
                                        way_out(service.process)));
            none = false;
        }
    }
    return none;
}

/*
 * Tells how the service has ended. Unless it ended as asked, the monitor may have recovered from that.
 */
Exit Stop::outcome()
{
    const auto status = observer_.look({ type_ }).front();
    const auto& end = status.history.last_end;
    const bool ended_now = end && (!old_end_ || end->time != *old_end_);

    if (killed_) {
        say(type_, fmt::format("stopped by force, as it had not ended after {} seconds", *given_.kill_after));
    } else if (status.state == State::gave_up && ended_now) {
        complain(type_, "ended, but not as asked: " + status.reason);
        return EXIT_FAILED;
    } else if (ended_now && end->killed) {
        say(type_, "stopped; its monitor had to kill the service, as it did not end when asked");
    } else {
        say(type_, "stopped");
    }
    return EXIT_DONE;
}

Exit Stop::run()
{
    if (!prepare(observer_.look({ type_ }))) {
        return EXIT_FAILED;
    }
    if (had_monitor_) {
        request_end();
    } else {
        say(type_, "no monitor runs");
    }
    if (given_.kill_after) {
        kill_left();
    }
    if (!name_survivors()) {
        if (had_monitor_ && Clock::now() > limit_) {
            complain(type_, fmt::format("not stopped within {} seconds", seconds_));
        }
        return EXIT_DOWN;
    }
    return had_monitor_ || killed_ ? outcome() : EXIT_DONE;
}

} // namespace

Exit stop_one(const std::string& type, const StopOptions& given)
{
    return Stop(type, given).run();
}

Exit stop(const StopOptions& given)
{
    require_root();
    auto types = chosen_types(given.choice, Taken::known_or_running);

    if (given.choice.all) {
        std::ranges::reverse(types);
    }
    return for_each_type(types, [&](const std::string& type) { return stop_one(type, given); });
}

} // namespace monpctl
