/*
 * The command "log". All monitors share one log, and only some lines name a service, so a line belongs to the service
 * that its process has named: "(type=NAME" in most lines tells it, with the type's name on the command line or in its
 * section. What a process wrote before it named one is held back until then.
 */
#include "commands.h"
#include "follow.h"
#include "settings.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>

namespace monpctl {

namespace {

/* As monp-log(5) has them, the most severe first. */
constexpr std::array LEVELS = { "error", "warning", "info", "trace", "detail" };

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
    void take_of(const std::string& process, const std::string& text, const std::string& line);
    void print(const std::string& line) const;

    enum class Owner { unknown, ours, other };
    struct Process {
        Owner owner = Owner::unknown;
        std::vector<std::string> held;
    };

    std::vector<std::string> names_; /* empty: every service */
    std::vector<std::string> others_;
    size_t rank_ = LEVELS.size();
    bool all_levels_ = true;
    std::map<std::string, Process> processes_;
};

Filter::Filter(const LogOptions& given)
{
    if (!given.level.empty()) {
        all_levels_ = false;
        rank_ = rank_of(given.level);
    }
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

void Filter::take(const std::string& line)
{
    std::istringstream words(line);
    std::string time;
    std::string level;
    std::string process;

    words >> time >> level >> process;
    const bool record = process.find('/') != std::string::npos;
    if (!all_levels_ && (!record || (level != "event" && rank_of(level) > rank_))) {
        /* A line left out may still tell whose the process is. */
        if (names_.empty() || !record) {
            return;
        }
        level.clear();
    }
    if (names_.empty()) {
        print(line);
    } else if (record) {
        take_of(process.substr(0, process.find('/')), line, level.empty() ? "" : line);
    }
}

void Filter::take_of(const std::string& process, const std::string& text, const std::string& line)
{
    const std::string name = named_type(text);
    const auto is_in = [&](const auto& names) { return std::find(names.begin(), names.end(), name) != names.end(); };

    if (text.ends_with("****** Start Process Monitor ******")) {
        processes_.erase(process); /* its number is used again */
    }
    Process& own = processes_[process];
    if (!name.empty() && is_in(names_)) {
        own.owner = Owner::ours;
    } else if (!name.empty() && is_in(others_)) {
        own.owner = Owner::other;
    }
    if (!line.empty() && own.held.size() < HELD_LINES) {
        own.held.push_back(line);
    }
    if (own.owner == Owner::ours) {
        std::for_each(own.held.begin(), own.held.end(), [this](const auto& held) { print(held); });
    }
    if (own.owner != Owner::unknown) {
        own.held.clear();
    }
}

void Filter::print(const std::string& line) const
{
    std::cout << line << '\n';
}

} // namespace

int log(const LogOptions& given)
{
    if (!given.type.empty()) {
        require_known(given.type);
    }
    if (!given.level.empty() && rank_of(given.level) == LEVELS.size()) {
        throw Refusal("'" + given.level + "' is no level; there are error, warning, info, trace and detail");
    }
    Filter filter(given);

    for_each_line(home() + "/log/monp.log", false, given.follow, true,
                  [&](const std::string& line) { filter.take(line); });
    return 0;
}

} // namespace monpctl
