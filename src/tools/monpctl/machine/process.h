/*
 * Processes as /proc shows them, and signals that reach the process that was looked at, or none.
 */
#ifndef MONPCTL_PROCESS_H
#define MONPCTL_PROCESS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace monpctl {

/*
 * What is known of one process. What its owner hides from us stays empty.
 */
struct Process {
    pid_t pid = 0;
    pid_t parent = 0;
    uid_t user = 0;                 /* effective */
    char state = '?';               /* the kernel's letter: 'Z' for a zombie */
    unsigned long long started = 0; /* clock ticks after the boot */
    std::string executable;         /* where its exe link points, with " (deleted)" behind it once that file is gone */
    dev_t device = 0;               /* the file that it runs, wherever that is now */
    ino_t inode = 0;
    std::vector<std::string> command; /* argument vector */
    std::uint64_t caught = 0;         /* signals with a handler; bit 0 is signal 1 */
    std::uint64_t unharmful = 0;      /* signals that are blocked or ignored */

    [[nodiscard]] bool zombie() const;
    /* Whether it is held by a signal or a debugger. */
    [[nodiscard]] bool held() const;
    [[nodiscard]] bool catches(int signal) const;
    /* Whether it would die of a signal whose default is the end. */
    [[nodiscard]] bool dies_of(int signal) const;
    /* Whether it runs the program of this path, now or before that was removed; told by the path, as by the monitor. */
    [[nodiscard]] bool runs(const std::string& path) const;
    /* Whether it runs the file that is at this path now, by whatever name it was started. */
    [[nodiscard]] bool runs_file(const std::string& path) const;
    /* Whether the program that it runs has been removed or replaced on disk. */
    [[nodiscard]] bool replaced() const;
    /* When it started, by today's clock, and how many seconds ago. */
    [[nodiscard]] std::chrono::system_clock::time_point since() const;
    [[nodiscard]] double age() const;
    /* Whether the other one is this process, and not a later one of the same number or program. */
    [[nodiscard]] bool same(const Process& other) const;
};

/*
 * A process, or nothing if it has ended.
 */
std::optional<Process> read_process(pid_t pid);

/*
 * A variable of the environment that a process was started with; empty if it has none. Nothing if that is hidden from
 * us.
 */
std::optional<std::string> start_variable(pid_t pid, const std::string& name);

/*
 * Whether a process counts its processes as we do; as far as can be seen.
 */
bool shares_numbers(pid_t pid);

/*
 * All processes, in the order in which a monitor searches them: by the bytes of their numbers' texts.
 */
std::vector<Process> read_processes();

/*
 * The children that the main thread of a process has started, zombies included; nothing where the kernel does not tell.
 */
std::optional<std::vector<pid_t>> main_thread_children(pid_t pid);

/*
 * The pointers to texts that the system and the monitor's code take, ended by a null pointer; valid as long as the
 * texts.
 */
std::vector<char*> pointers(std::vector<std::string>& texts);

/*
 * A hold on one process that no reuse of its number can turn into a hold on another.
 */
class Handle {
public:
    /* Of a process that was looked at. It may have ended since, which is no error; other failures throw. */
    explicit Handle(const Process& process);
    ~Handle();
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    /*
     * Sends a signal that the process has a handler for, after checking that it runs the same program with the same
     * arguments since the same moment.
     * Result: false if it has ended. Throws if it has no handler, as the signal would kill it, if it has become another
     * program, and if the kernel refuses.
     */
    bool signal(int number) const;

    /* Waits for the end. Result: whether it has come. A zombie has ended. */
    [[nodiscard]] bool ended(std::chrono::milliseconds limit) const;

private:
    Process process_;
    int fd_ = -1; /* -1: it had ended before */
};

} // namespace monpctl

#endif
