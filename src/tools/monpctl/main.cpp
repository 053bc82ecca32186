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

int main(int argc, char** argv)
{
    CLI::App app("Operates the process monitors of this machine.", "monpctl");
    CheckOptions check_options;
    int status = 0;

    app.require_subcommand(1);
    add_check(app, check_options, status);
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
