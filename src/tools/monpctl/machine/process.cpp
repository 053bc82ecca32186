/*
 * Reads as few files of a process as the question needs, each with one open, one read and one close below the open
 * directory: a look at some thousand processes is made out of these.
 */
#include "machine/process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <system_error>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

constexpr std::string_view DELETED = " (deleted)";

/* A process's name in /proc has at most so many bytes. */
constexpr size_t NAME_LIMIT = 15;

/*
 * Takes the next word off a text.
 */
std::string_view take_word(std::string_view& text)
{
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(" \n"));

    text.remove_prefix(word.size());
    return word;
}

template <typename Number> bool read_number(std::string_view word, Number& number, int base = 10)
{
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number, base);

    return error == std::errc() && !word.empty() && end == word.data() + word.size();
}

/*
 * "pid (name) state parent ... started ... wait status", the 22nd word and the 52nd being the last two of these. The
 * name may hold anything.
 */
bool read_stat(std::string_view text, Process& process)
{
    constexpr int STARTED = 22;
    constexpr int WAIT_STATUS = 52;
    const auto name_end = text.rfind(')');
    int status = 0;

    if (name_end == text.npos) {
        return false;
    }
    text.remove_prefix(name_end + 1);
    const std::string_view state = take_word(text);
    if (state.empty() || !read_number(take_word(text), process.parent)) {
        return false;
    }
    process.state = state[0];
    for (int word = 5; word < STARTED; word++) {
        take_word(text);
    }
    if (!read_number(take_word(text), process.started)) {
        return false;
    }
    for (int word = STARTED + 1; word < WAIT_STATUS; word++) {
        take_word(text);
    }
    /* Hidden, it reads as 0, which others than root could take for a good end. */
    if (process.zombie() && read_number(take_word(text), status) && (status != 0 || geteuid() == 0)) {
        process.wait_status = status;
    }
    return true;
}

/*
 * The value of a line "Name: value" of a status file, without the blanks around it.
 */
std::string_view status_value(std::string_view status, std::string_view name)
{
    for (auto found = status.find(name); found != status.npos; found = status.find(name, found + 1)) {
        if ((found == 0 || status[found - 1] == '\n') && status.substr(found + name.size()).starts_with(':')) {
            std::string_view line = status.substr(found + name.size() + 1);
            line = line.substr(0, line.find('\n'));
            line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
            return line;
        }
    }
    return {};
}

void read_status(std::string_view status, Process& process)
{
    std::string_view users = status_value(status, "Uid"); /* the real one, then the effective one */

    users.remove_prefix(std::min(users.find('\t'), users.size() - 1) + (users.empty() ? 0 : 1));
    read_number(users.substr(0, users.find('\t')), process.user);
    read_number(status_value(status, "SigCgt"), process.caught, 16);
    read_number(status_value(status, "SigBlk"), process.blocked, 16);
    read_number(status_value(status, "SigIgn"), process.ignored, 16);
}

/*
 * Texts that are each ended by a zero byte.
 */
std::vector<std::string> split(std::string_view text)
{
    std::vector<std::string> words;

    while (!text.empty()) {
        const auto end = text.find('\0');
        words.emplace_back(text.substr(0, end));
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
    }
    return words;
}

std::string resolved(const std::string& path)
{
    std::error_code missing;

    return path.empty() ? "" : fs::weakly_canonical(path, missing).string();
}

/*
 * Whether an exe link shows a resolved path, now or before it was removed.
 */
bool shows(const std::string& executable, const std::string& path)
{
    /* No path and a link that cannot be read would be equal. */
    return !path.empty() && executable.starts_with(path) &&
           (executable.size() == path.size() || std::string_view(executable).substr(path.size()) == DELETED);
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

bool Process::runs(const std::string& path) const
{
    return shows(executable, resolved(path));
}

bool Process::runs_file(const std::string& path) const
{
    struct stat file = {};

    return inode != 0 && stat(path.c_str(), &file) == 0 && file.st_dev == device && file.st_ino == inode;
}

bool Process::replaced() const
{
    return executable.ends_with(DELETED);
}

double Process::started_seconds() const
{
    return static_cast<double>(started) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double Process::age() const
{
    return uptime() - started_seconds();
}

Time Process::since() const
{
    using std::chrono::system_clock;

    return system_clock::now() -
           std::chrono::duration_cast<system_clock::duration>(std::chrono::duration<double>(age()));
}

bool Process::same(const Process& other) const
{
    return pid == other.pid && started == other.started;
}

double uptime()
{
    timespec now = {};

    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

Proc::Proc(const fs::path& root) : root_(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (!root_) {
        throw std::system_error(errno, std::generic_category(), root.string());
    }
}

std::optional<std::string> Proc::content(pid_t pid, const std::string& file) const
{
    const UniqueFd fd(openat(root_.get(), fmt::format("{}/{}", pid, file).c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> piece = {};
    std::string text;

    if (!fd) {
        return std::nullopt;
    }
    opened_++;
    for (;;) {
        const ssize_t length = ::read(fd.get(), piece.data(), piece.size());
        if (length < 0) {
            return std::nullopt;
        }
        if (length == 0) {
            return text;
        }
        text.append(piece.data(), static_cast<size_t>(length));
    }
}

std::string Proc::link(pid_t pid, const char* name) const
{
    std::array<char, PATH_MAX> target = {};
    const ssize_t length =
        readlinkat(root_.get(), fmt::format("{}/{}", pid, name).c_str(), target.data(), target.size());

    return { target.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)) };
}

bool Proc::executable_file(pid_t pid, dev_t& device, ino_t& inode) const
{
    struct stat file = {};

    if (fstatat(root_.get(), fmt::format("{}/exe", pid).c_str(), &file, 0) != 0) {
        return false;
    }
    device = file.st_dev;
    inode = file.st_ino;
    return true;
}

std::optional<Process> Proc::read(pid_t pid) const
{
    const auto stat = content(pid, "stat");
    Process process;

    process.pid = pid;
    if (!stat || !read_stat(*stat, process)) {
        return std::nullopt;
    }
    read_status(content(pid, "status").value_or(""), process);
    process.executable = link(pid, "exe");
    executable_file(pid, process.device, process.inode);
    process.command = split(content(pid, "cmdline").value_or(""));
    return process;
}

std::optional<std::string> Proc::start_variable(pid_t pid, const std::string& name) const
{
    const auto environment = content(pid, "environ");

    if (!environment) {
        return std::nullopt;
    }
    for (const auto& variable : split(*environment)) {
        if (variable.starts_with(name + '=')) {
            return variable.substr(name.size() + 1);
        }
    }
    return "";
}

bool Proc::shares_numbers(pid_t pid) const
{
    const std::string own = link(getpid(), "ns/pid");
    const std::string other = link(pid, "ns/pid");

    return own.empty() || other.empty() || own == other;
}

std::optional<std::vector<pid_t>> Proc::main_thread_children(pid_t pid) const
{
    const auto text = content(pid, fmt::format("task/{}/children", pid));
    std::vector<pid_t> children;
    pid_t child = 0;

    if (!text) {
        return std::nullopt;
    }
    for (std::string_view rest = *text; read_number(take_word(rest), child);) {
        children.push_back(child);
    }
    return children;
}

std::vector<pid_t> Proc::numbers_in(const std::string& directory) const
{
    const std::unique_ptr<DIR, int (*)(DIR*)> open_directory(
        fdopendir(openat(root_.get(), directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), closedir);
    std::vector<std::string> names;
    std::vector<pid_t> numbers;
    pid_t number = 0;

    while (const dirent* entry = open_directory ? readdir(open_directory.get()) : nullptr) {
        if (read_number(std::string_view(entry->d_name), number)) {
            names.emplace_back(entry->d_name);
        }
    }
    std::ranges::sort(names);
    for (const auto& name : names) {
        read_number(std::string_view(name), number);
        numbers.push_back(number);
    }
    return numbers;
}

std::vector<pid_t> Proc::numbers() const
{
    return numbers_in(".");
}

std::vector<pid_t> Proc::threads(pid_t pid) const
{
    auto threads = numbers_in(fmt::format("{}/task", pid));

    std::ranges::partition(threads, [pid](pid_t thread) { return thread == pid; });
    return threads;
}

std::size_t Proc::opened() const
{
    return opened_;
}

ProcessTable::ProcessTable(const Proc& proc) : proc_(proc)
{
    for (const pid_t pid : proc.numbers()) {
        Entry entry = { pid, proc.link(pid, "exe"), 0, 0 };
        if (!entry.executable.empty()) {
            proc.executable_file(pid, entry.device, entry.inode);
        }
        entries_.push_back(std::move(entry));
    }
}

std::optional<Process> ProcessTable::find(pid_t pid) const
{
    return proc_.read(pid);
}

std::vector<Process> ProcessTable::running(const std::string& path) const
{
    const std::string wanted = resolved(path);
    std::vector<Process> processes;

    for (const auto& entry : entries_) {
        if (shows(entry.executable, wanted)) {
            if (auto process = proc_.read(entry.pid)) {
                processes.push_back(std::move(*process));
            }
        }
    }
    return processes;
}

std::vector<Process> ProcessTable::candidates(const std::string& program) const
{
    const std::string wanted = resolved(program);
    const std::string name = fs::path(program).filename().string().substr(0, NAME_LIMIT) + '\n';
    struct stat file = {};
    std::vector<Process> processes;
    const bool there = stat(program.c_str(), &file) == 0;

    for (const auto& entry : entries_) {
        const bool same_file = there && entry.inode == file.st_ino && entry.device == file.st_dev;
        /* A program that was renamed since keeps its name in the process, and one that is hidden shows no other. */
        if (same_file || shows(entry.executable, wanted) || proc_.content(entry.pid, "comm") == name) {
            if (auto process = proc_.read(entry.pid)) {
                processes.push_back(std::move(*process));
            }
        }
    }
    return processes;
}

bool ProcessTable::descends_from(const Process& process, pid_t ancestor) const
{
    std::optional<Process> one = process;

    while (one && one->pid != ancestor) {
        one = one->parent > 0 ? proc_.read(one->parent) : std::nullopt;
    }
    return one.has_value();
}

std::vector<Process> ProcessTable::children(pid_t parent) const
{
    std::vector<Process> processes;

    for (const auto& entry : entries_) {
        auto process = proc_.read(entry.pid);
        if (process && process->parent == parent) {
            processes.push_back(std::move(*process));
        }
    }
    return processes;
}

const Proc& ProcessTable::proc() const
{
    return proc_;
}

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> list(texts.size() + 1, nullptr);

    std::ranges::transform(texts, list.begin(), [](std::string& text) { return text.data(); });
    return list;
}

} // namespace monpctl
