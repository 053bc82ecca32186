/*
 * The command "start": one monitor, in surroundings that are the same from a terminal, a job or another service.
 */
#include "commands/commands.h"
#include "commands/console.h"
#include "common/installation.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

/* Added to what the policy grants the service until it reports. */
constexpr int SPARE_SECONDS = 10;

/* In which a waiting monitor acts on a start request, unless it must not. */
constexpr auto REQUEST_LIMIT = std::chrono::seconds(5);

[[noreturn]] void fail(int error, const std::string& what)
{
    throw std::system_error(error, std::generic_category(), what);
}

/*
 * Held by one start of a type at a time. The file stays: who removed it would leave two starts with a lock each.
 */
class StartLock {
public:
    StartLock(const std::string& type, Clock::time_point limit);
    ~StartLock();
    StartLock(const StartLock&) = delete;
    StartLock& operator=(const StartLock&) = delete;

private:
    int fd_;
};

StartLock::StartLock(const std::string& type, Clock::time_point limit)
{
    const fs::path file = fs::path(home()) / "run" / ("monpctl." + type + ".lock");

    fs::create_directory(file.parent_path());
    fd_ = open(file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd_ < 0) {
        fail(errno, file.string());
    }
    while (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK || Clock::now() > limit) {
            const int error = errno;
            close(fd_);
            fail(error, "another start of " + type + " goes on, " + file.string());
        }
        std::this_thread::sleep_for(LOOK_PAUSE);
    }
}

StartLock::~StartLock()
{
    close(fd_);
}

/*
 * The monitor's lock file is its launcher's to make; the monitor only removes it.
 * Result: whether it is a new one.
 */
bool make_lock_file(const Settings& settings)
{
    if (settings.lock_file.empty()) {
        return false;
    }
    const int fd = open(settings.lock_file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0 && errno != EEXIST) {
        complain(settings.type,
                 "warning: the lock file " + settings.lock_file + " cannot be made: " + std::strerror(errno));
    }
    return fd >= 0 && close(fd) == 0;
}

/*
 * The attributes and file actions of a spawn, which have to be given back.
 */
struct Surroundings {
    posix_spawnattr_t attributes = {};
    posix_spawn_file_actions_t files = {};

    Surroundings();
    ~Surroundings();
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;
};

/*
 * The daemon keeps its first process's descriptors for life, and hands them on to the service. So they lead nowhere:
 * what the first process says on its standard error is in the log, too.
 */
Surroundings::Surroundings()
{
    sigset_t all;
    sigset_t none;

    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawn_file_actions_init(&files);
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
        posix_spawn_file_actions_addopen(&files, fd, "/dev/null", O_RDWR, 0);
    }
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    posix_spawn_file_actions_addchdir_np(&files, "/");
}

Surroundings::~Surroundings()
{
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
}

/*
 * Result: the monitor's first process, a child of ours.
 */
pid_t launch(const std::string& type, const std::vector<std::string>& options)
{
    const Surroundings surroundings;
    std::vector<std::string> words = { monitor_program(), "--" + type };
    std::vector<std::string> environment = { "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "TESK_HOME=" + home() };
    pid_t pid = 0;

    words.insert(words.end(), options.begin(), options.end());
    const int error = posix_spawn(&pid, words.front().c_str(), &surroundings.files, &surroundings.attributes,
                                  pointers(words).data(), pointers(environment).data());
    if (error != 0) {
        fail(error, words.front() + " cannot be started");
    }
    return pid;
}

/*
 * One start, from the launch or the request to the verdict.
 */
class Attempt {
public:
    Attempt(const StartOptions& given, const Settings& settings, int limit);
    int run();

private:
    int begin(const TypeStatus& report);
    int begin_launch();
    int begin_request(const TypeStatus& report);
    int watch();
    std::optional<int> judge_report(const TypeStatus& report);
    bool first_has_ended();
    void drop_lock_file() const;
    int failed(const std::string& sentence);
    int up(const TypeStatus& report, const std::string& how);
    TypeStatus look();

    const StartOptions& given_;
    const Settings& settings_;
    Observer observer_;
    const int seconds_;
    const Clock::time_point limit_ = Clock::now() + std::chrono::seconds(seconds_);
    const StartLock lock_;
    const Time begun_ = std::chrono::system_clock::now();
    std::optional<Clock::time_point> requested_;
    pid_t first_ = 0; /* the process launched; 0: none, or it has ended */
    int first_status_ = 0;
    bool lock_file_made_ = false;
    bool was_running_ = false; /* at the last look */
    std::vector<pid_t> pids_;  /* of the first process and the monitors seen */
};

Attempt::Attempt(const StartOptions& given, const Settings& settings, int limit)
    : given_(given), settings_(settings), seconds_(limit),
      lock_(given.type, limit_ + std::chrono::seconds(SPARE_SECONDS))
{
}

TypeStatus Attempt::look()
{
    TypeStatus report = observer_.look({ given_.type }).front();

    if (report.monitor) {
        pids_.push_back(report.monitor->process.pid);
    }
    return report;
}

/*
 * A monitor that is about to go, or to restart its service, is left alone until that is done.
 */
int Attempt::run()
{
    TypeStatus report = look();

    while ((report.state == State::ending || report.state == State::recovering) && Clock::now() < limit_) {
        std::this_thread::sleep_for(LOOK_PAUSE);
        report = look();
    }
    return begin(report);
}

int Attempt::begin(const TypeStatus& report)
{
    if (!report.monitor) {
        return begin_launch();
    }
    if (!given_.options.empty()) {
        complain(given_.type, "warning: a monitor runs already, and takes no options any more");
    }
    if (report.state == State::running) {
        return up(report, "runs already");
    }
    if (report.state == State::waiting) {
        return begin_request(report);
    }
    if (report.state == State::ending || report.state == State::recovering) {
        return failed("not started, as its monitor is still " + std::string(word(report.state)));
    }
    return watch();
}

int Attempt::begin_launch()
{
    if (!settings_.usable()) {
        show_problems(settings_.errors());
        complain(given_.type, "not started, as the monitor would end on its policy or options");
        return EXIT_FAILED;
    }
    lock_file_made_ = make_lock_file(settings_);
    try {
        first_ = launch(given_.type, given_.options);
    } catch (...) {
        drop_lock_file();
        throw;
    }
    pids_.push_back(first_);
    return watch();
}

int Attempt::begin_request(const TypeStatus& report)
{
    if (report.monitor->no_start) {
        return failed("not started; its monitor waits: " + report.reason);
    }
    requested_ = Clock::now();
    PidfdHandle(report.monitor->process).signal(SIGUSR1);
    return watch();
}

/*
 * Of a monitor that was not there to remove it.
 */
void Attempt::drop_lock_file() const
{
    if (lock_file_made_) {
        unlink(settings_.lock_file.c_str());
    }
}

/*
 * Result: whether the first process has ended, or there is none. The end of one that somebody else has reaped counts as
 * a good one; what the monitor does is looked at next.
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
 * Result: nothing as long as it may go either way.
 */
std::optional<int> Attempt::judge_report(const TypeStatus& report)
{
    const bool old_failure = requested_ && (!report.history.last_failure || report.history.last_failure->time < begun_);

    /* Twice: the first process is let go a moment before a service that is late is told to end. */
    if (report.state == State::running && was_running_) {
        return up(report, "started");
    }
    was_running_ = report.state == State::running;
    if (!report.monitor) {
        return failed("not started: its monitor has ended");
    }
    if (report.state == State::waiting && !old_failure) {
        return failed("not started; its monitor waits" + (report.reason.empty() ? "" : ": " + report.reason));
    }
    if (report.state == State::waiting && Clock::now() > *requested_ + REQUEST_LIMIT) {
        return failed("not started; its monitor waits on in spite of a request, as its policy holds the service back");
    }
    return std::nullopt;
}

int Attempt::watch()
{
    std::optional<int> result;

    if (seconds_ == 0) {
        say(given_.type, "is being started");
        return EXIT_DONE;
    }
    while (!result) {
        const bool settled = first_has_ended();
        if (first_status_ != 0) {
            return failed("not started: the monitor's first process has ended with status " +
                          std::to_string(first_status_));
        }
        const TypeStatus report = look();
        if (settled) {
            result = judge_report(report);
        }
        if (!result && Clock::now() > limit_) {
            result = failed("not up after " + std::to_string(seconds_) + " seconds; its monitor goes on and is " +
                            std::string(word(report.state)));
        }
        std::this_thread::sleep_for(result ? std::chrono::milliseconds(0) : LOOK_PAUSE);
    }
    return *result;
}

int Attempt::failed(const std::string& sentence)
{
    complain(given_.type, sentence);
    show_lines(telling_lines(begun_, pids_));
    return EXIT_DOWN;
}

int Attempt::up(const TypeStatus& report, const std::string& how)
{
    say(given_.type, how + ", its monitor being process " + std::to_string(report.monitor->process.pid) +
                         (report.service ? " and the service process " + std::to_string(report.service->pid) : ""));
    for (const auto& warning : report.warnings) {
        complain(given_.type, "warning: " + warning);
    }
    return EXIT_DONE;
}

} // namespace

int start(const StartOptions& given)
{
    require_root();
    require_known(given.type);
    /* Ignored, as a caller may have it, the kernel would reap the first process and nobody could tell how it ended. */
    std::signal(SIGCHLD, SIG_DFL);
    /* The caller's could open what is made here, and what the monitor makes, to others. */
    umask(022);
    const Settings settings = read_settings(given.type, given.options);

    return Attempt(given, settings, given.wait.value_or(settings.init_seconds + SPARE_SECONDS)).run();
}

} // namespace monpctl
