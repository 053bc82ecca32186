/*
 * The command line of monpctl.
 */
#include "commands.h"

#include <CLI/CLI.hpp>
#include <iostream>

using namespace monpctl;

static void add_check(CLI::App& app, CheckOptions& given, int& status)
{
    auto* command = app.add_subcommand("check", "read the policy as the monitor would and tell every problem");

    command->add_option("TYPE", given.type, "service type; without it, all of them");
    command->add_flag("--explain", given.explain, "print every setting with its source");
    command->add_option("OPTIONS", given.options, "options of the monitor, behind --");
    command->callback([&] { status = check(given); });
}

static void add_events(CLI::App& app, EventsOptions& given, int& status)
{
    auto* command = app.add_subcommand("events", "print the events");

    command->add_option("TYPE", given.type, "service type; without it, all of them");
    command->add_flag("-f,--follow", given.follow, "go on with those that come");
    command->add_flag("--json", given.json, "as they stand in the file, one object a line");
    command->callback([&] { status = events(given); });
}

static void add_log(CLI::App& app, LogOptions& given, int& status)
{
    auto* command = app.add_subcommand("log", "print the log");

    command->add_option("TYPE", given.type, "service type; without it, all of them");
    command->add_flag("-f,--follow", given.follow, "go on with what comes");
    command->add_option("--level", given.level, "leave out what is less severe: error, warning, info, trace, detail");
    command->callback([&] { status = log(given); });
}

int main(int argc, char** argv)
{
    CLI::App app("Operates the process monitors of this machine.", "monpctl");
    CheckOptions check_options;
    EventsOptions events_options;
    LogOptions log_options;
    int status = 0;

    app.require_subcommand(1);
    add_check(app, check_options, status);
    add_events(app, events_options, status);
    add_log(app, log_options, status);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception& error) {
        std::cerr << "monpctl: " << error.what() << '\n';
        return 2;
    }
    return status;
}
