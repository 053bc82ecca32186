/*
 * The command line of monpctl.
 */
#include "commands.h"

#include <CLI/CLI.hpp>
#include <cstdio>

using namespace monpctl;

static void add_check(CLI::App& app, CheckOptions& given, int& result)
{
    auto* command = app.add_subcommand("check", "read the policy as the monitor would and tell every problem");

    command->add_option("TYPE", given.type, "service type; without it, all of them");
    command->add_flag("--explain", given.explain, "print every setting with its source");
    command->add_option("OPTIONS", given.options, "options of the monitor, behind --");
    command->callback([&] { result = check(given); });
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

static void add_start(CLI::App& app, StartOptions& given, int& result)
{
    auto* command = app.add_subcommand("start", "start a monitor, or the service of a waiting one");

    command->add_option("TYPE", given.type, "service type")->required();
    command->add_option("--wait", given.wait, "seconds to wait for the service")->check(CLI::Range(0, LONGEST_WAIT));
    command->add_option("OPTIONS", given.options, "options of the monitor, behind --");
    command->callback([&] { result = start(given); });
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
    int result = EXIT_DONE;

    app.require_subcommand(1);
    add_status(app, status_options, result);
    add_start(app, start_options, result);
    add_stop(app, stop_options, result);
    add_reload(app, reload_options, result);
    add_check(app, check_options, result);
    add_events(app, events_options, result);
    add_log(app, log_options, result);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        result = app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    return result;
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
