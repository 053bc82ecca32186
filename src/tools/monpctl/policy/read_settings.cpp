/*
 * The settings of one monitor, formed by the monitor's own code in the monitor's own records, which this program has to
 * itself.
 */
#include "policy/settings.h"

#include "common/text.h"
#include "policy/monitor_log.h"
#include "policy/policy.h"
#include "policy/programs.h"

#include "monp_command.h"
#include "monp_mdfile.h"
#include "monp_run.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <iterator>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

constexpr const char* COMMAND_LINE = "command line";
constexpr const char* FORMED = "formed";

/* Of packaging/monp@.service, for a start and for an end; monpctl waits a bit longer than the policy says. */
constexpr int UNIT_SECONDS = 120;
constexpr int UNIT_SPARE = 10;

void clear_records()
{
    gmonpparam = {};
    gmonpallpol = {};
    gmonppol = {};
    gmonpmonpol = {};
    gbmonpnostart = 0;
    take_monitor_lines();
}

/*
 * A line of the monitor, to be continued.
 */
std::string sentence_of(std::string line)
{
    if (line.ends_with('.')) {
        line.pop_back();
    }
    return line;
}

/*
 * The command line, by the monitor's own parser; one that it refuses is told and then counts as one without options.
 */
void read_options(const std::string& type, const std::vector<std::string>& options, Settings& result)
{
    std::vector<std::string> words = { "monp", "--" + type };
    std::vector<char*> argv;

    words.insert(words.end(), options.begin(), options.end());
    std::transform(words.begin(), words.end(), std::back_inserter(argv), [](auto& word) { return word.data(); });
    argv.push_back(nullptr);
    if (monp_getopt(static_cast<int>(words.size()), argv.data()) != MONP_RET_SUCCESS) {
        const auto lines = take_monitor_lines();
        result.problems.push_back(
            { COMMAND_LINE, Severity::error,
              (lines.empty() ? "it is refused" : sentence_of(lines.front())) + "; the monitor does not start" });
        gmonpparam = {};
        gmonpparam.action = gmonpparam.restime = gmonpparam.wait = -1;
        type.copy(gmonpparam.type, sizeof(gmonpparam.type) - 1);
    }
}

/*
 * Complaints of the monitor about what has just been formed out of the settings.
 */
void tell_lines(const std::string& where, const std::string& consequence, Settings& result)
{
    for (const auto& line : take_monitor_lines()) {
        result.problems.push_back({ where, Severity::warning, sentence_of(line) + "; " + consequence });
    }
}

/*
 * Of the problems from a number on, which are about what a monitor reads once only.
 */
void mark_start_only(Settings& result, size_t first)
{
    std::for_each(result.problems.begin() + static_cast<std::ptrdiff_t>(first), result.problems.end(),
                  [](Problem& problem) { problem.start_only = true; });
}

/*
 * All that the monitor reads before it becomes a daemon. It reads the action no more once it has one, which it must to
 * survive its service; the other keys of its service may stay unset, and are then looked for at each reload.
 */
void read_sections(Policy& policy, const std::string& type, Settings& result)
{
    for (const auto& section : { std::string("all"), std::string("pm"), std::string("monp"), type }) {
        policy.load(section, Severity::error, "the monitor ends");
    }
    policy.load("", Severity::warning, "the monitor goes on without it");

    policy.read(gmonpallkeys, "all", &gmonpallpol);
    for (const auto& row : gmonpservicekeys) {
        const size_t told = result.problems.size();
        policy.read({ &row, 1 }, "monp", &gmonpparam);
        if (row.noffset == offsetof(MONP_PARAM_INFO, action)) {
            mark_start_only(result, told);
        }
    }
    policy.read(gmonpmykeys, "monp", &gmonppol);
    policy.read(gmonpcprockeys, type, &gmonpmonpol);
    for (const auto& row : gmonpusekeys) {
        if (type == row.ptype) {
            policy.read({ &row.key, 1 }, type, &gmonpmonpol);
        }
    }
}

void form_service(const Policy& policy, Settings& result)
{
    MONP_RUN_INFO run = {};
    const std::string where = policy.where("/root/" + result.type + "/path");

    monp_startup_program(&run);
    result.service = run.prog.szpath;
    for (char** argument = run.pargv; *argument != nullptr; argument++) {
        result.arguments.emplace_back(*argument);
    }
    result.explained.push_back({ "service", result.service, FORMED });
    result.explained.push_back({ "service arguments", shell_words(run.pargv), FORMED });
    /* A program that fits leaves only its arguments to complain of. */
    tell_lines(result.service.empty() ? where : policy.where("/root/monp/service/" + result.type + "/param"),
               "the service is not started as configured", result);
    if (gmonpmonpol.path[0] != '\0') {
        check_program(where, result.service, "each start fails, and the monitor waits", true, result);
    }
    if (gbmonpnostart != 0) {
        result.explained.push_back({ "never started", "yes", COMMAND_LINE });
    }
}

void form_files(const Policy& policy, Settings& result)
{
    monp_startup_lockfile();
    tell_lines(policy.where("/root/pm/lockf"), "the monitor removes no lock file", result);
    result.lock_file = gmonppol.lkfpath;
    result.explained.push_back({ "lock file", result.lock_file.empty() ? "none" : result.lock_file, FORMED });

    if (monp_usesmarker() != 0) {
        result.marker_file = std::string(gmonpallpol.instpath) + gmonppol.mddirpath + '/' + gmonppol.mdfilename;
    }
    result.explained.push_back({ "marker file", result.marker_file.empty() ? "none" : result.marker_file, FORMED });
}

void form_collector(const Policy& policy, Settings& result)
{
    const std::string where = policy.where("/root/monp/elog/path");
    MONP_COLLECTOR_INFO collector = {};

    monp_elog_command(&collector);
    result.explained.push_back({ "collector", collector.prog.szpath, FORMED });
    result.explained.push_back({ "collector arguments", shell_words(collector.pargv), FORMED });
    tell_lines(where, "error logs are not collected as configured", result);
    if (gmonppol.elog.scr[0] != '\0') {
        check_program(where, collector.prog.szpath, "no error logs are collected", false, result);
    }
}

/*
 * The actions that run the command of a section, as the subject of a sentence; and whether the configured one is among
 * them.
 */
std::string actions_of(const std::string& section, int action, bool& used)
{
    std::string actions;

    used = false;
    for (const auto& row : gmonpdrastic) {
        if (section == row.psection) {
            actions += (actions.empty() ? "" : " and ") + std::to_string(row.action);
            used = used || row.action == action;
        }
    }
    return (actions.size() == 1 ? "the recovery action " : "each of the recovery actions ") + actions;
}

/*
 * The commands are read as a recovery would, each with nothing else loaded.
 */
void form_command(const MONP_DRASTIC_ITEMS& row, Settings& result)
{
    bool used = false;
    const std::string actions = actions_of(row.psection, result.action, used);
    const Severity severity = used ? Severity::warning : Severity::note;
    const std::string name = "recovery " + std::to_string(row.action);
    const std::string key = std::string("/root/") + row.psection + "/path";
    MONP_CPROCPOLICY_INFO record = {};
    MONP_PROGRAM_INFO program = {};
    std::array<char*, MONP_OPT_NUM> argv = {};
    Policy policy(result, result.type);

    if (!policy.load(row.psection, severity, actions + " would fail")) {
        return;
    }
    policy.read(gmonpcprockeys, row.psection, &record, severity, actions + " would fail", false);
    if (record.path[0] == '\0') {
        return;
    }
    monp_drastic_command(&row, record.path, &program, argv.data());
    result.explained.push_back({ name, program.szpath, FORMED });
    result.explained.push_back({ name + " arguments", shell_words(argv.data()), FORMED });

    const std::string consequence =
        actions + (row.pfallback != nullptr ? " would call shutdown instead" : " would fail");
    tell_lines(policy.where(key), consequence, result);
    check_program(policy.where(key), program.szpath, consequence, false, result);
}

/*
 * Tells about a setting where it was given; one that was not has been told already.
 */
void tell(Settings& result, const std::string& name, Severity severity, const std::string& sentence)
{
    for (const auto& setting : result.explained) {
        if (setting.name == name && setting.source != Policy::DEFAULT && setting.source != Policy::MISSING) {
            result.problems.push_back({ setting.source, severity, sentence });
        }
    }
}

/*
 * What the unit of systemd does not wait for. An end may be asked for while the service starts.
 */
void judge_unit(const std::string& own, Settings& result)
{
    const auto exceeds = [](long seconds) { return seconds > UNIT_SECONDS - UNIT_SPARE; };
    const std::string limit = ", more than the unit monp@.service waits for; raise its ";
    const long end = static_cast<long>(result.init_seconds) + result.wait_seconds;

    if (exceeds(result.init_seconds)) {
        tell(result, own + "child_timeout", Severity::note,
             "child_timeout is " + std::to_string(result.init_seconds) + " seconds" + limit + "TimeoutStartSec");
    }
    if (result.wait_seconds > 0 && exceeds(end)) {
        tell(result, own + "waittime", Severity::note,
             "child_timeout and waittime are " + std::to_string(end) + " seconds together" + limit + "TimeoutStopSec");
    }
}

/*
 * What a monitor takes, but an operator may not have meant.
 */
void judge_values(Settings& result)
{
    const std::string own = "monp/service/" + result.type + '/';

    if (gmonprecover[monp_findrow(result.action)].action == 0) {
        const size_t told = result.problems.size();
        tell(result, own + "action", Severity::error,
             "the action " + std::to_string(result.action) +
                 " is none of 1 to 5; the monitor ends with status 4 when the service has ended");
        mark_start_only(result, told);
    }
    if (result.action == MONP_ACT_RESTART && result.restart_limit <= 0) {
        tell(result, own + "restarttime", Severity::warning,
             "restarttime is " + std::to_string(result.restart_limit) + "; the service is restarted without limit");
    }
    if (result.wait_seconds <= 0) {
        tell(result, own + "waittime", Severity::note,
             "waittime is " + std::to_string(result.wait_seconds) + "; a service that does not end is never killed");
    }
    if (result.parent_init_seconds < result.init_seconds) {
        tell(result, own + "parent_timeout", Severity::note,
             "parent_timeout is less than child_timeout; a start may return before the service has reported");
    }
    judge_unit(own, result);
    if (monp_isdummy() != 0) {
        tell(result, "dummyconf", Severity::note,
             "a dummy configuration; the service " + result.type + " is not started");
    }
    if (monp_isdisabled() != 0) {
        tell(result, result.type + "/use", Severity::note, "use is 0; the service is not started");
    }
}

/*
 * Directories that nobody makes.
 */
void judge_directories(Settings& result)
{
    const auto need = [&](const std::string& name, const fs::path& directory, const std::string& consequence) {
        if (std::error_code error; !fs::is_directory(directory, error)) {
            tell(result, name, Severity::warning, directory.string() + " is no directory; " + consequence);
        }
    };

    if (result.install.starts_with('/')) {
        need("all/path", result.install + "bin", "the monitor and its service stay where they were started");
    } else {
        tell(result, "all/path", Severity::warning, "all/path is no absolute path; no program is found");
    }
    if (!result.lock_file.empty()) {
        need("pm/lockf", fs::path(result.lock_file).parent_path(), "there can be no lock file");
    }
    if (!result.marker_file.empty()) {
        /* Its own directory is made, the one above is not. */
        need("monp/md/dirpath", fs::path(result.marker_file).parent_path().parent_path(),
             "there can be no marker file");
    }
}

void take_records(Settings& result)
{
    result.name = gmonpmonpol.type;
    result.install = gmonpallpol.instpath;
    result.action = gmonpparam.action;
    result.restart_limit = gmonpparam.restime;
    result.wait_seconds = gmonpparam.wait;
    result.init_seconds = gmonppol.child_initto;
    result.parent_init_seconds = gmonppol.parent_initto;
    result.held_back = monp_isdummy() != 0 || monp_isdisabled() != 0;
}

} // namespace

Settings read_settings(const std::string& type, const std::vector<std::string>& monitor_options)
{
    Settings result;

    result.type = type;
    clear_records();
    read_options(type, monitor_options, result);
    {
        Policy policy(result, type);
        read_sections(policy, type, result);
        take_records(result);
        form_service(policy, result);
        form_files(policy, result);
        form_collector(policy, result);
        judge_values(result);
        judge_directories(result);
        policy.report_unknown();
    }
    for (const auto& row : gmonpdrastic) {
        form_command(row, result);
    }
    sort_problems(result.problems);
    return result;
}

} // namespace monpctl
