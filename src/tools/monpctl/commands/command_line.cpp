/*
 * The command line: one function a command says which options it has, and calls it.
 */
#include "commands/command_line.h"

#include "commands/commands.h"
#include "commands/completion.h"
#include "common/refusal.h"
#include "common/suggestion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <functional>
#include <iostream>
#include <string_view>

namespace monpctl {

namespace {

using Words = std::vector<std::string>;

/* Seconds; a day. */
constexpr int LONGEST_WAIT = 86400;

/*
 * The command that the command line asks for, and the options of a monitor behind the first "--".
 */
struct Invocation {
    std::function<Exit()> command;
    Words monitor_options;
    bool monitor_options_taken = false;
    bool all_types = false; /* said, where it is the default */
    bool changes = false;   /* the machine, so that its result counts even if nothing can be printed */
    Exit unprinted = EXIT_FAILED;
};

/*
 * Refuses monitor options of a command that has no use for them.
 */
void add_monitor_options(CLI::App* command, Invocation& invocation)
{
    command->footer("Behind -- stand options of the monitor: TYPE -- MONITOR-OPTIONS");
    command->preparse_callback([&](size_t) { invocation.monitor_options_taken = true; });
}

void add_types(CLI::App* command, Words& types)
{
    command->add_option("TYPE", types, "service types; without any, all of them");
}

/*
 * For a command that changes something: all types only on request.
 */
void add_chosen_types(CLI::App* command, TypeChoice& choice)
{
    auto* types = command->add_option("TYPE", choice.types, "service types");
    auto* all = command->add_flag("--all", choice.all, "every type that the policy has an entry for");

    all->excludes(types);
}

void add_wait(CLI::App* command, std::optional<int>& wait, const char* text)
{
    command->add_option("--wait", wait, text)->check(CLI::Range(0, LONGEST_WAIT))->option_text("SECONDS");
}

void add_stop_options(CLI::App* command, StopOptions& given)
{
    add_wait(command, given.wait, "seconds to wait for the end");
    command->add_option("--kill-after", given.kill_after, "kill what is left after so many seconds")
        ->check(CLI::Range(0, LONGEST_WAIT))
        ->option_text("SECONDS");
    command->add_flag("--yes", given.yes, "do not ask, even if it may halt or reboot the node");
}

void add_period(CLI::App* command, HistoryOptions& given)
{
    command->add_flag("-f,--follow", given.follow, "go on with those that come");
    command->add_option("-n,--lines", given.lines, "only the last so many")
        ->check(CLI::NonNegativeNumber)
        ->option_text("NUMBER");
    command->add_option("--since", given.since, "from this time on: \"2026-11-22 14:00\", \"14:00\", \"2h ago\"")
        ->option_text("TIME");
    command->add_option("--until", given.until, "up to this time")->option_text("TIME");
    command->add_flag("--full", given.full, "whole lines, as they stand in the file");
    command->add_flag("--json", given.json, "one JSON object a line");
}

/*
 * The options of each command live as long as the invocation that may call it.
 */
template <typename Options> std::shared_ptr<Options> keep()
{
    return std::make_shared<Options>();
}

void add_status(CLI::App& app, Invocation& invocation)
{
    auto* command = app.add_subcommand("status", "show the state of the services");
    auto given = keep<StatusOptions>();

    add_types(command, given->types);
    command->add_flag("--json", given->json, "as JSON");
    command->add_option("--fields", given->fields, "only these fields, one line a type; see monpctl(8)")
        ->delimiter(',')
        ->option_text("FIELD,...");
    command->add_flag("--watch", given->watch, "show it again every second");
    command->add_flag("--all", invocation.all_types, "all types, as without any");
    command->callback([&invocation, given] {
        invocation.command = [given] { return status(*given); };
        invocation.unprinted = EXIT_UNKNOWN;
    });
}

void add_start(CLI::App& app, Invocation& invocation)
{
    auto* command = app.add_subcommand("start", "start monitors, or the services of those that wait");
    auto given = keep<StartOptions>();

    add_chosen_types(command, given->choice);
    add_wait(command, given->wait, "seconds to wait for the service");
    command->add_flag("--second-copy", given->second_copy, "start it although a copy runs that no monitor can adopt");
    add_monitor_options(command, invocation);
    command->callback([&invocation, given] {
        given->options = invocation.monitor_options;
        invocation.command = [given] { return start(*given); };
        invocation.changes = true;
    });
}

void add_stop(CLI::App& app, Invocation& invocation)
{
    auto* command = app.add_subcommand("stop", "end monitors and their services");
    auto given = keep<StopOptions>();

    add_chosen_types(command, given->choice);
    add_stop_options(command, *given);
    command->callback([&invocation, given] {
        invocation.command = [given] { return stop(*given); };
        invocation.changes = true;
    });
}

void add_restart(CLI::App& app, Invocation& invocation)
{
    auto* command = app.add_subcommand("restart", "stop, then start");
    auto given = keep<RestartOptions>();

    add_chosen_types(command, given->stop.choice);
    add_stop_options(command, given->stop);
    add_monitor_options(command, invocation);
    command->callback([&invocation, given] {
        given->options = invocation.monitor_options;
        invocation.command = [given] { return restart(*given); };
        invocation.changes = true;
    });
}

void add_reload(CLI::App& app, Invocation& invocation)
{
    auto* command = app.add_subcommand("reload", "have monitors read their policy again");
    auto given = keep<ReloadOptions>();

    add_chosen_types(command, given->choice);
    command->callback([&invocation, given] {
        invocation.command = [given] { return reload(*given); };
        invocation.changes = true;
    });
}

void add_check(CLI::App& app, Invocation& invocation)
{
    auto* command = app.add_subcommand("check", "read the policy as the monitor would and report every problem");
    auto given = keep<CheckOptions>();

    add_types(command, given->types);
    command->add_flag("--all", invocation.all_types, "all types, as without any");
    command->add_flag("--explain", given->explain, "print every setting with its source");
    command->add_flag("--json", given->json, "as JSON");
    add_monitor_options(command, invocation);
    command->callback([&invocation, given] {
        given->options = invocation.monitor_options;
        invocation.command = [given] { return check(*given); };
    });
}

void add_events(CLI::App& app, Invocation& invocation)
{
    auto* command = app.add_subcommand("events", "print the events");
    auto given = keep<HistoryOptions>();

    add_types(command, given->types);
    add_period(command, *given);
    command->callback([&invocation, given] { invocation.command = [given] { return events(*given); }; });
}

void add_log(CLI::App& app, Invocation& invocation)
{
    auto* command = app.add_subcommand("log", "print the log");
    auto given = keep<LogOptions>();

    add_types(command, given->types);
    add_period(command, *given);
    command->add_option("--level", given->level, "leave out less severe lines: error, warning, info, trace, detail")
        ->option_text("LEVEL");
    command->callback([&invocation, given] { invocation.command = [given] { return log(*given); }; });
}

/*
 * Not for people: the package's build calls it, so that the completions offer what this file declares.
 */
void add_completion(CLI::App& app, Invocation& invocation)
{
    auto* command = app.add_subcommand("completion", "print the completions for a shell")->group("");
    auto shell = keep<std::string>();

    command->add_option("SHELL", *shell, "bash, zsh or fish")->required();
    command->callback(
        [&app, &invocation, shell] { invocation.command = [&app, shell] { return print_completion(app, *shell); }; });
}

constexpr void (*COMMANDS[])(CLI::App&, Invocation&) = { add_status, add_start,  add_stop, add_restart,   add_reload,
                                                         add_check,  add_events, add_log,  add_completion };

/*
 * The parser only says that a command is required when one is misspelt.
 */
void require_command(const CLI::App& app, int argc, char** argv)
{
    const std::string word = argc > 1 ? argv[1] : "";
    Words names;
    bool known = word.starts_with('-');

    for (const auto* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        known = known || command->get_name() == word;
        if (!command->get_group().empty()) {
            names.push_back(command->get_name());
        }
    }
    if (word.empty()) {
        throw Refusal(fmt::format("a command is missing: one of {}; see monpctl --help", fmt::join(names, ", ")));
    }
    if (!known) {
        throw Refusal(fmt::format("'{}' is not a command{}", word, did_you_mean(word, names)));
    }
}

/*
 * Prints the result of a parser that was not satisfied, which may be the help that was asked for.
 */
Exit print_parse_error(const CLI::App& app, const CLI::ParseError& error)
{
    return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
}

/*
 * The result of a command, if what it printed has arrived.
 */
Exit printed(const Invocation& invocation, Exit result)
{
    if (std::cout.flush()) {
        return result;
    }
    std::fprintf(stderr, "monpctl: the standard output cannot be written\n");
    return invocation.changes ? result : invocation.unprinted;
}

Exit parse_and_run(int argc, char** argv)
{
    CLI::App app("Operates the process monitors of this machine.", "monpctl");
    Invocation invocation;
    char** const end = argv + argc;
    char** const mark = std::find(argv, end, std::string_view("--"));

    invocation.monitor_options.assign(std::min(mark + 1, end), end);
    app.set_version_flag("--version", "monpctl " MONP_VERSION);
    app.require_subcommand(1);
    for (const auto add : COMMANDS) {
        add(app, invocation);
    }
    try {
        require_command(app, static_cast<int>(mark - argv), argv);
        app.parse(static_cast<int>(mark - argv), argv);
    } catch (const CLI::ParseError& error) {
        return printed(invocation, print_parse_error(app, error));
    }
    if (mark != end && !invocation.monitor_options_taken) {
        throw Refusal("this command takes no options of the monitor behind --");
    }
    return printed(invocation, invocation.command());
}

} // namespace

int run(int argc, char** argv)
{
    try {
        return parse_and_run(argc, argv);
    } catch (const Refusal& error) {
        std::fprintf(stderr, "monpctl: %s\n", error.what());
        return EXIT_USAGE;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "monpctl: %s\n", error.what());
        return EXIT_FAILED;
    }
}

} // namespace monpctl
