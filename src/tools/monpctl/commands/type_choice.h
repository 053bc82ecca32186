/*
 * The types that a command is for.
 */
#ifndef MONPCTL_COMMANDS_TYPE_CHOICE_H
#define MONPCTL_COMMANDS_TYPE_CHOICE_H

#include "commands/commands.h"

#include <string>
#include <vector>

namespace monpctl {

/*
 * Which types a command takes: those with a section in the policy, or also one whose monitor runs without.
 */
enum class Taken { known, known_or_running };

/*
 * The chosen types without repetitions: in the order given, or for all in the order of the policy's entries. Throws a
 * Refusal for a type that is not taken, and if there is no choice.
 */
std::vector<std::string> chosen_types(const TypeChoice& choice, Taken taken);

/*
 * Runs a command for each of some types, also after one that failed. An exception about one type is printed, and counts
 * as EXIT_FAILED.
 * Result: the worst.
 */
template <typename Command> Exit for_each_type(const std::vector<std::string>& types, Command command);

void print_failure(const std::string& type, const std::exception& error);

template <typename Command> Exit for_each_type(const std::vector<std::string>& types, Command command)
{
    Exit result = EXIT_DONE;

    for (const auto& type : types) {
        try {
            result = worse(result, command(type));
        } catch (const std::exception& error) {
            print_failure(type, error);
            result = worse(result, EXIT_FAILED);
        }
    }
    return result;
}

} // namespace monpctl

#endif
