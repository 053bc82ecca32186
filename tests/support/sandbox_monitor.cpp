/*
 * Installations and runs. What a run may not do to the machine is sandbox.cpp's business.
 */
#include "sandbox_monitor.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <fnmatch.h>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace sandbox {

namespace {

constexpr const char* PRESET = R"(
    dummyconf=0 all/core=0 all/stacksize=0 all/env/alloc=2 all/env/path=/usr/bin:/bin all/env/lang=C.UTF-8
    monp/type=monitor monp/path=bin/monp monp/log/level=16 monp/log/size=10000000 monp/elog/path=bin/collect
    monp/elog/arcpath=work/elog.tgz monp/elog/rotate=5 monp/elog/pattern=1 monp/md/dirpath=work/marker
    monp/md/filename=made cl/type=cl cl/path=bin/cl down/type=down down/path=bin/down)";

using Values = std::map<std::string, std::string>;

/*
 * Elements for keys, each a path of names.
 */
std::string xml(const Values& values)
{
    std::map<std::string, Values> elements;
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

bool matches(const Line& line, const std::string& pattern)
{
    return fnmatch(pattern.c_str(), (line.level + ' ' + line.text).c_str(), 0) == 0;
}

/*
 * The status of a child that ends soon, as a shell tells it.
 */
int wait_end(const std::string& what, pid_t pid)
{
    int status = 0;

    eventually(what, [&] { return waitpid(pid, &status, WNOHANG) == pid; });
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

Installation::Installation(const std::string& service_type) : type(service_type)
{
    static int count = 0;

    root = directory() / std::to_string(++count) / type;
    for (const char* name : { "bin", "log", "work" }) {
        fs::create_directories(root / name);
    }
    fs::copy_file(SANDBOX_SERVICE, root / "bin/service");
    for (const char* name : { "cl", "down", "collect" }) {
        script(name, "");
    }
    std::istringstream preset(PRESET);
    for (std::string key, value; std::getline(preset >> std::ws, key, '=') && preset >> value;) {
        values[key] = value;
    }
    values["all/path"] = root;
    values["pm/lockf"] = root / "work/lock";
    values[type + "/type"] = type == "pelkant" ? type : type + "_policy";
    values[type + "/path"] = "bin/service";
    own("action") = "1";
    own("param") = "--ctl ../work/ctl report";
    own("restarttime") = "0";
    own("waittime") = "5";
    own("parent_timeout") = "10";
    own("child_timeout") = "5";
}

void Installation::write() const
{
    std::map<std::string, Values> files;

    for (const auto& [key, value] : values) {
        const auto slash = key.find('/');
        files[slash == std::string::npos ? "config.xml" : "policy/" + key.substr(0, slash) + ".xml"][key] = value;
    }
    fs::remove_all(root / "etc");
    fs::create_directories(root / "etc/policy");
    for (const auto& [file, keys] : files) {
        std::ofstream(root / "etc" / file) << "<root>\n" << xml(keys) << "</root>\n";
    }
}

void Installation::script(const std::string& name, const std::string& lines) const
{
    const fs::path file = root / "bin" / name;

    fs::remove(file); // what runs it keeps the old one
    std::ofstream(file) << "#!/bin/sh\necho \"${0##*/}$(printf ' [%s]' \"$@\")\" >>" << (root / "work/calls").string()
                        << '\n'
                        << lines;
    fs::permissions(file, fs::perms(0755));
}

Texts Installation::calls() const
{
    return file_lines(root / "work/calls");
}

std::string& Installation::own(const std::string& key)
{
    return values["monp/service/" + type + '/' + key];
}

void Installation::command(const std::string& line) const
{
    eventually("the service's FIFO", [this] { return fs::is_fifo(root / "work/ctl"); });
    std::ofstream(root / "work/ctl") << line << '\n';
}

std::vector<pid_t> Installation::services() const
{
    std::vector<pid_t> found;
    std::error_code gone;

    for (const auto& entry : fs::directory_iterator("/proc")) {
        if (fs::read_symlink(entry.path() / "exe", gone) == root / "bin/service") {
            found.push_back(std::stoi(entry.path().filename()));
        }
    }
    return found;
}

pid_t Installation::service() const
{
    return eventually("a service", [this] { return services().empty() ? 0 : services().front(); });
}

Monitor::Monitor(const Installation& in, const Texts& arguments, uid_t user) : in_(in)
{
    Texts words = { SANDBOX_MONITOR, "--" + in.type };
    std::vector<char*> argv;

    words.insert(words.end(), arguments.begin(), arguments.end());
    std::transform(words.begin(), words.end(), std::back_inserter(argv), [](auto& word) { return word.data(); });
    argv.push_back(nullptr);
    first_ = fork();
    if (first_ == 0) {
        dup2(open((in.root / "work/stderr").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644), STDERR_FILENO);
        setenv("TESK_HOME", in.root.c_str(), 1);
        if (in.hurried) {
            setenv("LD_PRELOAD", SANDBOX_HURRY, 1);
        }
        in.launcher();
        if (user == 0 || setuid(user) == 0) {
            execv(argv[0], argv.data());
        }
        _exit(127);
    }
}

int Monitor::launched()
{
    const int status = wait_end("the launcher's process", first_);

    end_ = std::chrono::steady_clock::now();
    if (status == 0) {
        daemon();
    }
    return status;
}

double Monitor::seconds() const
{
    return std::chrono::duration<double>(end_ - start_).count();
}

/*
 * Its first line tells; runs before this one may have left such lines too.
 */
pid_t Monitor::daemon()
{
    if (daemon_ == 0) {
        daemon_ = eventually("the daemon", [this] {
            const auto& all = lines();
            const auto found = std::find_if(all.begin(), all.end(), [this](const Line& line) {
                return matches(line, "detail start daemon.*") && std::stoi(line.thread) > first_;
            });
            return found == all.end() ? 0 : std::stoi(found->thread);
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
    return wait_end("the daemon's end", daemon());
}

/*
 * "time level thread ident function place text", the text of an event beginning with its number in brackets.
 */
const std::vector<Line>& Monitor::lines() const
{
    std::ifstream file(in_.root / "log/monp.log");

    file.seekg(read_);
    for (std::string text; std::getline(file, text) && !file.eof();) { // the last one may be half written
        std::istringstream words(text);
        std::string skipped;
        Line line;
        words >> skipped >> line.level >> line.thread >> skipped >> line.function >> skipped;
        std::getline(words.ignore(), line.text);
        if (line.level == "event") {
            line.level += line.text.substr(1, line.text.find(']') - 1);
        }
        lines_.push_back(line);
        read_ += static_cast<std::streamoff>(text.size()) + 1;
    }
    return lines_;
}

int Monitor::count(const std::string& pattern, const std::string& function) const
{
    const auto& all = lines();

    return static_cast<int>(std::count_if(all.begin(), all.end(), [&](const Line& line) {
        return matches(line, pattern) && fnmatch(function.c_str(), line.function.c_str(), 0) == 0;
    }));
}

void Monitor::wait_for(const std::string& pattern, int times, const std::string& function) const
{
    eventually(pattern, [&] { return count(pattern, function) >= times; });
}

void Monitor::wait_for_report(int times) const
{
    // The launcher's process writes the same text, about the daemon's signal.
    wait_for("trace catch signal. (* sig=10)", times, "monp_sighandler1");
}

testing::AssertionResult Monitor::logged(const Texts& patterns) const
{
    const auto& all = lines();
    auto from = all.begin();

    for (const auto& pattern : patterns) {
        from = std::find_if(from, all.end(), [&](const Line& line) { return matches(line, pattern); });
        if (from == all.end()) {
            auto failure = testing::AssertionFailure() << "missing: " << pattern << "\nin:";
            std::for_each(all.begin(), all.end(), [&](const Line& l) { failure << '\n' << l.level << ' ' << l.text; });
            return failure;
        }
        ++from;
    }
    return testing::AssertionSuccess();
}

} // namespace sandbox
