// Where the monitor's module is tested: scripted libraries and system calls, and a journal of all it says and does.
// The archive under test refers to these stand-ins alone: nothing here really waits, signals, starts or shuts down.
#pragma once

#include "monp.h"

#include <csignal>
#include <cstdarg>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

extern "C" int monp_main(int argc, char** argv);

std::string vfmt(const char* format, va_list args);
std::string fmt(const char* format, ...) __attribute__((format(printf, 1, 2)));

// What is known of a journal entry beside its text.
struct Note {
    int thread = 0;     // that made it: 0 the main one, 1 and on the collections
    int clock = 0;      // when it began, in milliseconds
    int result = 0;     // of a call; of a sleep the time when it ended
    int error = 0;      // errno of a failed call
    int status = 0;     // raw wait status
    std::string text{}; // what a call read
};

// Log records as "error: text" or "event: 2 trn 5", calls of the libraries and the system as "kill 4711 10".
struct Journal {
    // Is asked at every entry for the code of the call; may let anything happen. Signals are entries then, too.
    std::function<int(size_t entry)> chance;
    std::map<std::string, int> fails; // calls that fail, "fork" or "access /p 1" -> errno or library code
    std::map<std::string, std::function<void()>> when; // happens, once, while an entry is being made
    std::vector<std::string> entries;
    std::vector<Note> notes; // as many
    size_t last = 0;         // entry of the call that returned last

    size_t add(const std::string& entry);
    int call(const std::string& entry); // adds it and tells its code, 0 for success
    Note& answer();                     // of the call that returned last
    // The entries whose first word is among the words given (none: all) and that contain none of some texts, in order,
    // joined by "; ".
    std::string only(const std::string& words, const std::vector<std::string>& without = {}) const;
    size_t count(const std::string& begin) const;
};

constexpr int FOREVER = -1;
constexpr int YES = -1;    // of a flag
constexpr int CORE = 0x80; // in a wait status

constexpr int exited(int code)
{
    return code << 8;
}

struct Process {
    int runs = FOREVER;    // seconds from its start to its end by itself
    int status = 0;        // wait status of its end
    int reports = FOREVER; // seconds from its start to its SIGUSR1 to the monitor
    int ack = -1;          // wait status when SIGUSR1 ends it; -1: it ignores that
    std::string exe{};     // target of its link in /proc; empty: a child, and not listed there
    bool zombie = false;   // ended, not reaped
    int refused = 0;       // errno of its execv
};

struct Sys {
    int clock = 0; // milliseconds; moves only when the code sleeps
    std::map<pid_t, Process> processes;
    std::deque<Process> next;                            // what the coming forks start; then processes that never end
    std::map<std::string, std::deque<Process>> programs; // the same for single executables; comes first
    pid_t pid = 4711;                                    // of the next one
    enum { PROGRAM, DAEMON, LAUNCHER } fork = PROGRAM;   // the next fork starts it, or the code goes on as one of these
    std::string resolved;                                // by realpath; empty: paths are what they are
    std::map<int, sighandler_t> handlers;
    pid_t ppid = 900; // the launcher, as long as it lives
    uid_t uid = 0;
    int systemresult = 0;
    bool forks = true;          // false: what a child does between fork and exec is left out, which saves a real one
    std::optional<int> threads; // milliseconds from the creation of a collection to its first turn; none: it never runs
    std::optional<std::set<std::string>> files; // that there are, in the place of the machine's own
    int patience = 100 * 1000;                  // milliseconds; a run that is not over by then is stuck
    std::multimap<int, std::function<void()>> events;

    void at(double second, std::function<void()> event);
    void signal(int signal); // through the daemon's handler; it cuts a sleep short
    void signal_at(double second, int signal);
    std::string run(const std::function<void()>& body); // until it returns or ends its process: "exit 4", "_exit 0"
    int advance(int milliseconds);                      // -1 with EINTR when a signal comes before they are over
    void end(pid_t process, int status);
    [[noreturn]] void stop(const std::string& how); // leaves run(), which tells how
    void finish();                                  // lets the collections that are left run to their end

private:
    bool cut = false;
};

// The values of the policy, by key.
struct Policy {
    std::map<std::string, std::variant<int, std::string>> values;

    void fill(const std::string& type); // a whole policy for a service type, whose own section states the type "trn"
};

int stage_thread();     // which one asks, see Note
extern int stage_child; // in the child of a fork: the descriptor on which it tells its parent of its entries; else -1

extern Journal journal;
extern Sys sys;
extern Policy xml;

// Every test starts as at program start: an open log, "dusko" on the command line and "trn" as policy type.
struct Monitor : testing::Test {
    Monitor();
};

// Words separated by bars, as an argument list.
struct Words {
    explicit Words(const std::string& text);
    std::vector<std::string> list;
    std::vector<char*> argv; // with the null pointer
};

// Runs the whole monitor, daemon included; tells how it ended.
std::string run_monitor(const std::string& arguments);

inline char* arg(const char* text)
{
    return const_cast<char*>(text);
}

template <size_t N> void put(char (&field)[N], const std::string& text)
{
    ASSERT_LT(text.size(), N);
    field[text.copy(field, N - 1)] = '\0';
}

// With a marker file that cannot be made, so that every try leaves one error line.
void break_marker();

inline std::string x(size_t count, char letter = 'x')
{
    return std::string(count, letter);
}
