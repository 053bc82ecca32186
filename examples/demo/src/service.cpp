/*
 * What the service does between its start and its end. Nothing here blocks but the one poll of serve().
 */
#include "service.h"
#include "monp_service.h"
#include "signals.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sample {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t MAX_LINE = 1024;      /* bytes of a control line */
constexpr rlim_t CORE_LIMIT = 1 << 20; /* bytes */

std::string error_text()
{
    return std::strerror(errno);
}

} // namespace

Service::Service(const Options& options)
    : pidfile_(options.pidfile.empty() ? "" : std::filesystem::absolute(options.pidfile).string()),
      has_coredir_(!options.coredir.empty())
{
    open_log(options.log);
    open_control(options.ctl);
    /* From here on no relative path is used any more: whatever dumps core, from outside too, does it here. */
    if (has_coredir_ && chdir(options.coredir.c_str()) != 0) {
        throw std::runtime_error("--coredir '" + options.coredir + "': " + error_text());
    }
    end_fd_ = monp_service_fd();
    if (end_fd_ < 0) {
        throw std::runtime_error("no descriptor for end requests: " + error_text());
    }
}

Service::~Service()
{
    for (const int fd : { log_fd_, ctl_fd_, end_fd_ }) {
        if (fd >= 0) {
            close(fd);
        }
    }
}

void Service::open_log(const std::string& path)
{
    if (!path.empty()) {
        log_fd_ = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0640);
        if (log_fd_ < 0) {
            throw std::runtime_error("--log '" + path + "': " + error_text());
        }
    }
}

/*
 * Opened for writing as well, so that it never reads as ended when a writer closes. It is left behind at the end: a
 * line written to a name that is missing would make a file, and the next start would not get its FIFO.
 */
void Service::open_control(const std::string& path)
{
    struct stat status = {};

    if (path.empty()) {
        return;
    }
    if (mkfifo(path.c_str(), 0600) != 0 && errno != EEXIST) {
        throw std::runtime_error("--ctl '" + path + "': " + error_text());
    }
    ctl_fd_ = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
    if (ctl_fd_ < 0) {
        throw std::runtime_error("--ctl '" + path + "': " + error_text());
    }
    if (fstat(ctl_fd_, &status) != 0 || !S_ISFIFO(status.st_mode)) {
        throw std::runtime_error("--ctl '" + path + "': not a FIFO");
    }
}

void Service::write_pidfile() const
{
    if (!pidfile_.empty()) {
        std::ofstream file(pidfile_, std::ios::trunc);
        file << getpid() << '\n' << std::flush;
        if (!file) {
            throw std::runtime_error("--pidfile '" + pidfile_ + "': cannot be written");
        }
    }
}

void Service::note(const std::string& text) const
{
    std::array<char, 32> when = {};
    const time_t now = time(nullptr);
    tm parts = {};

    strftime(when.data(), when.size(), "%Y-%m-%d %H:%M:%S", localtime_r(&now, &parts));
    if (log_fd_ >= 0) {
        dprintf(log_fd_, "%s [%d] %s\n", when.data(), getpid(), text.c_str());
    }
}

void Service::start(std::deque<Command> commands)
{
    todo_ = std::move(commands);
    write_pidfile();
    note("started. (parent=" + std::to_string(getppid()) + ")");
}

void Service::end_with(int status)
{
    note("ends. (status=" + std::to_string(status) + ")");
    if (!pidfile_.empty()) {
        unlink(pidfile_.c_str());
    }
    std::exit(status);
}

void Service::end_by(int sig)
{
    note("ends by signal. (signal=" + std::to_string(sig) + ")");
    die_by(sig, 0);
}

void Service::end_with_core()
{
    note("ends with a core dump. (signal=" + std::to_string(SIGABRT) + ")");
    die_by(SIGABRT, CORE_LIMIT);
}

void Service::report()
{
    const std::string parent = "(parent=" + std::to_string(getppid()) + ")";
    const int ret = monp_service_report();

    if (ret < 0) {
        note("report failed: " + error_text() + ". " + parent);
    } else {
        note((ret == 0 ? "reported. " : "not reported: the parent is no monitor. ") + parent);
    }
}

void Service::sleep_for(int seconds)
{
    wake_ = Clock::now() + std::chrono::seconds(seconds);
}

void Service::set_end(int rule)
{
    end_rule_ = rule;
}

void Service::stop()
{
    note("stops.");
    kill(getpid(), SIGSTOP);
    note("goes on.");
}

void Service::daemonise()
{
    const pid_t child = fork();

    if (child < 0) {
        note("fork failed. (" + error_text() + ")");
        return;
    }
    if (child > 0) {
        note("ends, its copy goes on. (copy=" + std::to_string(child) + ")");
        _exit(0);
    }
    setsid();
    write_pidfile();
    note("goes on as a daemon.");
}

int Service::poll_timeout() const
{
    int timeout = -1;

    if (wake_) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*wake_ - Clock::now()).count();
        timeout = static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
    }
    return timeout;
}

void Service::serve()
{
    std::array<pollfd, 2> inputs = { { { end_fd_, POLLIN, 0 }, { ctl_fd_, POLLIN, 0 } } };

    for (;;) {
        while (!wake_ && !todo_.empty()) {
            const Command command = todo_.front();
            todo_.pop_front();
            command.verb->run(*this, command.value);
        }
        inputs[0].revents = 0;
        inputs[1].revents = 0;
        poll(inputs.data(), inputs.size(), poll_timeout());
        if ((inputs[0].revents & POLLIN) != 0) {
            on_end_request();
        }
        if ((inputs[1].revents & POLLIN) != 0) {
            on_control_input();
        }
        if (wake_ && Clock::now() >= *wake_) {
            wake_.reset();
        }
    }
}

void Service::on_end_request()
{
    if (monp_service_wait(0) == 0) {
        return;
    }
    note("end request.");
    if (end_rule_ == END_BY_SIGNAL) {
        end_by(SIGUSR1);
    } else if (end_rule_ == END_IGNORED) {
        note("end request ignored.");
    } else {
        end_with(end_rule_);
    }
}

void Service::on_control_input()
{
    std::array<char, 512> chunk = {};
    const ssize_t got = read(ctl_fd_, chunk.data(), chunk.size());

    for (ssize_t i = 0; i < got; i++) {
        const char c = chunk[static_cast<size_t>(i)];
        if (c != '\n' && input_.size() < MAX_LINE) {
            input_ += c;
        } else if (c != '\n') {
            input_cut_ = true;
        } else {
            if (input_cut_) {
                note("control line refused: longer than " + std::to_string(MAX_LINE) + " bytes");
            } else {
                on_control_line(input_);
            }
            input_.clear();
            input_cut_ = false;
        }
    }
}

/* A new line takes the place of what is left to do: who writes it does not want to wait for an old sleep. */
void Service::on_control_line(const std::string& line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;

    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    try {
        todo_ = parse_commands(words, has_coredir_);
        wake_.reset();
        note("control line '" + line + "'");
    } catch (const UsageError& error) {
        note("control line refused: " + std::string(error.what()));
    }
}

} // namespace sample
