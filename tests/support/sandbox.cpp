/*
 * The namespaces, the stub in the place of /sbin/shutdown and its proof. The monitor runs are sandbox_monitor's.
 */
#include "sandbox.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <sched.h>
#include <sstream>
#include <stdexcept>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <linux/magic.h>

namespace fs = std::filesystem;

namespace sandbox {

namespace {

constexpr int CANNOT = 125;

fs::path gdirectory;

constexpr const char* DIRECTORY = "/run/monp_tests";
constexpr const char* SHUTDOWN = "/sbin/shutdown";
constexpr const char* RECORD = "/sbin/shutdown.record";
constexpr const char* STATUS = "/sbin/shutdown.status";

constexpr const char* STUB = "#!/bin/sh\n"
                             "echo \"$0 $*\" >>/sbin/shutdown.record\n"
                             "read status </sbin/shutdown.status\n"
                             "exit \"$status\"\n";

void require(bool ok, const std::string& what)
{
    if (!ok) {
        throw std::runtime_error(what + ": " + std::strerror(errno));
    }
}

/*
 * /sbin/shutdown is a symbolic link to a program that other names share, so the directory is covered, not the file.
 */
void cover_shutdown()
{
    const fs::path directory = fs::canonical(fs::path(SHUTDOWN).parent_path());

    require(mount("tmpfs", directory.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") == 0,
            "mount " + directory.string());
    std::ofstream(SHUTDOWN) << STUB;
    require(chmod(SHUTDOWN, 0755) == 0, "chmod");
    shutdown_status(0);
}

/*
 * Mounts a directory at a place that is made for it, with programs that may be executed whatever its file system says.
 */
void show(const fs::path& directory, const fs::path& place)
{
    fs::create_directories(place);
    require(mount(directory.c_str(), place.c_str(), nullptr, MS_BIND, nullptr) == 0, "mount " + place.string());
    require(mount(nullptr, place.c_str(), nullptr, MS_REMOUNT | MS_BIND, nullptr) == 0, "remount " + place.string());
}

/*
 * The mode of the machine's /run does not matter, and its log does not hear of halts that never were. Below it, every
 * user can reach the programs and our directory, though the paths that lead to them may be root's alone.
 */
void cover_run()
{
    require(mount("tmpfs", "/run", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") == 0, "mount /run");
    if (fs::exists("/dev/log")) {
        require(mount("/dev/null", "/dev/log", nullptr, MS_BIND, nullptr) == 0, "/dev/log");
    }
    show(gdirectory, DIRECTORY);
    gdirectory = DIRECTORY;
    for (const char* part : { "bin", "lib" }) {
        show(fs::path(SANDBOX_BUILD) / part, fs::path(SANDBOX_PROGRAMS) / part);
    }
}

/*
 * Looks before it calls, and calls with an argument that the system's own program only answers with its usage.
 */
void prove_shutdown()
{
    struct statfs where = {};
    struct stat what = {};

    require(statfs(SHUTDOWN, &where) == 0 && lstat(SHUTDOWN, &what) == 0, SHUTDOWN);
    errno = EPERM;
    require(where.f_type == TMPFS_MAGIC && S_ISREG(what.st_mode) && file_content(SHUTDOWN) == STUB, "not the stub");
    require(std::system("/sbin/shutdown --help") == 0, "the stub does not run");
    require(shutdown_calls() == std::vector<std::string>{ "/sbin/shutdown --help" }, "the stub does not record");
    require(unlink(RECORD) == 0, RECORD);
}

/*
 * The programs that the work starts, and those that they start, leave their reports here: a daemon's standard error and
 * status reach nobody.
 */
void divert_sanitizers()
{
    for (const std::string name : { "ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS" }) {
        const char* given = std::getenv(name.c_str());
        // A library may be preloaded, before the sanitizer's own.
        const std::string link = name == "ASAN_OPTIONS" ? "verify_asan_link_order=0:" : "";
        const std::string options = (given == nullptr ? "" : given + std::string(":")) + link + "log_path=";
        setenv(name.c_str(), (options + (gdirectory / "sanitizer").string()).c_str(), 1);
    }
}

int judge_sanitizers(int status)
{
    for (const auto& entry : fs::directory_iterator(gdirectory)) {
        if (entry.path().filename().string().starts_with("sanitizer.")) {
            std::cerr << file_content(entry.path());
            status = 1;
        }
    }
    return status;
}

int inside()
{
    umask(022);
    try {
        require(getpid() == 1, "not process 1");
        require(prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "prctl");
        require(mount("proc", "/proc", "proc", 0, nullptr) == 0, "mount /proc");
        cover_shutdown();
        cover_run();
        prove_shutdown();
    } catch (const std::exception& error) {
        std::cerr << "sandbox: no test is run: " << error.what() << '\n';
        return CANNOT;
    }
    divert_sanitizers();
    return judge_sanitizers(RUN_ALL_TESTS());
}

/*
 * The tests, as process 1; their directory is this process's, as nothing of them outlives it.
 */
int run_namespaces()
{
    int status = 0;

    require(unshare(CLONE_NEWNS | CLONE_NEWPID) == 0, "unshare");
    require(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
    std::cout.flush();
    const pid_t child = fork();
    if (child == 0) {
        std::exit(inside());
    }
    require(child > 0 && waitpid(child, &status, 0) == child, "process 1");
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/*
 * Runs the tests in a mount namespace where /sbin holds nothing but a stub named shutdown, and not at all unless the
 * stub has been shown to be what /sbin/shutdown starts.
 * Result: their status, 1 if a sanitizer has reported a fault of a program that they started, or 125 without a sandbox.
 */
int run()
{
    std::string name = (fs::temp_directory_path() / "monp_XXXXXX").string();
    int status = CANNOT;

    try {
        require(mkdtemp(name.data()) != nullptr && chmod(name.c_str(), 0755) == 0, name);
        gdirectory = fs::canonical(name);
        status = run_namespaces();
    } catch (const std::exception& error) {
        std::cerr << "sandbox: no test is run: " << error.what() << '\n';
    }
    fs::remove_all(gdirectory); // by the name that it has outside
    return status;
}

} // namespace

const fs::path& directory()
{
    return gdirectory;
}

std::string file_content(const fs::path& file)
{
    std::ostringstream text;

    text << std::ifstream(file).rdbuf();
    return text.str();
}

std::vector<std::string> file_lines(const fs::path& file)
{
    std::ifstream stream(file);
    std::vector<std::string> lines;

    for (std::string line; std::getline(stream, line) && !stream.eof();) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> shutdown_calls()
{
    return file_lines(RECORD);
}

void shutdown_status(int status)
{
    std::ofstream(STATUS) << status << '\n';
}

} // namespace sandbox

/*
 * Names of tests are asked for while building, by whoever builds; only running them needs the sandbox.
 */
int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    // A process whose namespace for children is gone can start none any more, which a leak checker at exit would need.
    _exit(sandbox::run());
}
