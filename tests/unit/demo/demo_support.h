/*
 * What the tests of the sample installation share: a directory of their own, and starting programs and looking at ends.
 */
#ifndef DEMO_SUPPORT_H
#define DEMO_SUPPORT_H

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace demo {

namespace fs = std::filesystem;

inline const fs::path BIN = DEMO_BIN;       /* the built sample programs */
inline const fs::path SOURCE = DEMO_SOURCE; /* examples/demo */

class TempDir {
public:
    TempDir()
    {
        std::string name = (fs::temp_directory_path() / "monp_demo.XXXXXX").string();
        path = mkdtemp(name.data());
    }
    ~TempDir()
    {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    fs::path path;
};

inline std::string read_file(const fs::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

inline void write_file(const fs::path& path, const std::string& text)
{
    std::ofstream(path) << text;
}

/* The words of a text, as the monitor makes arguments of "param". */
inline std::vector<std::string> split(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

/* Starts a program the way the monitor does: signals ignored, mask 0. Standard error goes to a file if one is named. */
inline pid_t spawn(const std::vector<std::string>& words, const fs::path& directory, const fs::path& output = {})
{
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (const std::string& word : words) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);

    const pid_t pid = fork();
    if (pid < 0) {
        throw std::runtime_error("fork failed");
    }
    if (pid == 0) {
        for (const int sig : { SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGBUS, SIGFPE }) {
            std::signal(sig, SIG_IGN);
        }
        umask(0);
        if (!output.empty()) {
            const int fd = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(fd, STDOUT_FILENO);
            dup2(fd, STDERR_FILENO);
        }
        if (chdir(directory.c_str()) == 0) {
            execv(argv[0], argv.data());
        }
        _exit(127);
    }
    return pid;
}

template <typename Condition> bool wait_until(Condition condition)
{
    for (int i = 0; i < 1000; i++) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

/* Signals one process of ours: 0, 1 and -1 would reach far more. */
inline void send(pid_t pid, int sig)
{
    if (pid <= 1) {
        throw std::runtime_error("no process to signal");
    }
    kill(pid, sig);
}

/* The wait status of a child; one that has not ended in time is killed, and -1 is the result. */
inline int wait_for_end(pid_t pid)
{
    int status = -1;

    if (!wait_until([&] { return waitpid(pid, &status, WNOHANG) == pid; })) {
        send(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        status = -1;
    }
    return status;
}

/* The schema that a policy file has to fit: the one named after it, else the one that all services share. */
inline fs::path schema_of(const fs::path& schemas, const fs::path& file)
{
    const fs::path own = schemas / (file.stem().string() + ".rng");
    return fs::exists(own) ? own : schemas / "service.rng";
}

struct Outcome {
    int status;       /* exit status, or -1 */
    std::string text; /* standard output and standard error */
};

inline Outcome run(const std::vector<std::string>& words, const fs::path& directory)
{
    const TempDir temp;
    const int status = wait_for_end(spawn(words, directory, temp.path / "output"));
    return { status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(temp.path / "output") };
}

} // namespace demo

#endif
