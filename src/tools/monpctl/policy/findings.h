/*
 * The settings that a policy gives a monitor, each with its source, and the problems found on the way.
 */
#ifndef MONPCTL_POLICY_FINDINGS_H
#define MONPCTL_POLICY_FINDINGS_H

#include <string>
#include <vector>

namespace monpctl {

enum class Severity {
    note,
    warning, /* the monitor runs, but not as its policy says, or not for long */
    error    /* the monitor ends on it, or it could not be looked at */
};

/* "note", "warning" or "error". */
const char* word(Severity severity);

/*
 * Where something is written: a line of a file, a whole file, or the command line of a monitor.
 */
struct Place {
    std::string file = {}; /* absolute path; empty: the command line */
    int line = 0;          /* from 1; 0: the whole file */

    auto operator<=>(const Place&) const = default;
};

/* "file:line", "file" or "command line". */
std::string text_of(const Place& place);

struct Problem {
    Place place = {};
    Severity severity = Severity::note;
    std::string sentence = {};   /* without a full stop */
    bool start_only = false;     /* a running monitor has passed it, and a reload does not end on it */
    std::string other_type = {}; /* type that it is about, if that is not the one whose settings are read */

    bool operator==(const Problem&) const = default;
};

/* "place: severity: sentence". */
std::string text_of(const Problem& problem);

/*
 * Sorts by place, and leaves one of several that are equal.
 */
void sort_problems(std::vector<Problem>& problems);

/* Where the value of a setting comes from. */
enum class Source { file, command_line, fallback, missing, formed };

struct Setting {
    std::string name = {}; /* key without its leading "/root/"; a description, if it is formed from several keys */
    std::string value = {};
    Source source = Source::formed;
    Place place = {}; /* of the source file */

    /* Tells if somebody wrote this value, in a file or on the command line. */
    [[nodiscard]] bool given() const;
};

/* "file:line", "command line", "default", "missing" or "formed". */
std::string source_text(const Setting& setting);

struct Findings {
    std::vector<Setting> explained; /* in the order of reading */
    std::vector<Problem> problems;
};

} // namespace monpctl

#endif
