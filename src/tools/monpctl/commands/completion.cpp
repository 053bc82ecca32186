#include "commands/completion.h"

#include "commands/fields.h"
#include "common/log_level.h"
#include "common/refusal.h"
#include "policy/service_types.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <iostream>
#include <string_view>
#include <vector>

namespace monpctl {

namespace {

using Words = std::vector<std::string>;

struct OptionWords {
    Words spellings = {};  /* with their dashes */
    std::string text = {}; /* what it does */
    bool valued = false;
    Words values = {}; /* proposals */
};

struct CommandWords {
    std::string name = {};
    std::string text = {};
    bool typed = false; /* takes service types */
    std::vector<OptionWords> options = {};
};

Words values_of(const std::string& option)
{
    if (option == "--level") {
        return log_level_words();
    }
    return option == "--fields" ? field_names() : Words();
}

OptionWords words_of(const CLI::Option& option)
{
    OptionWords words = { .text = option.get_description(), .valued = option.get_items_expected_max() > 0 };

    for (const auto& name : option.get_snames()) {
        words.spellings.push_back("-" + name);
    }
    for (const auto& name : option.get_lnames()) {
        words.spellings.push_back("--" + name);
    }
    words.values = values_of(words.spellings.back());
    return words;
}

CommandWords words_of(const CLI::App& command)
{
    CommandWords words = { .name = command.get_name(), .text = command.get_description() };

    for (const auto* option : command.get_options()) {
        if (option->get_positional()) {
            words.typed = words.typed || option->get_name() == "TYPE";
        } else {
            words.options.push_back(words_of(*option));
        }
    }
    return words;
}

std::vector<CommandWords> commands_of(const CLI::App& app)
{
    std::vector<CommandWords> commands;

    for (const auto* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (!command->get_group().empty()) {
            commands.push_back(words_of(*command));
        }
    }
    return commands;
}

/* The options of a monitor's own command line; the actions are those of monp-policy(5). */
constexpr std::string_view MONITOR_OPTIONS = "-a -n -o -r -w";
constexpr std::string_view ACTIONS = "1 2 3 4 5";

/* The frames of the files; names in braces are filled in, and each brace of the shell's own stands twice. */
constexpr const char* BASH = R"shell(# Completion of bash for monpctl and monp, made by `monpctl completion bash`.

# _monp_reply WORDS: those of them that begin like the current word.
_monp_reply() {{
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "${{COMP_WORDS[COMP_CWORD]}}")
}}

# _monp_types [PREFIX]: the service types, each behind the prefix. Only names that compgen cannot expand. It asks the
# monpctl beside the program that was typed, which need not be on the PATH.
_monp_types() {{
    local type

    while read -r type; do
        [[ $type =~ [^A-Za-z0-9_-] ]] || printf '%s%s\n' "${{1-}}" "$type"
    done < <("${{COMP_WORDS[0]%monp*}}monpctl" completion types 2>/dev/null)
}}

# _monp_options PREVIOUS [WORDS]: options of the monitor and other words.
_monp_options() {{
    case ${{1,,}} in
    -a) _monp_reply '{actions}' ;;
    -o | -r | -w) COMPREPLY=() ;;
    *) _monp_reply "{monitor} ${{2-}}" ;;
    esac
}}

_monp() {{
    _monp_options "${{COMP_WORDS[COMP_CWORD - 1]}}" "$(_monp_types --)"
}}

_monpctl() {{
    local options='' types='' previous=${{COMP_WORDS[COMP_CWORD - 1]}}

    if [ "$COMP_CWORD" -le 1 ]; then
        _monp_reply '{names} --help --version'
        return
    fi
    if [[ " ${{COMP_WORDS[*]:0:COMP_CWORD}} " == *' -- '* ]]; then
        _monp_options "$previous"
        return
    fi
    case $previous in
{values}    esac
    case ${{COMP_WORDS[1]}} in
{options}    esac
    if [[ ${{COMP_WORDS[COMP_CWORD]}} == -* ]]; then
        _monp_reply "$options"
    else
        _monp_reply "${{types:+$(_monp_types)}}"
    fi
}}

complete -F _monp monp
complete -F _monpctl monpctl
)shell";

constexpr const char* ZSH = R"shell(#compdef monpctl monp
# Completion of zsh for monpctl and monp, made by `monpctl completion zsh`.

# The monpctl beside the program that was typed, which need not be on the PATH, tells the types.
_monp_types() {{
    local -a types
    types=(${{(f)"$("${{words[1]%monp*}}monpctl" completion types 2>/dev/null)"}})
    compadd -- $types
}}

_monp() {{
    local -a types
    types=(${{(f)"$("${{words[1]%monp*}}monpctl" completion types 2>/dev/null)"}})
    compadd -- --${{^types}} {monitor}
}}

_monpctl() {{
    local -a commands arguments
    commands=(
{names}    )
    if (( CURRENT == 2 )); then
        _describe command commands
        return
    fi
    case $words[2] in
{cases}    esac
    _arguments $arguments
}}

if [[ $service = monp ]]; then _monp; else _monpctl; fi
)shell";

Words spellings_of(const CommandWords& command)
{
    Words all;

    for (const auto& option : command.options) {
        all.insert(all.end(), option.spellings.begin(), option.spellings.end());
    }
    return all;
}

/*
 * A pattern of the shells' case for the spellings of an option that takes a value.
 */
std::string bash_values(const std::vector<CommandWords>& commands)
{
    std::string cases;
    Words done;

    for (const auto& command : commands) {
        for (const auto& option : command.options) {
            if (option.valued && std::ranges::find(done, option.spellings.back()) == done.end()) {
                done.push_back(option.spellings.back());
                cases += fmt::format("    {}) _monp_reply '{}'; return ;;\n", fmt::join(option.spellings, " | "),
                                     fmt::join(option.values, " "));
            }
        }
    }
    return cases;
}

void print_bash(const std::vector<CommandWords>& commands)
{
    std::string options;
    Words names;

    for (const auto& command : commands) {
        names.push_back(command.name);
        options += fmt::format("    {}) options='{}' types={} ;;\n", command.name,
                               fmt::join(spellings_of(command), " "), command.typed ? "yes" : "");
    }
    std::cout << fmt::format(BASH, fmt::arg("actions", ACTIONS), fmt::arg("monitor", MONITOR_OPTIONS),
                             fmt::arg("names", fmt::join(names, " ")), fmt::arg("values", bash_values(commands)),
                             fmt::arg("options", options));
}

/*
 * A text inside single quotes of a shell, where some characters mean something to zsh's descriptions.
 */
std::string quoted(std::string text)
{
    std::erase_if(text, [](char character) { return std::string_view("'[]\\:").find(character) != std::string::npos; });
    return text;
}

void print_zsh(const std::vector<CommandWords>& commands)
{
    std::string names;
    std::string cases;

    for (const auto& command : commands) {
        names += fmt::format("        '{}:{}'\n", command.name, quoted(command.text));
        cases += fmt::format("    {})\n        arguments=(", command.name);
        for (const auto& option : command.options) {
            for (const auto& spelling : option.spellings) {
                const std::string value =
                    option.valued ? fmt::format(":value:({})", fmt::join(option.values, " ")) : "";
                cases += fmt::format("\n            '{}[{}]{}'", spelling, quoted(option.text), value);
            }
        }
        cases += command.typed ? "\n            '*:type:_monp_types')\n        ;;\n" : ")\n        ;;\n";
    }
    std::cout << fmt::format(ZSH, fmt::arg("monitor", MONITOR_OPTIONS), fmt::arg("names", names),
                             fmt::arg("cases", cases));
}

std::string fish_option(const CommandWords& command, const OptionWords& option)
{
    std::string line = fmt::format("complete -c monpctl -n '__fish_seen_subcommand_from {}'", command.name);

    for (const auto& spelling : option.spellings) {
        line += spelling.starts_with("--") ? " -l " + spelling.substr(2) : " -s " + spelling.substr(1);
    }
    if (option.valued) {
        line += fmt::format(" -x -a '{}'", fmt::join(option.values, " "));
    }
    return fmt::format("{} -d '{}'\n", line, quoted(option.text));
}

void print_fish(const std::vector<CommandWords>& commands)
{
    std::cout << "# Completion of fish for monpctl and monp, made by `monpctl completion fish`.\n\n"
                 "# The monpctl beside the program that was typed, which need not be on the PATH, tells the types.\n"
                 "function __monp_types\n"
                 "    set -l typed (commandline -opc)\n"
                 "    set -l tool (string replace -r 'monp(ctl)?$' monpctl -- $typed[1])\n"
                 "    $tool completion types 2>/dev/null\n"
                 "end\n\n"
                 "complete -c monpctl -f\n"
                 "complete -c monp -f -a '(printf \"--%s\\n\" (__monp_types))'\n";
    for (const auto& command : commands) {
        std::cout << fmt::format("complete -c monpctl -n __fish_use_subcommand -a {} -d '{}'\n", command.name,
                                 quoted(command.text));
        if (command.typed) {
            std::cout << fmt::format("complete -c monpctl -n '__fish_seen_subcommand_from {}' -a "
                                     "'(__monp_types)'\n",
                                     command.name);
        }
        for (const auto& option : command.options) {
            std::cout << fish_option(command, option);
        }
    }
}

void print_types(const std::vector<CommandWords>&)
{
    for (const auto& type : known_types()) {
        std::cout << type << '\n';
    }
}

constexpr struct {
    std::string_view name;
    void (*print)(const std::vector<CommandWords>&);
} KINDS[] = { { "bash", print_bash }, { "zsh", print_zsh }, { "fish", print_fish }, { "types", print_types } };

} // namespace

Exit print_completion(const CLI::App& app, const std::string& shell)
{
    for (const auto& kind : KINDS) {
        if (shell == kind.name) {
            kind.print(commands_of(app));
            return EXIT_DONE;
        }
    }
    throw Refusal(fmt::format("'{}' is not a shell with completions; there are bash, zsh and fish", shell));
}

} // namespace monpctl
