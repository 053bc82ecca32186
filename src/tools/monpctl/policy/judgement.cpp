#include "policy/judgement.h"

#include "monp_run.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

/* Of packaging/monp@.service, for a start and for an end; monpctl waits a bit longer than the policy says. */
constexpr int UNIT_SECONDS = 120;
constexpr int UNIT_SPARE = 10;

/*
 * Reports a setting at its place. One that nobody has given is reported as missing already.
 */
void judge(Settings& settings, const std::string& name, Severity severity, const std::string& sentence)
{
    for (const auto& setting : settings.explained) {
        if (setting.name == name && setting.given()) {
            settings.problems.push_back({ .place = setting.place, .severity = severity, .sentence = sentence });
        }
    }
}

/*
 * The unit of systemd waits for a limited time. An end may be asked for while the service starts.
 */
void judge_unit(const std::string& own, Settings& settings)
{
    const auto exceeds = [](long seconds) { return seconds > UNIT_SECONDS - UNIT_SPARE; };
    const long end = static_cast<long>(settings.init_seconds) + settings.wait_seconds;

    if (exceeds(settings.init_seconds)) {
        judge(settings, own + "child_timeout", Severity::note,
              fmt::format("child_timeout is {} seconds, more than the unit monp@.service waits for; raise its "
                          "TimeoutStartSec",
                          settings.init_seconds));
    }
    if (settings.wait_seconds > 0 && exceeds(end)) {
        judge(settings, own + "waittime", Severity::note,
              fmt::format("child_timeout and waittime are {} seconds together, more than the unit monp@.service waits "
                          "for; raise its TimeoutStopSec",
                          end));
    }
}

/*
 * The monitor takes an empty text for any of these, and then cannot do what the key is for.
 */
void judge_empty_texts(Settings& settings)
{
    const struct {
        std::string name;
        std::string consequence;
    } rows[] = {
        { "all/path", "programs are looked for below /" },
        { "monp/type", "the collector and the recovery commands are not told the monitor's name" },
        { settings.type + "/type", "lines and events of the log do not name the service" },
        { settings.type + "/path", "each start fails, and the monitor waits" },
        { "monp/elog/path", "no error logs are collected" },
        { "monp/elog/arcpath", "the collector is not told where the archive goes" },
    };

    for (const auto& row : rows) {
        const auto found = std::ranges::find(settings.explained, row.name, &Setting::name);
        if (found != settings.explained.end() && (found->value.empty() || found->value == "/")) {
            judge(settings, row.name, Severity::warning, fmt::format("{} is empty; {}", row.name, row.consequence));
        }
    }
}

void judge_action(const std::string& own, Settings& settings)
{
    const size_t before = settings.problems.size();

    if (gmonprecover[monp_findrow(settings.action)].action == 0) {
        judge(settings, own + "action", Severity::error,
              fmt::format("the action {} is none of 1 to 5; the monitor ends with status 4 when the service has ended",
                          settings.action));
        mark_start_only(settings, before);
    }
    if (settings.action == MONP_ACT_RESTART && settings.restart_limit <= 0) {
        judge(settings, own + "restarttime", Severity::warning,
              fmt::format("restarttime is {}; the service is restarted without limit", settings.restart_limit));
    }
}

} // namespace

void mark_start_only(Settings& settings, size_t first)
{
    for (size_t i = first; i < settings.problems.size(); i++) {
        settings.problems[i].start_only = true;
    }
}

void judge_values(Settings& settings)
{
    const std::string own = fmt::format("monp/service/{}/", settings.type);

    judge_empty_texts(settings);
    judge_action(own, settings);
    if (settings.wait_seconds <= 0) {
        judge(settings, own + "waittime", Severity::note,
              fmt::format("waittime is {}; a service that does not end is never killed", settings.wait_seconds));
    }
    if (settings.parent_init_seconds < settings.init_seconds) {
        judge(settings, own + "parent_timeout", Severity::note,
              "parent_timeout is less than child_timeout; a start may return before the service has reported");
    }
    judge_unit(own, settings);
    if (monp_isdummy() != 0) {
        judge(settings, "dummyconf", Severity::note,
              fmt::format("a dummy configuration; the service {} is not started", settings.type));
    }
    if (monp_isdisabled() != 0) {
        judge(settings, settings.type + "/use", Severity::note, "use is 0; the service is not started");
    }
}

void judge_directories(Settings& settings)
{
    const auto need = [&](const std::string& name, const fs::path& directory, const std::string& consequence) {
        if (std::error_code error; !fs::is_directory(directory, error)) {
            judge(settings, name, Severity::warning,
                  fmt::format("{} is not a directory; {}", directory.string(), consequence));
        }
    };

    if (settings.install.starts_with('/')) {
        need("all/path", settings.install + "bin", "the monitor and its service stay where they were started");
    } else {
        judge(settings, "all/path", Severity::warning, "all/path is not an absolute path; no program is found");
    }
    if (!settings.lock_file.empty()) {
        need("pm/lockf", fs::path(settings.lock_file).parent_path(), "there can be no lock file");
    }
    if (!settings.marker_file.empty()) {
        /* The monitor makes the marker's own directory, but not the one above. */
        need("monp/md/dirpath", fs::path(settings.marker_file).parent_path().parent_path(),
             "there can be no marker file");
    }
}

void judge_empty_command(const Place& place, const std::string& consequence, Severity severity, Settings& settings)
{
    if (place.line > 0) {
        settings.problems.push_back(
            { .place = place, .severity = severity, .sentence = "path is empty; " + consequence });
    }
}

} // namespace monpctl
