/*
 * The command "log". All monitors share one log, and only some lines name a service, so a line belongs to the service
 * that its process has named: "(type=NAME" in most lines tells it, with the type's name on the command line or in its
 * section. What a process wrote before it named one is held back until then.
 */
#include "commands/commands.h"
#include "common/installation.h"
#include "common/refusal.h"
#include "machine/follow.h"
#include "policy/settings.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <map>
#include <sstream>

namespace monpctl {

namespace {

/* The words of monp-log(5), the most severe first; events are kept at every level. */
constexpr std::array LEVELS = { "event", "error", "warning", "info", "trace", "detail" };

size_t rank_of(const std::string& level)
{
    return static_cast<size_t>(std::find(LEVELS.begin(), LEVELS.end(), level) - LEVELS.begin());
}

/* Of a process that does not name a service. */
constexpr size_t HELD_LINES = 200;

class Filter {
public:
    explicit Filter(const LogOptions& given);
    void take(const std::string& line);

private:
    /* What is known of a process, and what it wrote before anything was. */
    enum class Owner { unknown, ours, other };
    struct Process {
        Owner owner = Owner::unknown;
        std::vector<std::string> held;
    };
    Process& process_of(const std::string& number, const std::string& line);

    std::vector<std::string> names_;  /* of the service; empty: every service */
    std::vector<std::string> others_; /* of the other services */
    size_t rank_;                     /* of the least severe level */
    std::map<std::string, Process> processes_;
};

Filter::Filter(const LogOptions& given) : rank_(rank_of(given.level.empty() ? LEVELS.back() : given.level))
{
    if (given.type.empty()) {
        return;
    }
    names_ = names_of(given.type);
    for (const auto& type : known_types()) {
        const auto names = type == given.type ? std::vector<std::string>() : names_of(type);
        others_.insert(others_.end(), names.begin(), names.end());
    }
}

/*
 * The name behind the first "(type=" of a text; empty without one.
 */
std::string named_type(const std::string& text)
{
    constexpr std::string_view MARK = "(type=";
    const auto mark = text.find(MARK);

    if (mark == std::string::npos) {
        return "";
    }
    const auto begin = mark + MARK.size();
    return text.substr(begin, text.find_first_of(" )", begin) - begin);
}

/*
 * The process of a line, which may tell whose it is.
 */
Filter::Process& Filter::process_of(const std::string& number, const std::string& line)
{
    const std::string name = named_type(line);
    const auto is_in = [&](const auto& names) { return std::find(names.begin(), names.end(), name) != names.end(); };

    if (line.ends_with("****** Start Process Monitor ******")) {
        processes_.erase(number); /* it is used again */
    }
    Process& process = processes_[number];
    if (is_in(names_)) {
        process.owner = Owner::ours;
    } else if (is_in(others_)) {
        process.owner = Owner::other;
    }
    return process;
}

void Filter::take(const std::string& line)
{
    std::istringstream words(line);
    std::string time;
    std::string level;
    std::string number;

    words >> time >> level >> number; /* the last with the thread behind a slash */
    const bool kept = rank_of(level) <= rank_;
    if (names_.empty()) {
        /* What is no record, such as one that a full disk has cut, has no level that it could be left out for. */
        if (kept || rank_ == LEVELS.size() - 1) {
            std::cout << line << '\n';
        }
        return;
    }
    if (rank_of(level) == LEVELS.size()) {
        return;
    }
    Process& process = process_of(number.substr(0, number.find('/')), line);
    if (kept && process.held.size() < HELD_LINES) {
        process.held.push_back(line);
    }
    if (process.owner == Owner::ours) {
        std::for_each(process.held.begin(), process.held.end(), [](const auto& held) { std::cout << held << '\n'; });
    }
    if (process.owner != Owner::unknown) {
        process.held.clear();
    }
}

} // namespace

int log(const LogOptions& given)
{
    if (!given.type.empty()) {
        require_known(given.type);
    }
    if (!given.level.empty() && rank_of(given.level) == LEVELS.size()) {
        throw Refusal("'" + given.level + "' is no level; there are event, error, warning, info, trace and detail");
    }
    Filter filter(given);

    for_each_line(log_file(), { .from = FollowFrom::newest, .follow = given.follow, .needed = true },
                  [&](const std::string& line) { filter.take(line); });
    return 0;
}

} // namespace monpctl
