/*
 * The part of a history that an operator asked for: the last so many lines, or those of a period.
 */
#ifndef MONPCTL_COMMANDS_HISTORY_WINDOW_H
#define MONPCTL_COMMANDS_HISTORY_WINDOW_H

#include "commands/commands.h"
#include "common/time_text.h"

#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace monpctl {

class HistoryWindow {
public:
    /* Throws a Refusal for a time that is not one. */
    explicit HistoryWindow(const HistoryOptions& given);

    /* Tells if something of this time is asked for; anything without a time is, unless there is a period. */
    [[nodiscard]] bool contains(const std::optional<Time>& time) const;

    /* Prints a line, or keeps it until finish() if only the last so many are asked for. */
    void print(std::string line);

    /* Prints the lines kept; later ones are printed at once. */
    void finish();

private:
    std::optional<Time> since_;
    std::optional<Time> until_;
    std::optional<size_t> last_;
    std::deque<std::string> kept_;
};

/*
 * A rotated file to print.
 */
struct HistoryFile {
    std::filesystem::path path;
    bool follow = false;         /* go on as it grows */
    bool may_be_missing = false; /* as long as its directory is there: nothing was written yet */
};

/*
 * Reads a file from its oldest generation on, and calls an operation for each line; with `follow` it does not return.
 * Throws a Fault if the file cannot be read, or is missing and neither may be nor is waited for.
 */
void print_history(const HistoryFile& file, HistoryWindow& window, const std::function<void(const std::string&)>& take);

} // namespace monpctl

#endif
