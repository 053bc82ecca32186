/*
 * The texts that are looked for here are those of the monitor's own lines.
 */
#include "machine/log_history.h"

#include "common/installation.h"

#include "monp.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <fmt/format.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

constexpr std::string_view BEGIN = "****** Start Process Monitor ******";
constexpr std::string_view LOST = " records lost.";

/*
 * The number that a text ends with, but for what stands around it: "(status 3)." and "with status -1."
 */
std::optional<int> last_number(std::string_view text)
{
    int number = 0;

    text = text.substr(0, text.find_last_of("0123456789") + 1);
    text = text.substr(std::min(text.find_last_not_of("-0123456789") + 1, text.size()));
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

/*
 * The number behind an arrow, as in "action  -> 2".
 */
std::optional<int> arrow_number(std::string_view text, std::string_view name)
{
    return text.starts_with(name) ? last_number(text.substr(name.size())) : std::nullopt;
}

/*
 * The service that the text of an event names; empty if it names none.
 */
std::string_view named_service(std::string_view text)
{
    constexpr std::string_view MARK = "ervice "; /* at the beginning of the text or in it */
    const auto found = text.find(MARK);

    if (found == text.npos) {
        return {};
    }
    text.remove_prefix(found + MARK.size());
    text = text.substr(0, text.find(' '));
    return text.substr(0, text.size() - (text.ends_with('.') ? 1 : 0));
}

Time time_of(const LogLine& line)
{
    return parse_time(line.time).value_or(Time());
}

} // namespace

LogHistory::LogHistory(fs::path log) : log_(std::move(log)), follower_(log_) {}

void LogHistory::read_on()
{
    std::string text;

    while (follower_.next(text)) {
        lines_++;
        /* The collection thread runs programs, too, with lines of its own. */
        if (const auto line = parse_log_line(text); line && line->pid == line->thread) {
            take(*line);
        }
    }
}

/*
 * The entry of a process. One whose beginning is not told gets one of its own, as the daemon of an unknown start.
 */
LogHistory::Entry& LogHistory::entry_of(pid_t pid)
{
    const auto [owner, fresh] = owners_.try_emplace(pid, entries_.size());

    if (fresh) {
        Entry entry;
        entry.run.daemon = pid;
        entry.place = lines_;
        entries_.push_back(entry);
    }
    return entries_[owner->second];
}

void LogHistory::begin(const LogLine& line)
{
    Entry entry;

    entry.run.first = line.pid;
    entry.run.begun = time_of(line);
    entry.place = lines_;
    owners_[line.pid] = entries_.size();
    entries_.push_back(entry);
}

/*
 * The last run of a type whose first process has left no daemon that is known, and has not ended with a word either.
 */
const LogHistory::Entry* LogHistory::pending(const std::string& type) const
{
    for (auto entry = entries_.rbegin(); entry != entries_.rend(); ++entry) {
        const LoggedRun& run = entry->run;
        if (run.type == type && run.first != 0 && run.daemon == 0 && !run.exit_status) {
            return &*entry;
        }
    }
    return nullptr;
}

/*
 * The first line of a daemon, which it writes from the level info on.
 * Result: whether this is one.
 */
bool LogHistory::begin_daemon(const LogLine& line)
{
    if (line.function != "monp_startup_environment" || !line.text.starts_with("set MALLOC_CHECK_ ")) {
        return false;
    }
    const std::string type(text_value(line.text, "type").value_or(""));
    if (const Entry* first = pending(type); first != nullptr) {
        const auto index = static_cast<size_t>(first - entries_.data());
        entries_[index].run.daemon = line.pid;
        owners_[line.pid] = index;
    } else {
        owners_.erase(line.pid);
        entry_of(line.pid).run.type = type;
    }
    return true;
}

void LogHistory::take(const LogLine& line)
{
    if (line.text == BEGIN) {
        begin(line);
    } else if (line.text.starts_with("execv() failed. (")) {
        /* Of a child, which has no other line. */
        exec_refusals_[std::string(text_value(line.text, "type").value_or(""))] =
            number_value(line.text, "errno").value_or(0);
    } else if (!begin_daemon(line)) {
        Entry& entry = entry_of(line.pid);
        entry.run.daemon == line.pid ? take_daemon(entry, line) : take_first(entry, line);
        if (line.function == "main" && line.text.starts_with("end - (")) {
            entry.run.exit_status = number_value(line.text, "ret");
            entry.run.exit_time = time_of(line);
            owners_.erase(line.pid);
        } else if (line.text.ends_with(LOST)) {
            entry.run.lost += std::max(1, last_number(line.text).value_or(1));
        }
    }
}

void LogHistory::take_first(Entry& entry, const LogLine& line)
{
    LoggedRun& run = entry.run;

    if (line.function == "monp_getconfig" && line.text.starts_with("start - (")) {
        run.type = text_value(line.text, "type").value_or("");
    } else if (const auto action = arrow_number(line.text, "action  -> ")) {
        run.action = action;
    } else if (const auto limit = arrow_number(line.text, "restart -> ")) {
        run.restart_limit = limit;
    }
}

void LogHistory::take_daemon(Entry& entry, const LogLine& line)
{
    LoggedRun& run = entry.run;

    if (line.level == "event") {
        take_event(entry, line);
    } else if (line.function == "monp_sighandler1" && line.text.starts_with("catch signal. (")) {
        if (run.start && number_value(line.text, "sig") == SIGUSR1) {
            run.start->reported = true;
        }
    } else if (line.text.starts_with("recovery reached maximum. (")) {
        run.limit_reached = true;
    } else if (line.function == "monp_reload" && line.text.starts_with("monp_getconfig() failed. (")) {
        run.reload_failed = true;
    } else {
        take_service(entry, line);
    }
}

/*
 * Lines about one run of the service.
 */
void LogHistory::take_service(Entry& entry, const LogLine& line)
{
    LoggedRun& run = entry.run;
    const auto begins = [&](std::string_view text) { return line.text.starts_with(text); };

    if (line.function == "monp_create_process_svc" && begins("start - (")) {
        run.start = LoggedStart{ .time = time_of(line) };
        entry.pending_signal = entry.pending_refusal = 0;
    } else if (line.function == "monp_create_process_svc" && begins("end - (")) {
        if (run.start) {
            run.start->over = true;
        }
    } else if (begins("service process is found. (")) {
        if (run.start) {
            run.start->adopted = number_value(line.text, "pid").value_or(0);
            run.start->reported = true;
        }
    } else if (begins("throw exit signal. (")) {
        if (run.start) {
            run.start->exit_sent = true;
            run.start->killed = run.start->killed || number_value(line.text, "sig") == SIGKILL;
        }
    } else if (begins("process exited for ")) {
        entry.pending_signal = number_value(line.text, "sig").value_or(0);
    } else if ((begins("access() failed. (") && line.function == "monp_child_access") ||
               (begins("fork() failed. (") && line.function == "monp_child_fork")) {
        entry.pending_refusal = number_value(line.text, "errno").value_or(0);
    } else if (line.function == "monp_requestedend") {
        /* "process NAME killed. recover is 2." or "monitor term." No event tells of this end. */
        run.end = LoggedEnd{ .time = time_of(line),
                             .status = number_value(line.text, "stat").value_or(MONP_EXEC_PROCKILL),
                             .signal = entry.pending_signal,
                             .asked = true,
                             .killed = run.start && run.start->killed,
                             .adopted = run.start && run.start->adopted != 0 };
    }
}

void LogHistory::take_event(Entry& entry, const LogLine& line)
{
    LoggedRun& run = entry.run;
    int event = 0;
    const std::string_view number = line.text.substr(std::min<size_t>(1, line.text.size()));

    std::from_chars(number.data(), number.data() + number.size(), event);
    run.last_event = event;
    run.last_event_time = time_of(line);
    run.restarts += event == MONP_EVTID_ACT_RESTART ? 1 : 0;
    if (const auto name = named_service(line.text); !name.empty()) {
        run.name = name;
    }
    if (event != MONP_EVTID_FAIL_INIT && event != MONP_EVTID_FAIL_MON) {
        entry.pending_signal = entry.pending_refusal = 0;
        return;
    }
    LoggedEnd end = { .time = time_of(line),
                      .status = last_number(line.text).value_or(MONP_EXEC_PROCKILL),
                      .signal = entry.pending_signal,
                      .refused = entry.pending_refusal,
                      .before = event == MONP_EVTID_FAIL_INIT,
                      .killed = run.start && run.start->killed,
                      .adopted = run.start && run.start->adopted != 0 };
    if (const auto refusal = exec_refusals_.find(run.name); refusal != exec_refusals_.end()) {
        if (end.before && end.status == MONP_RET_FAIL_UNKNOWN) {
            end.refused = refusal->second;
        }
        exec_refusals_.erase(refusal);
    }
    run.failure = end;
    if (end.refused == 0) {
        run.end = end;
    }
}

std::string LogHistory::trouble() const
{
    return follower_.error() == 0
               ? ""
               : fmt::format("{} cannot be read: {}", log_.string(), std::strerror(follower_.error()));
}

RunRecords LogHistory::of_monitor(const std::string& type, pid_t pid, pid_t first) const
{
    const auto owner = owners_.find(pid);
    const Entry* own = owner == owners_.end() ? nullptr : &entries_[owner->second];
    const auto of_first = owners_.find(first);

    if (!trouble().empty()) {
        return { std::nullopt, trouble() };
    }
    if (own != nullptr && own->run.first != 0) {
        if (own->run.type != type && !own->run.type.empty()) {
            return { std::nullopt, "the records of its process number are those of another type" };
        }
        return { own->run, "" };
    }
    /* Below the level info a daemon does not tell its first process. */
    const Entry* begun = first != 0 && of_first != owners_.end() ? &entries_[of_first->second] : pending(type);
    if (begun == nullptr) {
        return { std::nullopt, "the log has no start of this monitor: it was rotated away, or could not be written" };
    }
    if (own == nullptr) {
        return { begun->run, "" };
    }
    if (own->place < begun->place || (!own->run.type.empty() && own->run.type != type)) {
        return { std::nullopt, "the log does not tell which records of its process number are its own" };
    }
    LoggedRun run = own->run;
    run.type = type;
    run.first = begun->run.first;
    run.begun = begun->run.begun;
    run.action = begun->run.action;
    run.restart_limit = begun->run.restart_limit;
    return { run, "" };
}

RunRecords LogHistory::last_of(const std::string& type, const std::string& name) const
{
    const auto of_type = [&](const Entry& entry) { return entry.run.type == type; };
    const auto found = std::ranges::find_if(entries_.rbegin(), entries_.rend(), of_type);

    if (!trouble().empty()) {
        return { std::nullopt, follower_.error() == ENOENT ? "" : trouble() };
    }
    if (found == entries_.rend()) {
        return {};
    }
    RunRecords records = { found->run, "" };
    if (records.run->daemon != 0 || records.run->exit_status) {
        return records;
    }
    /* The daemon did not tell its first process: it is the one that wrote about the type since. */
    for (const auto& entry : entries_) {
        const bool fits = entry.run.first == 0 && entry.run.type.empty() && entry.run.name == name && !name.empty();
        if (fits && entry.place > found->place) {
            records.run = entry.run;
            records.run->type = type;
            records.run->first = found->run.first;
            records.run->action = found->run.action;
            records.run->restart_limit = found->run.restart_limit;
        }
    }
    return records;
}

std::string log_trouble(const fs::path& log)
{
    struct statvfs system = {};
    const auto directory = log.parent_path();
    const auto there = [](const fs::path& path) { return access(path.c_str(), F_OK) == 0; };
    const fs::path place = there(log) ? log : there(directory) ? directory : directory.parent_path();

    if (!fs::is_directory(directory) && there(directory)) {
        return fmt::format("{} is not a directory", directory.string());
    }
    if (statvfs(place.c_str(), &system) != 0) {
        return errno == EACCES ? "" : fmt::format("{}: {}", place.string(), std::strerror(errno));
    }
    if ((system.f_flag & ST_RDONLY) != 0) {
        return fmt::format("the file system of {} is read-only", place.string());
    }
    if (system.f_bfree == 0 || (system.f_files > 0 && system.f_ffree == 0 && !there(log))) {
        return fmt::format("the file system of {} is full", place.string());
    }
    return "";
}

std::vector<std::string> telling_lines(Time since, std::vector<pid_t> processes)
{
    std::vector<std::string> lines;
    Follower follower(log_file());

    for (std::string text; follower.next(text);) {
        const auto line = parse_log_line(text);
        if (!line || parse_time(line->time) < since || std::ranges::find(processes, line->pid) == processes.end()) {
            continue;
        }
        if (line->level == "error" || line->level == "warning" || line->level == "event") {
            lines.push_back(text);
        }
        if (const auto child = number_value(line->text, "pid"); child && *child > 0) {
            processes.push_back(*child);
        }
    }
    return lines;
}

} // namespace monpctl
