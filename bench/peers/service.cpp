/*
 * The trivial service that every supervisor gets: its first act is to note the time, then it reports if it was asked
 * to, and sleeps until a signal ends it. Linked statically, so that its own start costs next to nothing.
 * Usage: peers_service STAMPS [report | daemon PIDFILE]; called "run", which some supervisors insist on, it takes no
 * arguments and notes the time in the file "stamps" of the working directory.
 * A line of the file: the pid, and nanoseconds of the monotonic clock.
 */
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

static void stamp(const char* path, const timespec& now)
{
    char line[64];
    const int length = std::snprintf(line, sizeof(line), "%d %lld\n", static_cast<int>(getpid()),
                                     static_cast<long long>(now.tv_sec) * 1000000000 + now.tv_nsec);
    const int file = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);

    if (file < 0 || write(file, line, static_cast<size_t>(length)) != length) {
        _exit(1);
    }
    close(file);
}

static void leave_a_copy(const char* pidfile)
{
    const pid_t child = fork();

    if (child != 0) {
        FILE* file = std::fopen(pidfile, "w");
        if (file == nullptr || std::fprintf(file, "%d\n", static_cast<int>(child)) < 0 || std::fclose(file) != 0) {
            _exit(1);
        }
        _exit(0);
    }
}

int main(int argc, char** argv)
{
    const bool called_run = std::strcmp(basename(argv[0]), "run") == 0;
    const char* path = called_run || argc < 2 ? "stamps" : argv[1];
    timespec now = {};

    clock_gettime(CLOCK_MONOTONIC, &now);
    if (!called_run && argc > 3 && std::strcmp(argv[2], "daemon") == 0) {
        leave_a_copy(argv[3]);
    }
    stamp(path, now);
    if (!called_run && argc > 2 && std::strcmp(argv[2], "report") == 0) {
        clock_gettime(CLOCK_MONOTONIC, &now);
        stamp(path, now);
        kill(getppid(), SIGUSR1);
    }
    for (;;) {
        pause();
    }
}
