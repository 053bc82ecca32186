/*
 * The command line of monpctl.
 */
#include "commands/commands.h"
#include "common/refusal.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string_view>

using namespace monpctl;

using Words = std::vector<std::string>;

/*
 * What stands behind the first "--".
 */
static Words words_behind(int argc, char** argv)
{
    char** const end = argv + argc;
    char** const mark = std::find(argv, end, std::string_view("--"));

    return { std::min(mark + 1, end), end };
}

static void add_monitor_options(CLI::App* command, Words& options)
{
    command->add_option("MONITOR-OPTIONS", options, "options of the monitor, behind --");
}

/*
 * A word too many must not become an option of the monitor, nor one of those a type.
 */
static void require_mark(const Words& options, const Words& behind)
{
    if (options != behind) {
        throw Refusal("options of the monitor, and nothing else, go behind --: TYPE -- MONITOR-OPTIONS");
    }
}

static void add_check(CLI::App& app, CheckOptions& given, const Words& behind, int& result)
{
    auto* command = app.add_subcommand("check", "read the policy as the monitor would and tell every problem");

    command->add_option("TYPE", given.type, "service type; without it, all of them");
    command->add_flag("--explain", given.explain, "print every setting with its source");
    add_monitor_options(command, given.options);
    command->callback([&] {
        require_mark(given.options, behind);
        result = check(given);
    });
}

static void add_events(CLI::App& app, EventsOptions& given, int& result)
{
    auto* command = app.add_subcommand("events", "print the events");

    command->add_option("TYPE", given.type, "service type; without it, all of them");
    command->add_flag("-f,--follow", given.follow, "go on with those that come");
    command->add_flag("--json", given.json, "as they stand in the file, one object a line");
    command->callback([&] { result = events(given); });
}

static void add_log(CLI::App& app, LogOptions& given, int& result)
{
    auto* command = app.add_subcommand("log", "print the log");

    command->add_option("TYPE", given.type, "service type; without it, all of them");
    command->add_flag("-f,--follow", given.follow, "go on with what comes");
    command->add_option("--level", given.level, "leave out what is less severe: error, warning, info, trace, detail");
    command->callback([&] { result = log(given); });
}

/* Seconds; a day. */
static constexpr int LONGEST_WAIT = 86400;

static void add_status(CLI::App& app, StatusOptions& given, int& result)
{
    auto* command = app.add_subcommand("status", "tell what the monitors do");

    command->add_option("TYPE", given.type, "service type; without it, all of them");
    command->add_flag("--json", given.json, "as JSON");
    command->callback([&] { result = status(given); });
}

static void add_start(CLI::App& app, StartOptions& given, const Words& behind, int& result)
{
    auto* command = app.add_subcommand("start", "start a monitor, or the service of a waiting one");

    command->add_option("TYPE", given.type, "service type")->required();
    command->add_option("--wait", given.wait, "seconds to wait for the service")->check(CLI::Range(0, LONGEST_WAIT));
    add_monitor_options(command, given.options);
    command->callback([&] {
        require_mark(given.options, behind);
        result = start(given);
    });
}

static void add_stop(CLI::App& app, StopOptions& given, int& result)
{
    auto* command = app.add_subcommand("stop", "end a monitor and its service");

    command->add_option("TYPE", given.type, "service type")->required();
    command->add_option("--wait", given.wait, "seconds to wait for the end")->check(CLI::Range(0, LONGEST_WAIT));
    command->add_flag("--yes", given.yes, "do not ask, even if it may halt or reboot the node");
    command->callback([&] { result = stop(given); });
}

static void add_reload(CLI::App& app, ReloadOptions& given, int& result)
{
    auto* command = app.add_subcommand("reload", "have a monitor read its policy again");

    command->add_option("TYPE", given.type, "service type")->required();
    command->callback([&] { result = reload(given); });
}

/*
 * The result of a command, if what it printed has arrived. What was operated stays so all the same.
 */
static int told(const CLI::App& app, int result)
{
    const auto given = [&](const char* name) { return app.got_subcommand(name); };

    if (std::cout.flush()) {
        return result;
    }
    std::fprintf(stderr, "monpctl: the standard output cannot be written\n");
    if (given("start") || given("stop") || given("reload")) {
        return result;
    }
    return given("status") ? EXIT_UNKNOWN : EXIT_FAILED;
}

/*
 * Result: an Exit. A command line that is wrong has been told by then.
 */
static int operate(int argc, char** argv)
{
    CLI::App app("Operates the process monitors of this machine.", "monpctl");
    CheckOptions check_options;
    EventsOptions events_options;
    LogOptions log_options;
    StatusOptions status_options;
    StartOptions start_options;
    StopOptions stop_options;
    ReloadOptions reload_options;
    const Words behind = words_behind(argc, argv);
    int result = EXIT_DONE;

    app.require_subcommand(1);
    add_status(app, status_options, result);
    add_start(app, start_options, behind, result);
    add_stop(app, stop_options, result);
    add_reload(app, reload_options, result);
    add_check(app, check_options, behind, result);
    add_events(app, events_options, result);
    add_log(app, log_options, result);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        result = app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    return told(app, result);
}

int main(int argc, char** argv)
{
    try {
        return operate(argc, argv);
    } catch (const Refusal& error) {
        std::fprintf(stderr, "monpctl: %s\n", error.what());
        return EXIT_USAGE;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "monpctl: %s\n", error.what());
        return EXIT_FAILED;
    }
}
