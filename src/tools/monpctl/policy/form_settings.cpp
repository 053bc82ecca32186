/*
 * The settings of one monitor, formed by the monitor's own code in the monitor's own records.
 */
#include "policy/settings.h"

#include "common/text.h"
#include "policy/judgement.h"
#include "policy/monitor_log.h"
#include "policy/policy_reader.h"
#include "policy/trust.h"

#include "monp_command.h"
#include "monp_mdfile.h"
#include "monp_run.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <iterator>

namespace monpctl {

namespace {

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
 * A line of the monitor without its full stop, as the beginning of a sentence.
 */
std::string clause_of(std::string line)
{
    if (line.ends_with('.')) {
        line.pop_back();
    }
    return line;
}

/*
 * Reads the command line with the monitor's own parser. One that it refuses becomes a problem, and then counts as one
 * without options.
 */
void read_options(const std::string& type, const std::vector<std::string>& options, Settings& result)
{
    std::vector<std::string> words = { "monp", "--" + type };
    std::vector<char*> argv;

    words.insert(words.end(), options.begin(), options.end());
    std::ranges::transform(words, std::back_inserter(argv), [](auto& text) { return text.data(); });
    argv.push_back(nullptr);
    if (monp_getopt(static_cast<int>(words.size()), argv.data()) != MONP_RET_SUCCESS) {
        const auto lines = take_monitor_lines();
        const std::string fault = lines.empty() ? "it is refused" : clause_of(lines.front());
        Problem& problem = result.problems.emplace_back();
        problem.severity = Severity::error;
        problem.sentence = fault + "; the monitor does not start";
        gmonpparam = {};
        gmonpparam.action = gmonpparam.restime = gmonpparam.wait = -1;
        type.copy(gmonpparam.type, sizeof(gmonpparam.type) - 1);
    }
}

/*
 * The monitor's complaints about something that its own code has just formed from the settings.
 */
void report_lines(const Place& place, const std::string& consequence, Settings& result)
{
    for (const auto& line : take_monitor_lines()) {
        result.problems.push_back({ .place = place,
                                    .severity = Severity::warning,
                                    .sentence = fmt::format("{}; {}", clause_of(line), consequence) });
    }
}

/*
 * Everything that the monitor reads before it becomes a daemon. Once it has an action it does not read it again; the
 * other keys of its service may stay unset, and are then read at each reload.
 */
void read_sections(PolicyReader& reader, Settings& result)
{
    for (const auto& section : { std::string("all"), std::string("pm"), std::string("monp"), result.type }) {
        reader.load({ section, Severity::error, "the monitor ends" });
    }
    reader.load({ "", Severity::warning, "the monitor goes on without it" });

    reader.read({ .rows = gmonpallkeys, .section = "all", .record = &gmonpallpol });
    for (const auto& row : gmonpservicekeys) {
        const size_t before = result.problems.size();
        reader.read({ .rows = { &row, 1 }, .section = "monp", .record = &gmonpparam });
        if (row.noffset == offsetof(MONP_PARAM_INFO, action)) {
            mark_start_only(result, before);
        }
    }
    reader.read({ .rows = gmonpmykeys, .section = "monp", .record = &gmonppol });
    reader.read({ .rows = gmonpcprockeys, .section = result.type, .record = &gmonpmonpol });
    for (const auto& row : gmonpusekeys) {
        if (result.type == row.ptype) {
            reader.read({ .rows = { &row.key, 1 }, .section = result.type, .record = &gmonpmonpol });
        }
    }
}

void take_records(Settings& result)
{
    const std::string action = fmt::format("monp/service/{}/action", result.type);

    result.name = gmonpmonpol.type;
    result.install = gmonpallpol.instpath;
    result.action = gmonpparam.action;
    result.action_given = std::ranges::any_of(
        result.explained, [&](const Setting& one) { return one.name == action && one.source == Source::command_line; });
    result.restart_limit = gmonpparam.restime;
    result.wait_seconds = gmonpparam.wait;
    result.init_seconds = gmonppol.child_initto;
    result.parent_init_seconds = gmonppol.parent_initto;
    result.held_back = monp_isdummy() != 0 || monp_isdisabled() != 0;
}

void explain(Settings& result, const std::string& name, const std::string& value, Source source = Source::formed)
{
    result.explained.push_back({ .name = name, .value = value, .source = source, .place = {} });
}

void form_service(const PolicyReader& reader, Settings& result)
{
    MONP_RUN_INFO run = {};
    const Place place = reader.place_of(fmt::format("/root/{}/path", result.type));
    const Place arguments = reader.place_of(fmt::format("/root/monp/service/{}/param", result.type));

    monp_startup_program(&run);
    result.service = run.prog.szpath;
    for (char** argument = run.pargv; *argument != nullptr; argument++) {
        result.arguments.emplace_back(*argument);
    }
    explain(result, "service", result.service);
    explain(result, "service arguments", shell_words(run.pargv));
    /* A program that fits leaves only its arguments to complain about. */
    report_lines(result.service.empty() ? place : arguments, "the service is not started as configured", result);
    if (gmonpmonpol.path[0] != '\0') {
        check_program({ .place = place,
                        .path = result.service,
                        .consequence = "each start fails, and the monitor waits",
                        .adopted = true },
                      result.problems);
    }
    if (gbmonpnostart != 0) {
        explain(result, "never started", "yes", Source::command_line);
    }
}

void form_files(const PolicyReader& reader, Settings& result)
{
    const auto shown = [](const std::string& file) { return file.empty() ? "none" : file; };

    monp_startup_lockfile();
    report_lines(reader.place_of("/root/pm/lockf"), "the monitor removes no lock file", result);
    result.lock_file = gmonppol.lkfpath;
    explain(result, "lock file", shown(result.lock_file));

    if (monp_usesmarker() != 0) {
        result.marker_file = fmt::format("{}{}/{}", gmonpallpol.instpath, gmonppol.mddirpath, gmonppol.mdfilename);
    }
    explain(result, "marker file", shown(result.marker_file));
}

void form_collector(const PolicyReader& reader, Settings& result)
{
    const Place place = reader.place_of("/root/monp/elog/path");
    MONP_COLLECTOR_INFO collector = {};

    monp_elog_command(&collector);
    explain(result, "collector", collector.prog.szpath);
    explain(result, "collector arguments", shell_words(collector.pargv));
    report_lines(place, "error logs are not collected as configured", result);
    if (gmonppol.elog.scr[0] != '\0') {
        check_program({ .place = place, .path = collector.prog.szpath, .consequence = "no error logs are collected" },
                      result.problems);
    }
}

/*
 * The actions that run the command of a section.
 */
struct CommandUse {
    std::string subject; /* of a sentence */
    Severity severity;   /* of a problem: worse if the configured action is among them */
};

CommandUse use_of(const std::string& section, int action)
{
    std::vector<int> actions;
    bool used = false;

    for (const auto& row : gmonpdrastic) {
        if (section == row.psection) {
            actions.push_back(row.action);
            used = used || row.action == action;
        }
    }
    return { fmt::format("{} {}", actions.size() == 1 ? "the recovery action" : "each of the recovery actions",
                         fmt::join(actions, " and ")),
             used ? Severity::warning : Severity::note };
}

/*
 * Each command is read as a recovery would read it, with nothing else loaded.
 */
void form_command(const MONP_DRASTIC_ITEMS& row, Settings& result)
{
    const CommandUse use = use_of(row.psection, result.action);
    const std::string failing = use.subject + " would fail";
    const std::string name = fmt::format("recovery {}", row.action);
    MONP_CPROCPOLICY_INFO record = {};
    MONP_PROGRAM_INFO program = {};
    std::array<char*, MONP_OPT_NUM> argv = {};
    PolicyReader reader(result, result.type);

    if (!reader.load({ row.psection, use.severity, failing })) {
        return;
    }
    reader.read({ .rows = gmonpcprockeys,
                  .section = row.psection,
                  .record = &record,
                  .severity = use.severity,
                  .consequence = failing,
                  .explained = false });
    const Place place = reader.place_of(fmt::format("/root/{}/path", row.psection));
    const std::string consequence = row.pfallback != nullptr ? use.subject + " would call shutdown instead" : failing;
    if (record.path[0] == '\0') {
        judge_empty_command(place, consequence, use.severity, result);
        return;
    }
    monp_drastic_command(&row, record.path, &program, argv.data());
    explain(result, name, program.szpath);
    explain(result, name + " arguments", shell_words(argv.data()));
    report_lines(place, consequence, result);
    check_program({ .place = place, .path = program.szpath, .consequence = consequence }, result.problems);
}

} // namespace

Settings read_settings(const std::string& type, const std::vector<std::string>& monitor_options)
{
    Settings result;

    result.type = type;
    clear_records();
    read_options(type, monitor_options, result);
    {
        PolicyReader reader(result, type);
        read_sections(reader, result);
        take_records(result);
        form_service(reader, result);
        form_files(reader, result);
        form_collector(reader, result);
        judge_values(result);
        judge_directories(result);
        reader.report_unknown();
    }
    for (const auto& row : gmonpdrastic) {
        form_command(row, result);
    }
    sort_problems(result.problems);
    return result;
}

} // namespace monpctl
