/*
 * The texts that are looked for here are those of the monitor's own lines.
 */
#include "machine/history.h"

#include "common/installation.h"

#include "monp.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sstream>
#include <string_view>

namespace monpctl {

namespace {

/* The function that starts the service, and other lines about it. */
constexpr std::string_view START_FUNCTION = "monp_create_process_svc";
constexpr std::string_view ADOPTED = "service process is found. (";
constexpr std::string_view CAUGHT = "catch signal. (";
constexpr std::string_view EXIT_SENT = "throw exit signal. (";

/*
 * Whether a line is one of these processes, by the text before and behind their number: most lines are not, and there
 * may be a hundred thousand.
 */
bool is_of(const std::string& line, const std::set<pid_t>& processes, const char* before, char behind)
{
    return std::any_of(processes.begin(), processes.end(),
                       [&](pid_t pid) { return line.find(before + std::to_string(pid) + behind) != line.npos; });
}

/*
 * The number behind a key of a line, such as "pid=".
 */
pid_t number_behind(const std::string& text, const std::string& key)
{
    const auto found = text.find(key);

    return found == std::string::npos ? 0 : std::atoi(text.c_str() + found + key.size());
}

} // namespace

Time parse_time(const std::string& text)
{
    std::tm fields = {};
    int micro = 0;
    char sign = '+';
    int hours = 0;
    int minutes = 0;

    /* NOLINTNEXTLINE(cert-err34-c): the count tells whether all of it was read */
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%6d%c%2d%2d", &fields.tm_year, &fields.tm_mon,
                    &fields.tm_mday, &fields.tm_hour, &fields.tm_min, &fields.tm_sec, &micro, &sign, &hours,
                    &minutes) != 10) {
        return {};
    }
    fields.tm_year -= 1900;
    fields.tm_mon -= 1;
    const int offset = (hours * 60 + minutes) * 60 * (sign == '-' ? -1 : 1);
    return std::chrono::system_clock::from_time_t(timegm(&fields) - offset) + std::chrono::microseconds(micro);
}

std::optional<LogLine> parse_log_line(const std::string& line)
{
    LogLine parsed;
    std::istringstream words(line);
    std::string time;
    std::string skipped;
    char slash = 0;

    words >> time >> parsed.level >> parsed.pid >> slash >> parsed.thread >> skipped >> parsed.function >> skipped;
    if (!words || slash != '/') {
        return std::nullopt;
    }
    parsed.time = parse_time(time);
    std::getline(words.ignore(), parsed.text);
    return parsed;
}

bool in_life_of(const Process& process, Time time)
{
    /* The clock may have been set a little since; nobody's number comes back within a second. */
    return time >= process.since() - std::chrono::seconds(1);
}

void Journal::begin()
{
    log_ = std::make_unique<Follower>(log_file(), true);
    events_file_ = std::make_unique<Follower>(events_file(), true);
    starts_.clear();
    events_.clear();
}

void Journal::read_on(const std::set<pid_t>& monitors)
{
    EventReader reader("");
    std::string line;

    if (!log_ || !std::includes(monitors_.begin(), monitors_.end(), monitors.begin(), monitors.end())) {
        begin();
    }
    monitors_ = monitors;
    while (log_->next(line)) {
        if (!is_of(line, monitors, " ", '/')) {
            continue;
        }
        if (const auto parsed = parse_log_line(line)) {
            take(*parsed);
        }
    }
    while (events_file_->next(line)) {
        if (!is_of(line, monitors, "\"pid\":", ',')) {
            continue;
        }
        if (auto event = reader.read(line); event && event->id != 0) {
            events_.push_back(std::move(*event));
        }
    }
}

/*
 * The collection thread runs programs, too, with lines of its own.
 */
void Journal::take(const LogLine& line)
{
    const auto begins = [&](std::string_view text) { return line.text.starts_with(text); };
    Start& start = starts_[line.pid];

    if (line.pid != line.thread) {
        return;
    }
    if (line.function == START_FUNCTION && begins("start - (")) {
        start = Start();
        start.known = true;
        start.time = line.time;
    } else if (line.function == START_FUNCTION && begins("end - (")) {
        start.over = true;
    } else if (begins(ADOPTED)) {
        start.adopted = number_behind(line.text, "pid=");
        start.reported = true;
    } else if (line.function == "monp_sighandler1" && begins(CAUGHT) && line.text.ends_with(" sig=10)")) {
        start.reported = true;
    } else if (begins(EXIT_SENT) && !start.exit_sent) {
        start.exit_sent = true;
        start.exit_time = line.time;
    }
}

Start Journal::start_of(const Process& monitor) const
{
    const auto found = starts_.find(monitor.pid);

    return found == starts_.end() || !in_life_of(monitor, found->second.time) ? Start() : found->second;
}

Record Journal::record_of(const Process& monitor) const
{
    Record record;

    for (const auto& event : events_) {
        const Time time = parse_time(event.time);
        if (event.monitor != monitor.pid || !in_life_of(monitor, time)) {
            continue;
        }
        record.last_event = event.id;
        record.last_event_time = time;
        record.restarts += event.id == MONP_EVTID_ACT_RESTART ? 1 : 0;
        if (event.id == MONP_EVTID_FAIL_INIT || event.id == MONP_EVTID_FAIL_MON) {
            record.last_status = event.status;
        }
    }
    return record;
}

std::vector<std::string> telling_lines(Time since, std::set<pid_t> processes)
{
    std::vector<std::string> lines;
    Follower follower(log_file(), true);

    for (std::string text; follower.next(text);) {
        const auto line = parse_log_line(text);
        if (!line || line->time < since || !processes.contains(line->pid)) {
            continue;
        }
        if (line->level == "error" || line->level == "warning" || line->level == "event") {
            lines.push_back(text);
        }
        if (const pid_t child = number_behind(line->text, " pid="); child > 0) {
            processes.insert(child);
        }
    }
    return lines;
}

} // namespace monpctl
