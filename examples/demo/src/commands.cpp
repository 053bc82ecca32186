/*
 * The table of commands and the reading of their values.
 */
#include "service.h"
#include "signals.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace sample {

namespace {

constexpr int MAX_SECONDS = 86400;

/* Default action of these is not the end of the process, so that they are no way to die. */
constexpr std::array NOT_LETHAL = { SIGCHLD, SIGCONT, SIGSTOP, SIGTSTP, SIGTTIN, SIGTTOU, SIGURG, SIGWINCH };

std::optional<int> parse_number(const std::string& text, int min, int max)
{
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(text.c_str(), &end, 10);
    const bool valid = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos && errno == 0 &&
                       *end == '\0' && number >= min && number <= max;

    return valid ? std::optional<int>(static_cast<int>(number)) : std::nullopt;
}

std::optional<int> parse_status(const std::string& text)
{
    return parse_number(text, 0, 255);
}

std::optional<int> parse_seconds(const std::string& text)
{
    return parse_number(text, 0, MAX_SECONDS);
}

std::optional<int> parse_signal(const std::string& text)
{
    const std::string name = text.starts_with("SIG") ? text.substr(3) : text;
    std::optional<int> found = parse_number(text, 1, LAST_CLASSIC_SIGNAL);

    for (int sig = 1; sig <= LAST_CLASSIC_SIGNAL && !found; sig++) {
        const char* abbreviation = sigabbrev_np(sig);
        if (abbreviation != nullptr && name == abbreviation) {
            found = sig;
        }
    }
    if (found && std::find(NOT_LETHAL.begin(), NOT_LETHAL.end(), *found) != NOT_LETHAL.end()) {
        found.reset();
    }
    return found;
}

std::optional<int> parse_end(const std::string& text)
{
    if (text == "ignored") {
        return END_IGNORED;
    }
    return text == "signal" ? END_BY_SIGNAL : parse_status(text);
}

const Verb VERBS[] = {
    { "report", nullptr, nullptr, [](Service& s, int) { s.report(); },
      "tell the parent with SIGUSR1 that it is ready" },
    { "silent", nullptr, nullptr, [](Service&, int) {}, "do nothing; alone: start without a report" },
    { "sleep", "SECONDS", parse_seconds, [](Service& s, int v) { s.sleep_for(v); }, "wait before the next command" },
    { "exit", "STATUS", parse_status, [](Service& s, int v) { s.end_with(v); }, "end with an exit status, 0 to 255" },
    { "signal", "NAME", parse_signal, [](Service& s, int v) { s.end_by(v); },
      "end by a signal (name or number), without a core dump" },
    { "core", nullptr, nullptr, [](Service& s, int) { s.end_with_core(); },
      "end with a core dump in the --coredir directory" },
    { "stop", nullptr, nullptr, [](Service& s, int) { s.stop(); }, "stop itself with SIGSTOP; SIGCONT lets it go on" },
    { "daemon", nullptr, nullptr, [](Service& s, int) { s.daemonise(); },
      "fork; the first process ends with status 0, the copy goes on" },
    { "end", "HOW", parse_end, [](Service& s, int v) { s.set_end(v); },
      "answer an end request so: STATUS, \"ignored\" or \"signal\"" },
};

int parse_value(const Verb& verb, const std::string& text)
{
    const auto value = verb.parse(text);

    if (!value) {
        throw UsageError("'" + std::string(verb.name) + "' needs " + verb.value + ", not '" + text + "'");
    }
    return *value;
}

} // namespace

std::span<const Verb> verbs()
{
    return VERBS;
}

std::deque<Command> parse_commands(const std::vector<std::string>& words, bool has_coredir)
{
    std::deque<Command> commands;

    for (size_t i = 0; i < words.size(); i++) {
        const std::string& word = words[i];
        const auto* verb =
            std::find_if(std::begin(VERBS), std::end(VERBS), [&](const Verb& v) { return word == v.name; });
        int value = 0;

        if (verb == std::end(VERBS)) {
            throw UsageError("unknown command '" + word + "'");
        }
        if (word == "core" && !has_coredir) {
            throw UsageError("'core' needs --coredir, so that the dump has a place");
        }
        if (verb->parse != nullptr) {
            value = parse_value(*verb, ++i < words.size() ? words[i] : "");
        }
        commands.push_back({ verb, value });
    }
    return commands;
}

} // namespace sample
