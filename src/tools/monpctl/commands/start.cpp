/*
 * The command "start".
 */
#include "commands/start.h"

#include "commands/commands.h"
#include "commands/console.h"
#include "commands/launch.h"
#include "commands/type_choice.h"
#include "common/installation.h"
#include "common/refusal.h"
#include "machine/adoption.h"
#include "machine/log_history.h"
#include "machine/observer.h"
#include "machine/pidfd_handle.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fmt/format.h>
#include <iterator>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace monpctl {

namespace {

/* Added to the time that the policy grants the service until it reports. */
constexpr int SPARE_SECONDS = 10;

/* A waiting monitor acts on a start request within this time, unless it must not. */
constexpr auto REQUEST_LIMIT = std::chrono::seconds(5);

/*
 * One start, from the launch or the request to the result.
 */
class Attempt {
public:
    Attempt(const StartRequest& request, const Settings& settings, int seconds);
    Exit run();

private:
    Exit begin(const TypeStatus& status);
    Exit begin_launch();
    Exit begin_request(const TypeStatus& status);
    Exit watch();
    std::optional<Exit> judge(const TypeStatus& status);
    bool has_news(const TypeStatus& status) const;
    bool first_has_ended();
    void drop_lock_file() const;
    Exit failed(const std::string& sentence);
    Exit up(const TypeStatus& status, const std::string& how);
    TypeStatus look();

    const StartRequest& request_;
    const Settings& settings_;
    Observer observer_;
    const int seconds_;
    const Clock::time_point limit_ = Clock::now() + std::chrono::seconds(seconds_);
    const StartLock lock_;
    const Time begun_ = std::chrono::system_clock::now();
    std::optional<Clock::time_point> requested_;
    std::optional<Time> old_failure_; /* that the monitor waited after when it was requested to start */
    pid_t first_ = 0;                 /* the process launched; 0: none, or it has ended */
    int first_status_ = 0;
    bool lock_file_made_ = false;
    bool was_running_ = false;    /* at the last look */
    std::vector<pid_t> monitors_; /* pids of the first process and the monitors seen */
};

Attempt::Attempt(const StartRequest& request, const Settings& settings, int seconds)
    : request_(request), settings_(settings), seconds_(seconds),
      lock_(request.type, limit_ + std::chrono::seconds(SPARE_SECONDS))
{
}

TypeStatus Attempt::look()
{
    TypeStatus status = observer_.look({ request_.type }).front();

    if (status.monitor && std::ranges::find(monitors_, status.monitor->process.pid) == monitors_.end()) {
        monitors_.push_back(status.monitor->process.pid);
    }
    return status;
}

/*
 * A monitor that is about to go, or to restart its service, is left alone until that is done.
 */
Exit Attempt::run()
{
    TypeStatus status = look();

    while ((status.state == State::ending || status.state == State::recovering) && Clock::now() < limit_) {
        std::this_thread::sleep_for(LOOK_PAUSE);
        status = look();
    }
    return begin(status);
}

/*
 * A running service that no monitor can take over, as the monitor looks for the program's file.
 */
const Process* unadoptable(const TypeStatus& status)
{
    const auto found = std::ranges::find_if(status.copies, [](const Process& copy) { return !adoptable(copy); });

    return found == status.copies.end() ? nullptr : &*found;
}

Exit Attempt::begin(const TypeStatus& status)
{
    if (status.monitor && !request_.options.empty()) {
        warn(request_.type, "a monitor runs already, and takes no options any more");
    }
    if (status.state == State::running) {
        return up(status, "runs already");
    }
    if (status.state == State::ending || status.state == State::recovering) {
        return failed(fmt::format("not started, as its monitor is still {}", word(status.state)));
    }
    const bool begins = !status.monitor || status.state == State::waiting;
    if (const Process* copy = unadoptable(status); begins && copy != nullptr && !request_.second_copy) {
        complain(request_.type,
                 fmt::format("not started: the service runs already, process {}, and no monitor can take "
                             "it over, as {}; end that process first, or start a second copy with "
                             "--second-copy",
                             copy->pid, unadoptable_reason(*copy)));
        return EXIT_FAILED;
    }
    if (!status.monitor) {
        return begin_launch();
    }
    return status.state == State::waiting ? begin_request(status) : watch();
}

Exit Attempt::begin_launch()
{
    if (!settings_.usable()) {
        show_problems(settings_.errors());
        complain(request_.type, "not started, as the monitor would end on its policy or options");
        return EXIT_FAILED;
    }
    lock_file_made_ = make_lock_file(settings_);
    try {
        first_ = launch(request_.type, request_.options);
    } catch (...) {
        drop_lock_file();
        throw;
    }
    monitors_.push_back(first_);
    return watch();
}

Exit Attempt::begin_request(const TypeStatus& status)
{
    if (status.monitor->no_start) {
        return failed("not started; its monitor waits: " + status.reason);
    }
    if (status.history.last_failure) {
        old_failure_ = status.history.last_failure->time;
    }
    requested_ = Clock::now();
    PidfdHandle(status.monitor->process).signal(SIGUSR1);
    return watch();
}

/*
 * Removes the lock file of a monitor that did not live to remove it.
 */
void Attempt::drop_lock_file() const
{
    if (lock_file_made_) {
        unlink(settings_.lock_file.c_str());
    }
}

/*
 * Result: true if the first process has ended, or there is none. If somebody else has reaped it, its end counts as a
 * good one: the state of the monitor is looked at next.
 */
bool Attempt::first_has_ended()
{
    int status = 0;
    const pid_t ended = first_ > 0 ? waitpid(first_, &status, WNOHANG) : 0;

    if (ended > 0 || (ended < 0 && errno == ECHILD)) {
        first_ = 0;
        first_status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        if (first_status_ != 0) {
            drop_lock_file();
        }
    }
    return first_ == 0;
}

/*
 * Tells if the last failure in the records is one of this start, and not the one that the monitor waited after.
 */
bool Attempt::has_news(const TypeStatus& status) const
{
    const auto& failure = status.history.last_failure;

    return failure && (!old_failure_ || failure->time != *old_failure_);
}

/*
 * Result: nothing as long as the start may end either way.
 */
std::optional<Exit> Attempt::judge(const TypeStatus& status)
{
    const bool settled = first_ == 0;

    if (status.start_failed && has_news(status)) {
        return failed(fmt::format("not started: {}", status.history.last_failure->reason));
    }
    if (!settled) {
        return std::nullopt;
    }
    /* Twice: the first process is released a moment before a service that is late is told to end. */
    if (status.state == State::running && was_running_) {
        return up(status, "started");
    }
    was_running_ = status.state == State::running;
    if (!status.monitor) {
        return failed("not started: its monitor has ended" + (status.reason.empty() ? "" : ": " + status.reason));
    }
    if (status.state == State::waiting && has_news(status)) {
        return failed(
            fmt::format("not started: {}; its monitor waits for a start request", status.history.last_failure->reason));
    }
    if (status.state == State::waiting && !requested_) {
        return failed("not started; its monitor waits" + (status.reason.empty() ? "" : ": " + status.reason));
    }
    if (status.state == State::waiting && Clock::now() > *requested_ + REQUEST_LIMIT) {
        return failed("not started; its monitor waits on in spite of a request, as its policy holds the service back");
    }
    return std::nullopt;
}

Exit Attempt::watch()
{
    std::optional<Exit> result;

    if (seconds_ == 0) {
        say(request_.type, "is being started");
        return EXIT_DONE;
    }
    while (!result) {
        first_has_ended();
        if (first_status_ != 0) {
            return failed(
                fmt::format("not started: the monitor's first process has ended with status {}", first_status_));
        }
        const TypeStatus status = look();
        result = judge(status);
        if (!result && Clock::now() > limit_) {
            result = failed(
                fmt::format("not up after {} seconds; its monitor goes on and is {}", seconds_, word(status.state)));
        }
        std::this_thread::sleep_for(result ? std::chrono::milliseconds(0) : LOOK_PAUSE);
    }
    return *result;
}

/*
 * Tells why, with the problems of the policy that may be the cause, and the lines of the log.
 */
Exit Attempt::failed(const std::string& sentence)
{
    std::vector<Problem> problems;

    std::ranges::copy_if(settings_.problems, std::back_inserter(problems), [](const Problem& problem) {
        return problem.severity != Severity::note && problem.other_type.empty();
    });
    complain(request_.type, sentence);
    show_problems(problems);
    show_lines(telling_lines(begun_, monitors_));
    return EXIT_DOWN;
}

Exit Attempt::up(const TypeStatus& status, const std::string& how)
{
    say(request_.type, fmt::format("{}, monitor {}{}", how, status.monitor->process.pid,
                                   status.service ? fmt::format(", service {}", status.service->pid) : ""));
    for (const auto& warning : status.warnings) {
        warn(request_.type, warning);
    }
    return EXIT_DONE;
}

} // namespace

Exit start_one(const StartRequest& request)
{
    const Settings settings = read_settings(request.type, request.options);
    const std::string trouble = log_trouble(log_file());

    if (!trouble.empty()) {
        warn(request.type, fmt::format("the log cannot be written: {}", trouble));
    }
    return Attempt(request, settings, request.wait.value_or(settings.init_seconds + SPARE_SECONDS)).run();
}

void prepare_starts()
{
    /* If it is ignored, as a caller may have it, the kernel reaps the first process, and its end cannot be told. */
    std::signal(SIGCHLD, SIG_DFL);
    /* Do not inherit a lax umask: it would make our files and the monitor's writable by others. */
    umask(022);
}

Exit start(const StartOptions& given)
{
    require_root();
    const auto types = chosen_types(given.choice, Taken::known);

    if (types.size() != 1 && !given.options.empty()) {
        throw Refusal("options of a monitor need one type");
    }
    prepare_starts();
    return for_each_type(types, [&](const std::string& type) {
        return start_one(
            { .type = type, .wait = given.wait, .second_copy = given.second_copy, .options = given.options });
    });
}

} // namespace monpctl
