#include "commands/launch.h"

#include "common/installation.h"
#include "common/refusal.h"
#include "machine/process.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/file.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace monpctl {

namespace {

[[noreturn]] void fail(int error, const std::string& what)
{
    throw std::system_error(error, std::generic_category(), what);
}

/*
 * The attributes and file actions of a spawn, which have to be given back. The standard descriptors lead nowhere: what
 * the first process says on its standard error is in the log, too.
 */
struct Surroundings {
    posix_spawnattr_t attributes = {};
    posix_spawn_file_actions_t files = {};

    Surroundings();
    ~Surroundings();
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;
};

Surroundings::Surroundings()
{
    sigset_t all;
    sigset_t none;

    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawn_file_actions_init(&files);
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
        posix_spawn_file_actions_addopen(&files, fd, "/dev/null", O_RDWR, 0);
    }
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    posix_spawn_file_actions_addchdir_np(&files, "/");
}

Surroundings::~Surroundings()
{
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
}

} // namespace

StartLock::StartLock(const std::string& type, Clock::time_point limit)
{
    const fs::path file = fs::path(home()) / "run" / fmt::format("monpctl.{}.lock", type);

    fs::create_directory(file.parent_path());
    fd_ = UniqueFd(open(file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd_) {
        fail(errno, file.string());
    }
    while (flock(fd_.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) {
            fail(errno, file.string() + " cannot be locked");
        }
        if (Clock::now() > limit) {
            throw Fault(fmt::format("another start of {} goes on, which holds {}", type, file.string()));
        }
        std::this_thread::sleep_for(LOOK_PAUSE);
    }
}

bool make_lock_file(const Settings& settings)
{
    if (settings.lock_file.empty()) {
        return false;
    }
    const UniqueFd fd(open(settings.lock_file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!fd && errno != EEXIST) {
        warn(settings.type,
             fmt::format("the lock file {} cannot be made: {}", settings.lock_file, std::strerror(errno)));
    }
    return static_cast<bool>(fd);
}

pid_t launch(const std::string& type, const std::vector<std::string>& options)
{
    const Surroundings surroundings;
    std::vector<std::string> words = { monitor_program(), "--" + type };
    std::vector<std::string> environment = { "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "TESK_HOME=" + home() };
    pid_t pid = 0;

    words.insert(words.end(), options.begin(), options.end());
    const int error = posix_spawn(&pid, words.front().c_str(), &surroundings.files, &surroundings.attributes,
                                  pointers(words).data(), pointers(environment).data());
    if (error != 0) {
        fail(error, words.front() + " cannot be started");
    }
    return pid;
}

} // namespace monpctl
