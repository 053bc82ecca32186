/*
 * The settings of one monitor, in the monitor's own records, which this program has to itself.
 */
#include "settings.h"

#include "commands.h"
#include "monitor_log.h"
#include "policy.h"
#include "programs.h"

#include "monp_command.h"
#include "monp_mdfile.h"
#include "monp_run.h"
#include "tesk_home.h"
#include "teskxml_tools.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

constexpr std::array MONITOR_SECTIONS = { "all", "monp" };
constexpr const char* COMMAND_LINE = "command line";
constexpr const char* FORMED = "formed";

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
              (lines.empty() ? "it is refused" : lines.front()) + "; the monitor does not start" });
        gmonpparam = {};
        gmonpparam.action = gmonpparam.restime = gmonpparam.wait = -1;
        type.copy(gmonpparam.type, sizeof(gmonpparam.type) - 1);
    }
}

std::string joined(char* const* argv)
{
    std::string text;

    for (; *argv != nullptr; argv++) {
        const std::string word = *argv;
        const bool plain = !word.empty() && word.find_first_of(" \t\"'\\$") == std::string::npos;
        text += (text.empty() ? "" : " ") + (plain ? word : '\'' + word + '\'');
    }
    return text;
}

/*
 * Complaints of the monitor about what has just been formed out of the settings.
 */
void tell_lines(const std::string& where, const std::string& consequence, Settings& result)
{
    for (const auto& line : take_monitor_lines()) {
        result.problems.push_back({ where, Severity::warning, line + "; " + consequence });
    }
}

/*
 * All that the monitor reads before it becomes a daemon.
 */
void read_sections(Policy& policy, const std::string& type)
{
    for (const auto& section : { std::string("all"), std::string("pm"), std::string("monp"), type }) {
        policy.load(section, Severity::error, "the monitor ends");
    }
    policy.load("", Severity::warning, "the monitor goes on without it");

    policy.read(gmonpallkeys, "all", &gmonpallpol);
    policy.read(gmonpservicekeys, "monp", &gmonpparam);
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
    result.explained.push_back({ "service arguments", joined(run.pargv), FORMED });
    tell_lines(where, "the service is not started as configured", result);
    if (gmonpmonpol.path[0] != '\0') {
        check_program(where, result.service, "each start fails, and the monitor waits", true, result);
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
    result.explained.push_back({ "collector arguments", joined(collector.pargv), FORMED });
    tell_lines(where, "error logs are not collected as configured", result);
    if (gmonppol.elog.scr[0] != '\0') {
        check_program(where, collector.prog.szpath, "no error logs are collected", false, result);
    }
}

/*
 * The commands are read as a recovery would, each with nothing else loaded.
 */
void form_commands(Settings& result)
{
    for (const auto& row : gmonpdrastic) {
        const bool used = row.action == result.action;
        const Severity severity = used ? Severity::warning : Severity::note;
        const std::string consequence = "the recovery action " + std::to_string(row.action) + " would fail";
        MONP_CPROCPOLICY_INFO record = {};
        MONP_PROGRAM_INFO program = {};
        std::array<char*, MONP_OPT_NUM> argv = {};
        const size_t before = result.problems.size();
        Policy policy(result, result.type);

        if (!policy.load(row.psection, severity, consequence)) {
            continue;
        }
        policy.read(gmonpcprockeys, row.psection, &record, severity, consequence, false);
        if (result.problems.size() != before) {
            continue;
        }
        const std::string where = policy.where(std::string("/root/") + row.psection + "/path");
        monp_drastic_command(&row, record.path, &program, argv.data());
        result.explained.push_back({ "recovery " + std::to_string(row.action), program.szpath, FORMED });
        result.explained.push_back(
            { "recovery " + std::to_string(row.action) + " arguments", joined(argv.data()), FORMED });
        tell_lines(where, consequence, result);
        check_program(where, program.szpath, consequence, false, result);
    }
}

const Setting* find_setting(const Settings& result, const std::string& key)
{
    const auto found = std::find_if(result.explained.begin(), result.explained.end(),
                                    [&](const Setting& setting) { return "/root/" + setting.name == key; });

    return found != result.explained.end() && found->source != "default" ? &*found : nullptr;
}

/*
 * What a monitor takes, but an operator may not have meant.
 */
void judge_values(Settings& result)
{
    const auto key = [&](const std::string& name) { return "/root/monp/service/" + result.type + '/' + name; };
    const auto tell = [&](const std::string& name, Severity severity, const std::string& sentence) {
        if (const auto* setting = find_setting(result, name)) {
            result.problems.push_back({ setting->source, severity, sentence });
        }
    };

    if (gmonprecover[monp_findrow(result.action)].action == 0) {
        tell(key("action"), Severity::error,
             "the action " + std::to_string(result.action) +
                 " is none of 1 to 5; the monitor ends with status 4 when the service has ended");
    }
    if (result.action == MONP_ACT_RESTART && result.restart_limit <= 0) {
        tell(key("restarttime"), Severity::warning,
             "restarttime is " + std::to_string(result.restart_limit) + "; the service is restarted without limit");
    }
    if (result.wait_seconds <= 0) {
        tell(key("waittime"), Severity::note,
             "waittime is " + std::to_string(result.wait_seconds) + "; a service that does not end is never killed");
    }
    if (monp_isdummy() != 0) {
        tell("/root/dummyconf", Severity::note,
             "a dummy configuration; the service " + result.type + " is not started");
    }
    if (monp_isdisabled() != 0) {
        tell("/root/" + result.type + "/use", Severity::note, "use is 0; the service is not started");
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

/*
 * Whether the section "pm" describes a service, too.
 */
bool pm_is_service()
{
    Settings unused;
    Policy policy(unused, "pm");

    return policy.load("pm", Severity::note, "") && policy.values().contains("/root/pm/path");
}

bool is_service_section(const std::string& name)
{
    const bool own = std::find(MONITOR_SECTIONS.begin(), MONITOR_SECTIONS.end(), name) != MONITOR_SECTIONS.end();
    const bool command = std::any_of(std::begin(gmonpdrastic), std::end(gmonpdrastic),
                                     [&](const auto& row) { return name == row.psection; });

    return !own && !command && (name != "pm" || pm_is_service());
}

} // namespace

bool Settings::usable() const
{
    return std::none_of(problems.begin(), problems.end(),
                        [](const Problem& problem) { return problem.severity == Severity::error; });
}

std::string home()
{
    return tesk_home();
}

std::string action_text(int action)
{
    switch (action) {
    case MONP_ACT_NONE:
        return "do nothing";
    case MONP_ACT_RESTART:
        return "restart the service";
    case MONP_ACT_STOP_CLSDAEMON:
        return "stop the cluster daemons";
    case MONP_ACT_OS_HALT:
        return "halt the node";
    case MONP_ACT_OS_REBOOT:
        return "reboot the node";
    default:
        return "unknown";
    }
}

std::vector<std::string> known_types()
{
    std::vector<std::string> types;
    std::error_code error;

    for (const auto& entry : fs::directory_iterator(home() + "/etc/policy", error)) {
        const std::string name = entry.path().stem();
        const bool section =
            entry.path().extension() == ".xml" && name.size() <= TESKXML_MAX_NAME &&
            name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-") ==
                std::string::npos;
        if (section && is_service_section(name)) {
            types.push_back(name);
        }
    }
    std::sort(types.begin(), types.end());
    return types;
}

void require_known(const std::string& type)
{
    const auto types = known_types();

    if (std::find(types.begin(), types.end(), type) == types.end()) {
        std::string known;
        for (const auto& name : types) {
            known += (known.empty() ? "" : ", ") + name;
        }
        throw Refusal("'" + type + "' is no service type of " + home() + "/etc/policy, which has " +
                      (known.empty() ? "none" : known));
    }
}

std::vector<std::string> names_of(const std::string& type)
{
    std::vector<std::string> names = { type };
    Settings unused;
    Policy policy(unused, type);

    if (policy.load(type, Severity::note, "")) {
        const auto found = policy.values().find("/root/" + type + "/type");
        if (found != policy.values().end() && found->second.value != type) {
            names.push_back(found->second.value);
        }
    }
    return names;
}

Settings read_settings(const std::string& type, const std::vector<std::string>& monitor_options)
{
    Settings result;

    result.type = type;
    clear_records();
    read_options(type, monitor_options, result);
    {
        Policy policy(result, type);
        read_sections(policy, type);
        take_records(result);
        judge_values(result);
        form_service(policy, result);
        form_files(policy, result);
        form_collector(policy, result);
    }
    form_commands(result);
    sort_problems(result.problems);
    return result;
}

void sort_problems(std::vector<Problem>& problems)
{
    const auto place = [](const Problem& problem) {
        const auto colon = problem.where.rfind(':');
        const bool line = colon != std::string::npos && colon + 1 < problem.where.size() &&
                          problem.where.find_first_not_of("0123456789", colon + 1) == std::string::npos;
        return line ? std::pair(problem.where.substr(0, colon), std::stol(problem.where.substr(colon + 1)))
                    : std::pair(problem.where, 0L);
    };

    std::stable_sort(problems.begin(), problems.end(), [&](const Problem& one, const Problem& other) {
        return place(one) != place(other) ? place(one) < place(other) : one.sentence < other.sentence;
    });
    problems.erase(std::unique(problems.begin(), problems.end()), problems.end());
}

} // namespace monpctl
