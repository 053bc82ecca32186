#include "trial.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <sched.h>
#include <sstream>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace peers {

namespace {

void require(bool ok, const std::string& what)
{
    if (!ok) {
        throw std::runtime_error(what + ": " + std::strerror(errno));
    }
}

// As process 1: prints the numbers, or the error.
int inside(const std::function<std::vector<double>(const fs::path&)>& work, int output)
{
    std::ostringstream text;
    int status = 0;

    try {
        require(mount("proc", "/proc", "proc", 0, nullptr) == 0, "mount /proc");
        require(mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") == 0, "mount /run");
        std::string directory = fs::temp_directory_path() / "trial.XXXXXX";
        require(mkdtemp(directory.data()) != nullptr, "mkdtemp " + directory);
        text.precision(17);
        for (const double number : work(directory)) {
            text << number << ' ';
        }
    } catch (const std::exception& error) {
        text.str(error.what());
        status = 1;
    }
    return write(output, text.str().data(), text.str().size()) < 0 ? 1 : status;
}

std::string read_all(int file)
{
    std::string text;
    char bytes[4096];
    ssize_t count = 0;

    while ((count = read(file, bytes, sizeof(bytes))) > 0) {
        text.append(bytes, static_cast<size_t>(count));
    }
    return text;
}

} // namespace

int64_t now()
{
    timespec time = {};

    clock_gettime(CLOCK_MONOTONIC, &time);
    return int64_t{ time.tv_sec } * 1000000000 + time.tv_nsec;
}

void pause_for(double seconds)
{
    const auto whole = static_cast<time_t>(seconds);
    timespec left{ whole, static_cast<long>((seconds - static_cast<double>(whole)) * 1e9) };

    while (nanosleep(&left, &left) != 0 && errno == EINTR) {}
}

std::vector<double> in_namespace(const std::function<std::vector<double>(const fs::path&)>& work)
{
    int ends[2];
    int status = 0;

    require(pipe2(ends, O_CLOEXEC) == 0, "pipe");
    const pid_t outer = fork();
    require(outer >= 0, "fork");
    if (outer == 0) {
        // a process in between, as the one that unshares does not enter the namespace itself
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (unshare(CLONE_NEWPID | CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            _exit(2);
        }
        const pid_t first = fork();
        if (first == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(ends[0]);
            _exit(inside(work, ends[1]));
        }
        close(ends[1]);
        waitpid(first, &status, 0);
        _exit(first > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : 2);
    }
    close(ends[1]);
    const std::string text = read_all(ends[0]);
    close(ends[0]);
    require(waitpid(outer, &status, 0) == outer, "waitpid");
    if (status != 0) {
        throw std::runtime_error(text.empty() ? "the trial ended early" : text);
    }
    std::istringstream numbers(text);
    std::vector<double> values;
    for (double value = 0; numbers >> value;) {
        values.push_back(value);
    }
    return values;
}

pid_t spawn(const Command& command)
{
    std::vector<char*> arguments;
    std::vector<char*> environment;
    char path[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";

    for (const std::string& word : command.arguments) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    for (const std::string& entry : command.environment) {
        environment.push_back(const_cast<char*>(entry.c_str()));
    }
    environment.push_back(path);
    arguments.push_back(nullptr);
    environment.push_back(nullptr);

    const pid_t pid = vfork(); // the cheapest there is, as it is not what is measured
    require(pid >= 0, "vfork");
    if (pid == 0) {
        const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
        dup2(null, STDIN_FILENO);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        execve(arguments[0], arguments.data(), environment.data());
        _exit(127);
    }
    return pid;
}

double run(const Command& command)
{
    int status = 0;
    const int64_t start = now();
    const pid_t pid = spawn(command);

    require(waitpid(pid, &status, 0) == pid, "waitpid");
    const auto taken = static_cast<double>(now() - start);
    if (!WIFEXITED(status) || WEXITSTATUS(status) > 4) {
        throw std::runtime_error(command.arguments.front() + " ended with wait status " + std::to_string(status));
    }
    return taken;
}

std::vector<Stamp> stamps(const fs::path& directory, int number, size_t count)
{
    const fs::path path = directory / std::to_string(number) / "stamps";
    const int64_t end = now() + 60000000000;
    std::vector<Stamp> found;

    while (found.size() < count) {
        if (now() > end) {
            throw std::runtime_error("service " + std::to_string(number) + " has noted " +
                                     std::to_string(found.size()) + " of " + std::to_string(count) + " times");
        }
        pause_for(0.002);
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
            // as process 1 we inherit what daemons leave; some supervisors take a zombie for a living service
        }
        std::ifstream file(path);
        found.clear();
        for (Stamp stamp{}; file >> stamp.pid >> stamp.time;) {
            found.push_back(stamp);
        }
    }
    return found;
}

std::vector<pid_t> processes(const std::string& program)
{
    std::vector<pid_t> found;

    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        pid_t pid = 0;
        std::error_code gone;
        if (std::from_chars(name.data(), name.data() + name.size(), pid).ec == std::errc() &&
            fs::read_symlink(entry.path() / "exe", gone).filename().string().starts_with(program)) {
            found.push_back(pid);
        }
    }
    return found;
}

Usage usage(pid_t pid)
{
    const fs::path directory = "/proc/" + std::to_string(pid);
    std::ifstream memory(directory / "smaps_rollup");
    std::ifstream schedule(directory / "schedstat");
    Usage found;
    double nanoseconds = 0;

    for (std::string line; std::getline(memory, line);) {
        const double kib = std::strtod(line.c_str() + line.find(':') + 1, nullptr);
        found.private_kib += line.starts_with("Private_") ? kib : 0;
        found.resident_kib += line.starts_with("Rss:") ? kib : 0;
    }
    schedule >> nanoseconds;
    found.processor_us = nanoseconds / 1000;
    return found;
}

} // namespace peers
