/*
 * Processes as /proc shows them.
 */
#ifndef MONPCTL_PROCESS_H
#define MONPCTL_PROCESS_H

#include "common/time_text.h"
#include "common/unique_fd.h"

#include <cstdint>
#include <filesystem>
#include <functional>
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
    std::optional<int> wait_status; /* of a zombie, as of waitpid; missing where it is hidden */
    std::string executable;         /* where its exe link points, with " (deleted)" behind it once that file is gone */
    dev_t device = 0;               /* the file that it runs, wherever that is now */
    ino_t inode = 0;
    std::vector<std::string> command; /* argument vector */
    std::uint64_t caught = 0;         /* signals with a handler; bit 0 is signal 1 */
    std::uint64_t blocked = 0;        /* by its main thread */
    std::uint64_t ignored = 0;

    [[nodiscard]] bool zombie() const;
    /* Whether it is held by a signal or a debugger. */
    [[nodiscard]] bool held() const;
    [[nodiscard]] bool catches(int signal) const;
    /* Whether it runs the program of this path, now or before that was removed; told by the path, as by the monitor. */
    [[nodiscard]] bool runs(const std::string& path) const;
    /* Whether it runs the file that is at this path now, by whatever name it was started. */
    [[nodiscard]] bool runs_file(const std::string& path) const;
    /* Whether the program that it runs has been removed or replaced on disk. */
    [[nodiscard]] bool replaced() const;
    /* When it started: seconds after the boot, how many seconds ago, and by today's clock. */
    [[nodiscard]] double started_seconds() const;
    [[nodiscard]] double age() const;
    [[nodiscard]] Time since() const;
    /* Whether the other one is this process, and not a later one of the same number. */
    [[nodiscard]] bool same(const Process& other) const;
};

/*
 * Seconds since the boot, those of a suspended machine included: the clock of the processes' start times, which nobody
 * sets.
 */
double uptime();

/*
 * The directory of processes: /proc, or for a test one that looks like it.
 */
class Proc {
public:
    /* Throws a system_error if there is none. */
    explicit Proc(const std::filesystem::path& root = "/proc");

    /* A process with all that is known of it, or nothing if it has ended. */
    [[nodiscard]] std::optional<Process> read(pid_t pid) const;

    /*
     * A variable of the environment that a process was started with; empty if it has none. Nothing if that is hidden
     * from us.
     */
    [[nodiscard]] std::optional<std::string> start_variable(pid_t pid, const std::string& name) const;

    /* Whether a process counts its processes as we do; as far as can be seen. */
    [[nodiscard]] bool shares_numbers(pid_t pid) const;

    /*
     * The children that the main thread of a process has started, zombies included; nothing where the kernel does not
     * tell.
     */
    [[nodiscard]] std::optional<std::vector<pid_t>> main_thread_children(pid_t pid) const;

    /* The threads of a process, its main thread first; none if it has ended. */
    [[nodiscard]] std::vector<pid_t> threads(pid_t pid) const;

    /* The whole of a file below a process's directory; nothing if it cannot be read. */
    [[nodiscard]] std::optional<std::string> content(pid_t pid, const std::string& file) const;

    /* The target of a link below a process's directory; empty if it cannot be read. */
    [[nodiscard]] std::string link(pid_t pid, const char* name) const;

    /* The numbers of all processes, in the order in which a monitor searches them: by the bytes of their texts. */
    [[nodiscard]] std::vector<pid_t> numbers() const;

    /* The file that a process runs. Result: whether that is visible; otherwise both stay as they are. */
    bool executable_file(pid_t pid, dev_t& device, ino_t& inode) const;

    /* Files that were opened so far: what a look at the machine costs is mostly these. */
    [[nodiscard]] std::size_t opened() const;

private:
    /* The names in a directory that are numbers, by their bytes. */
    [[nodiscard]] std::vector<pid_t> numbers_in(const std::string& directory) const;

    UniqueFd root_;
    mutable std::size_t opened_ = 0;
};

/*
 * All processes at one moment, of which no more is read than is asked for: a machine has thousands, and we want few.
 */
class ProcessTable {
public:
    explicit ProcessTable(const Proc& proc);

    /* One process, or nothing if it has ended. */
    [[nodiscard]] std::optional<Process> find(pid_t pid) const;

    /*
     * Those that run a program, in the order of the search: by the path, now or before it was removed.
     *   path  of the executable; an empty one, or one that cannot be resolved, is run by none
     */
    [[nodiscard]] std::vector<Process> running(const std::string& path) const;

    /*
     * Those that may run a program under whatever name: its file, its path, or any program of that file name, and those
     * of others that hide their program but bear its name.
     */
    [[nodiscard]] std::vector<Process> candidates(const std::string& program) const;

    /* Whether a process is another one or descends from it. */
    [[nodiscard]] bool descends_from(const Process& process, pid_t ancestor) const;

    /* Those with this parent. */
    [[nodiscard]] std::vector<Process> children(pid_t parent) const;

    [[nodiscard]] const Proc& proc() const;

private:
    struct Entry {
        pid_t pid;
        std::string executable;
        dev_t device;
        ino_t inode;
    };

    const Proc& proc_;
    std::vector<Entry> entries_;
};

/*
 * The pointers to texts that the system and the monitor's code take, ended by a null pointer; valid as long as the
 * texts.
 */
std::vector<char*> pointers(std::vector<std::string>& texts);

} // namespace monpctl

#endif
