#include "machine/monitors.h"

#include "common/installation.h"
#include "policy/monitor_log.h"

#include "monp.h"
#include "tesk_home.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>
#include <set>
#include <tuple>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

/*
 * Fills in what a command line says, read by the monitor's own parser.
 * Result: whether it is one that a monitor runs with.
 */
bool read_command(RunningMonitor& monitor)
{
    std::vector<std::string> words = monitor.process.command;

    gmonpparam = {};
    gbmonpnostart = 0;
    const int result =
        words.empty() ? MONP_RET_FAIL_PARAM : monp_getopt(static_cast<int>(words.size()), pointers(words).data());
    take_monitor_lines();
    if (result != MONP_RET_SUCCESS) {
        return false;
    }
    monitor.type = gmonpparam.type;
    monitor.no_start = gbmonpnostart != 0;
    words.erase(words.begin());
    words.erase(std::ranges::find(words, "--" + monitor.type));
    monitor.options = words;
    return true;
}

/*
 * Whether a process was started as the monitor of this installation, though its program bears another name by now, as
 * after a replacement by renaming. Others than root could call any program so.
 */
bool was_started_as(const Process& process, const std::string& program)
{
    std::error_code missing;

    return process.user == 0 && !process.executable.empty() && process.command.front().starts_with('/') &&
           fs::weakly_canonical(process.command.front(), missing) == fs::weakly_canonical(program, missing);
}

/*
 * Whether a process is a monitor as far as can be seen: others than root see no process of root's clearly.
 */
bool runs_monitor(const Process& process, const std::string& program)
{
    if (process.zombie() || process.command.empty()) {
        return false;
    }
    const bool hidden =
        process.executable.empty() && fs::path(process.command.front()).filename() == fs::path(program).filename();

    return hidden || process.runs_file(program) || process.runs(program) || was_started_as(process, program);
}

/*
 * Whether a monitor works for our home directory, and not inside a container. What is hidden may be ours.
 */
bool is_ours(const Process& process, const Proc& proc)
{
    return proc.shares_numbers(process.pid) &&
           same_home(proc.start_variable(process.pid, gtesk_homevariable).value_or(home()));
}

} // namespace

std::vector<RunningMonitor> find_monitors(const ProcessTable& processes)
{
    const std::string program = monitor_program();
    std::map<pid_t, RunningMonitor> found;
    std::set<pid_t> dropped;
    std::vector<RunningMonitor> monitors;

    for (const auto& process : processes.candidates(program)) {
        RunningMonitor monitor;
        monitor.process = process;
        monitor.set_up = process.catches(SIGUSR2) && process.catches(SIGHUP);
        monitor.replaced = !process.executable.empty() && !process.runs_file(program);
        if (runs_monitor(process, program) && is_ours(process, processes.proc()) && read_command(monitor)) {
            found[process.pid] = monitor;
        }
    }
    for (auto& [pid, monitor] : found) {
        const auto parent = found.find(monitor.process.parent);
        if (parent == found.end() || parent->second.process.command != monitor.process.command) {
            continue;
        }
        monitor.launching = !parent->second.set_up;
        monitor.first = monitor.launching ? parent->first : 0;
        dropped.insert(monitor.launching ? parent->first : pid);
    }
    for (const auto& [pid, monitor] : found) {
        if (!dropped.contains(pid)) {
            monitors.push_back(monitor);
        }
    }
    std::ranges::sort(monitors, {}, [](const RunningMonitor& one) { return std::tuple(one.type, one.process.pid); });
    return monitors;
}

} // namespace monpctl
