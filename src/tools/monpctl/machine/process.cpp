/*
 * /proc and pidfds. What a process means to us is monitor.cpp's business.
 */
#include "machine/process.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

/* Its own declarations do not say so. */
extern "C" {
#include <sys/pidfd.h>
}

namespace fs = std::filesystem;

namespace monpctl {

namespace {

constexpr std::string_view DELETED = " (deleted)";

/* In which a process that has given up its memory becomes a zombie. */
constexpr auto EXIT_LIMIT = std::chrono::seconds(1);

std::string proc(pid_t pid, const std::string& file)
{
    return "/proc/" + std::to_string(pid) + '/' + file;
}

std::string content(const std::string& file)
{
    std::ostringstream text;

    text << std::ifstream(file).rdbuf();
    return text.str();
}

/*
 * "pid (name) state parent ... started ...", the 22nd word being the last of these. The name may hold anything.
 */
bool read_stat(Process& process)
{
    const std::string text = content(proc(process.pid, "stat"));
    const auto name_end = text.rfind(')');

    if (name_end == std::string::npos) {
        return false;
    }
    std::istringstream words(text.substr(name_end + 1));
    words >> process.state >> process.parent;
    std::string skipped;
    for (int word = 5; word < 22; word++) {
        words >> skipped;
    }
    return static_cast<bool>(words >> process.started);
}

void read_status(Process& process)
{
    std::ifstream status(proc(process.pid, "status"));
    std::uint64_t mask = 0;

    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("Uid:")) {
            /* The real one, then the effective one. */
            std::istringstream(line.substr(4)) >> process.user >> process.user;
        }
        if (!line.starts_with("Sig") || line.size() < 8) {
            continue;
        }
        mask = std::strtoull(line.c_str() + 8, nullptr, 16);
        if (line.starts_with("SigCgt:")) {
            process.caught = mask;
        } else if (line.starts_with("SigBlk:") || line.starts_with("SigIgn:")) {
            process.unharmful |= mask;
        }
    }
}

void read_executable(Process& process)
{
    const std::string link = proc(process.pid, "exe");
    struct stat file = {};
    std::error_code hidden;

    process.executable = fs::read_symlink(link, hidden).string();
    if (!hidden && stat(link.c_str(), &file) == 0) {
        process.device = file.st_dev;
        process.inode = file.st_ino;
    }
}

void read_command(Process& process)
{
    std::istringstream text(content(proc(process.pid, "cmdline")));

    for (std::string word; std::getline(text, word, '\0');) {
        process.command.push_back(word);
    }
}

double seconds(clockid_t clock)
{
    timespec now = {};

    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

bool Process::zombie() const
{
    return state == 'Z' || state == 'X';
}

bool Process::held() const
{
    return state == 'T' || state == 't';
}

bool Process::catches(int signal) const
{
    return (caught >> (signal - 1) & 1) != 0;
}

bool Process::dies_of(int signal) const
{
    return !zombie() && ((caught | unharmful) >> (signal - 1) & 1) == 0;
}

bool Process::runs(const std::string& path) const
{
    std::error_code missing;

    /* No path and a link that cannot be read would be equal. */
    if (path.empty() || executable.empty()) {
        return false;
    }
    const std::string resolved = fs::weakly_canonical(path, missing).string();
    return executable == resolved || executable == resolved + std::string(DELETED);
}

bool Process::runs_file(const std::string& path) const
{
    struct stat file = {};

    return !executable.empty() && stat(path.c_str(), &file) == 0 && file.st_dev == device && file.st_ino == inode;
}

bool Process::replaced() const
{
    return executable.ends_with(DELETED);
}

double Process::age() const
{
    return seconds(CLOCK_BOOTTIME) - static_cast<double>(started) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

std::chrono::system_clock::time_point Process::since() const
{
    using std::chrono::system_clock;

    return system_clock::now() -
           std::chrono::duration_cast<system_clock::duration>(std::chrono::duration<double>(age()));
}

bool Process::same(const Process& other) const
{
    return pid == other.pid && started == other.started;
}

std::optional<Process> read_process(pid_t pid)
{
    Process process;

    process.pid = pid;
    if (!read_stat(process)) {
        return std::nullopt;
    }
    read_status(process);
    read_executable(process);
    read_command(process);
    return process;
}

std::optional<std::string> start_variable(pid_t pid, const std::string& name)
{
    std::ifstream file(proc(pid, "environ"));

    if (!file) {
        return std::nullopt;
    }
    for (std::string variable; std::getline(file, variable, '\0');) {
        if (variable.starts_with(name + '=')) {
            return variable.substr(name.size() + 1);
        }
    }
    return "";
}

bool shares_numbers(pid_t pid)
{
    std::error_code hidden;
    const auto own = fs::read_symlink("/proc/self/ns/pid", hidden);
    const auto other = fs::read_symlink(proc(pid, "ns/pid"), hidden);

    return hidden || own == other;
}

std::vector<Process> read_processes()
{
    std::vector<std::string> names;
    std::vector<Process> processes;

    for (const auto& entry : fs::directory_iterator("/proc")) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    for (const auto& name : names) {
        pid_t pid = 0;
        const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
        if (error != std::errc() || *end != '\0') {
            continue;
        }
        if (auto process = read_process(pid)) {
            processes.push_back(std::move(*process));
        }
    }
    return processes;
}

std::optional<std::vector<pid_t>> main_thread_children(pid_t pid)
{
    std::ifstream file(proc(pid, "task/" + std::to_string(pid) + "/children"));
    std::vector<pid_t> children;

    if (!file) {
        return std::nullopt;
    }
    for (pid_t child = 0; file >> child;) {
        children.push_back(child);
    }
    return children;
}

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> list(texts.size() + 1, nullptr);

    std::transform(texts.begin(), texts.end(), list.begin(), [](std::string& text) { return text.data(); });
    return list;
}

Handle::Handle(const Process& process) : process_(process)
{
    /* Nothing that is asked for here can be meant for process 1, and 0 and less are groups. */
    if (process.pid <= 1) {
        throw std::invalid_argument("process " + std::to_string(process.pid) + " is none to be held");
    }
    fd_ = pidfd_open(process.pid, 0);
    /* The kernel calls one that is just being reaped invalid. */
    if (fd_ < 0 && errno != ESRCH && errno != EINVAL) {
        fail("process " + std::to_string(process.pid) + " cannot be held");
    }
    const auto now = read_process(process.pid);
    if (fd_ >= 0 && (!now || !now->same(process))) {
        close(fd_);
        fd_ = -1;
    }
}

Handle::~Handle()
{
    if (fd_ >= 0) {
        close(fd_);
    }
}

bool Handle::signal(int number) const
{
    const std::string name = "process " + std::to_string(process_.pid);

    if (ended(std::chrono::milliseconds(0))) {
        return false;
    }
    /* Held by the pidfd it cannot become another process, but it can run another program. */
    const auto now = read_process(process_.pid);
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
    if (!now->catches(number)) {
        throw std::runtime_error(name + " has no handler for signal " + std::to_string(number) + " and gets none");
    }
    if (pidfd_send_signal(fd_, number, nullptr, 0) != 0) {
        if (errno != ESRCH) {
            fail(name + " cannot be signalled");
        }
        return false;
    }
    return true;
}

bool Handle::ended(std::chrono::milliseconds limit) const
{
    pollfd poll_for = { fd_, POLLIN, 0 };

    return fd_ < 0 || poll(&poll_for, 1, static_cast<int>(limit.count())) > 0;
}

} // namespace monpctl
