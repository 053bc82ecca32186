/*
 * Installations and runs. What a run may not do to the machine is sandbox.cpp's business.
 */
#include "sandbox_monitor.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fnmatch.h>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace sandbox {

namespace {

std::vector<pid_t> processes()
{
    std::vector<pid_t> found;

    for (const auto& entry : fs::directory_iterator("/proc")) {
        const int number = std::atoi(entry.path().filename().c_str());
        if (number > 0) {
            found.push_back(number);
        }
    }
    return found;
}

/*
 * Elements for keys, each a path of names.
 */
std::string xml(const std::map<std::string, std::string>& values)
{
    std::map<std::string, std::map<std::string, std::string>> elements;
    std::string text;

    for (const auto& [key, value] : values) {
        const auto slash = key.find('/');
        elements[key.substr(0, slash)][slash == std::string::npos ? "" : key.substr(slash + 1)] = value;
    }
    for (const auto& [name, content] : elements) {
        text.append("<").append(name).append(">");
        text.append(content.contains("") ? content.at("") : xml(content)).append("</").append(name).append(">\n");
    }
    return text;
}

/*
 * "time level thread ident function place text", the text of an event beginning with its number in brackets.
 */
Line parse(const std::string& text)
{
    std::istringstream words(text);
    std::string skipped;
    Line line;

    words >> skipped >> line.level >> line.thread >> skipped >> line.function >> skipped;
    std::getline(words.ignore(), line.text);
    if (line.level == "event") {
        line.level += std::to_string(std::atoi(line.text.c_str() + 1));
    }
    return line;
}

bool matches(const Line& line, const std::string& pattern)
{
    return fnmatch(pattern.c_str(), (line.level + ' ' + line.text).c_str(), 0) == 0;
}

} // namespace

fs::path proc(pid_t pid, const std::string& file)
{
    return fs::path("/proc") / std::to_string(pid) / file;
}

std::string process_status(pid_t pid, const std::string& name)
{
    for (const auto& line : file_lines(proc(pid, "status"))) {
        if (line.starts_with(name + ":\t")) {
            return line.substr(name.size() + 2);
        }
    }
    return "";
}

Installation::Installation(const std::string& service_type)
    : type(service_type), policy_type(type == "pelkant" ? type : type + "_policy")
{
    static int count = 0;
    const std::string own_key = "monp/service/" + type + '/';

    root = directory() / std::to_string(++count) / type;
    for (const char* name : { "bin", "log", "work" }) {
        fs::create_directories(root / name);
    }
    fs::copy_file(SANDBOX_SERVICE, root / "bin/service");
    for (const char* name : { "cl", "down", "collect" }) {
        fs::copy_file(SANDBOX_RECORDER, root / "bin" / name);
    }
    values = {
        { "dummyconf", "0" },
        { "all/path", root },
        { "all/core", "0" },
        { "all/stacksize", "0" },
        { "all/env/alloc", "2" },
        { "all/env/path", "/usr/bin:/bin" },
        { "all/env/lang", "C.UTF-8" },
        { "pm/lockf", root / "work/lock" },
        { "monp/type", "monitor" },
        { "monp/path", "bin/monp" },
        { "monp/log/level", "16" },
        { "monp/log/size", "10000000" },
        { "monp/elog/path", "bin/collect" },
        { "monp/elog/arcpath", "work/elog.tgz" },
        { "monp/elog/rotate", "5" },
        { "monp/elog/pattern", "1" },
        { "monp/md/dirpath", "work/marker" },
        { "monp/md/filename", "made" },
        { own_key + "action", "1" },
        { own_key + "param", "--ctl ../work/ctl report" },
        { own_key + "restarttime", "0" },
        { own_key + "waittime", "5" },
        { own_key + "parent_timeout", "10" },
        { own_key + "child_timeout", "5" },
        { type + "/type", policy_type },
        { type + "/path", "bin/service" },
        { "cl/type", "cl" },
        { "cl/path", "bin/cl" },
        { "down/type", "down" },
        { "down/path", "bin/down" },
    };
}

void Installation::write() const
{
    std::map<std::string, std::map<std::string, std::string>> files;
    std::ofstream answers(root / "work/answers");

    for (const auto& [call, result] : results) {
        answers << call << '=' << result << '\n';
    }
    for (const auto& [key, value] : values) {
        const auto slash = key.find('/');
        answers << "/root/" << key << '=' << value << '\n';
        files[slash == std::string::npos ? "config.xml" : "policy/" + key.substr(0, slash) + ".xml"][key] = value;
    }
    fs::remove_all(root / "etc");
    fs::create_directories(root / "etc/policy");
    for (const auto& [file, keys] : files) {
        std::ofstream(root / "etc" / file) << "<root>\n" << xml(keys) << "</root>\n";
    }
}

std::string& Installation::own(const std::string& key)
{
    return values["monp/service/" + type + '/' + key];
}

void Installation::command(const std::string& line) const
{
    const int fifo = eventually("the service's FIFO", [&] {
        return std::max(0, open((root / "work/ctl").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    });

    if (::write(fifo, (line + '\n').c_str(), line.size() + 1) < 0) {
        throw std::runtime_error("the service takes no command");
    }
    close(fifo);
}

std::vector<std::string> Installation::calls(const std::string& program) const
{
    std::vector<std::string> calls;

    for (const auto& line : file_lines(root / "work" / (program + ".log"))) {
        calls.push_back(line.substr(std::min(line.size(), line.find('['))));
    }
    return calls;
}

std::vector<pid_t> Installation::services() const
{
    std::vector<pid_t> found;
    std::error_code gone;

    for (const pid_t pid : processes()) {
        if (fs::read_symlink(proc(pid, "exe"), gone) == root / "bin/service") {
            found.push_back(pid);
        }
    }
    return found;
}

pid_t Installation::service() const
{
    return eventually("a service", [this] { return services().empty() ? 0 : services().front(); });
}

Monitor::Monitor(const Installation& in, const std::vector<std::string>& arguments, uid_t user) : in_(in)
{
    std::vector<std::string> words = { SANDBOX_MONITOR, "--" + in.type };
    std::vector<char*> argv;

    words.insert(words.end(), arguments.begin(), arguments.end());
    std::transform(words.begin(), words.end(), std::back_inserter(argv), [](auto& word) { return word.data(); });
    argv.push_back(nullptr);
    start_ = std::chrono::steady_clock::now();
    first_ = fork();
    if (first_ == 0) {
        const int error = open((in.root / "work/stderr").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        dup2(error, STDERR_FILENO);
        close(error);
        setenv("TESK_HOME", in.root.c_str(), 1);
        setenv("PATH", "/inherited", 1);
        setenv("LANG", "inherited", 1);
        if (in.recording) {
            setenv("LD_LIBRARY_PATH", SANDBOX_LIBRARIES, 1);
            setenv("SANDBOX_RECORD", (in.root / "work/record").c_str(), 1);
            setenv("SANDBOX_ANSWERS", (in.root / "work/answers").c_str(), 1);
        }
        if (user == 0 || setuid(user) == 0) {
            execv(argv[0], argv.data());
        }
        _exit(127);
    }
}

int Monitor::launched()
{
    int status = 0;

    if (status_ < 0) {
        eventually("the launcher's process", [&] { return waitpid(first_, &status, WNOHANG) == first_; });
        end_ = std::chrono::steady_clock::now();
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        if (status_ == 0) {
            daemon();
        }
    }
    return status_;
}

double Monitor::seconds() const
{
    return std::chrono::duration<double>(end_ - start_).count();
}

/*
 * The first process's child until that one ends, ours afterwards; the environment tells it from those of other runs. A
 * started program looks the same until its exec, but is the daemon's child.
 */
pid_t Monitor::daemon()
{
    const std::string home = "TESK_HOME=" + in_.root.string() + '\0';
    const auto is_daemon = [&](pid_t pid) {
        const std::string parent = process_status(pid, "PPid");
        return pid > first_ && process_status(pid, "Name") == "monp" &&
               (parent == std::to_string(first_) || parent == "1") &&
               file_content(proc(pid, "environ")).find(home) != std::string::npos;
    };

    if (daemon_ == 0) {
        daemon_ = eventually("the daemon", [&] {
            const auto all = processes();
            const auto found = std::find_if(all.begin(), all.end(), is_daemon);
            return found == all.end() ? 0 : *found;
        });
    }
    return daemon_;
}

void Monitor::signal(int number)
{
    kill(daemon(), number);
}

int Monitor::ended()
{
    int status = 0;

    launched();
    await("the daemon's end", [&] { return waitpid(daemon_, &status, WNOHANG) == daemon_; });
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<Line> Monitor::lines() const
{
    std::vector<Line> lines;

    for (const auto& line : file_lines(in_.root / (in_.recording ? "work/record" : "log/monp.log"))) {
        lines.push_back(parse(line));
    }
    return lines;
}

int Monitor::count(const std::string& pattern) const
{
    const auto all = lines();

    return static_cast<int>(
        std::count_if(all.begin(), all.end(), [&](const Line& line) { return matches(line, pattern); }));
}

void Monitor::wait_for(const std::string& pattern, int times) const
{
    await('"' + pattern + '"', [&] { return count(pattern) >= times; });
}

void Monitor::wait_for_report(int times) const
{
    // The launcher's process writes the same text, about the daemon's signal.
    await("a report", [&] {
        const auto all = lines();
        return std::count_if(all.begin(), all.end(), [](const Line& line) {
                   return line.function == "monp_sighandler1" && matches(line, "trace catch signal. (* sig=10)");
               }) >= times;
    });
}

void Monitor::await(const std::string& what, const std::function<bool()>& ask) const
{
    try {
        eventually(what, ask);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(error.what() + log());
    }
}

std::string Monitor::log() const
{
    std::string text;

    for (const auto& line : lines()) {
        text += '\n' + line.level + ' ' + line.text;
    }
    return text;
}

testing::AssertionResult Monitor::logged(const std::vector<std::string>& patterns) const
{
    const auto all = lines();
    auto from = all.begin();

    for (const auto& pattern : patterns) {
        from = std::find_if(from, all.end(), [&](const Line& line) { return matches(line, pattern); });
        if (from == all.end()) {
            return testing::AssertionFailure() << "missing: " << pattern << "\nin:" << log();
        }
        ++from;
    }
    return testing::AssertionSuccess();
}

} // namespace sandbox
