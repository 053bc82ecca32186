/*
 * The sample service and the commands that it understands, as arguments and as control lines alike.
 */
#ifndef SAMPLE_SERVICE_H
#define SAMPLE_SERVICE_H

#include <chrono>
#include <deque>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace sample {

/* What an end request does, beside an exit status 0 to 255. */
constexpr int END_IGNORED = -1;
constexpr int END_BY_SIGNAL = -2;

/* Arguments or a control line that make no sense; the text names the word. */
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Service;

/* A command; `value` names its value in the help, null where it has none. */
struct Verb {
    const char* name;
    const char* value;
    std::optional<int> (*parse)(const std::string& text);
    void (*run)(Service& service, int value);
    const char* help;
};

struct Command {
    const Verb* verb;
    int value;
};

/* Paths of the command line, empty where not given. */
struct Options {
    std::string log;
    std::string ctl;
    std::string pidfile;
    std::string coredir;
    std::vector<std::string> words; /* the commands */
    bool help = false;
};

/* All commands, in the order of the help. */
std::span<const Verb> verbs();

/*
 * Reads a row of words as commands; throws UsageError.
 *   has_coredir  whether a core dump has a place, without which "core" is refused
 */
std::deque<Command> parse_commands(const std::vector<std::string>& words, bool has_coredir);

/*
 * The running service. Its public operations from report() on are what the commands do.
 */
class Service {
public:
    /* Opens what the options name and enters the dump directory; throws std::runtime_error when it cannot. */
    explicit Service(const Options& options);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /* Says that it runs and takes the commands to begin with. */
    void start(std::deque<Command> commands);
    /* Does commands, answers end requests and reads control lines until one of these ends the process. */
    [[noreturn]] void serve();

    void report();
    /* Returns at once; holds up the commands that follow. */
    void sleep_for(int seconds);
    /* An exit status, END_IGNORED or END_BY_SIGNAL. */
    void set_end(int rule);
    [[noreturn]] void end_with(int status);
    [[noreturn]] void end_by(int sig);
    [[noreturn]] void end_with_core();
    void stop();
    /* Returns in the copy only. */
    void daemonise();

private:
    void note(const std::string& text) const;
    void open_log(const std::string& path);
    void open_control(const std::string& path);
    void write_pidfile() const;
    [[nodiscard]] int poll_timeout() const;
    void on_end_request();
    void on_control_input();
    void on_control_line(const std::string& line);

    std::string pidfile_;
    bool has_coredir_;
    int log_fd_ = -1;
    int ctl_fd_ = -1;
    int end_fd_ = -1;
    std::string input_;      /* begun control line */
    bool input_cut_ = false; /* its beginning was thrown away as too long */
    std::deque<Command> todo_;
    std::optional<std::chrono::steady_clock::time_point> wake_; /* set while a sleep holds up what is left to do */
    int end_rule_ = 0;
};

} // namespace sample

#endif
