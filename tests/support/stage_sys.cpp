// The system calls: a clock that moves only when the code sleeps, and a model of processes.
#include "stage.h"

#include <cerrno>
#include <csetjmp>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <set>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

Sys sys;

static jmp_buf way_out;
static std::string ending;
static int to_parent = -1; // in the child of a fork: where its journal goes

// ---- the clock and what it makes happen ----

void Sys::at(double second, std::function<void()> event)
{
    events.emplace(clock + static_cast<int>(second * 1000), std::move(event));
}

void Sys::signal_at(double second, int signal)
{
    at(second, [this, signal] {
        cut = true;
        signal == SIGHUP ? monp_sighup(signal) : monp_sighandler1(signal);
    });
}

int Sys::advance(int milliseconds)
{
    const int end = clock + milliseconds;

    if (end > 100 * 1000) { // a wait that never ends is a fault of the code
        fprintf(stderr, "%s\n", journal.only("").c_str());
        abort();
    }
    for (cut = false; !events.empty() && events.begin()->first <= end;) {
        clock = std::max(clock, events.begin()->first);
        events.extract(events.begin()).mapped()();
        if (cut && clock < end) {
            errno = EINTR;
            return -1;
        }
    }
    clock = end;
    return 0;
}

std::string Sys::run(const std::function<void()>& body)
{
    ending = "returned";
    if (setjmp(way_out) == 0) {
        body();
    }
    return ending;
}

[[noreturn]] static void leave(const char* how, int status)
{
    ending = fmt("%s %d", how, status);
    journal.call(ending);
    longjmp(way_out, 1);
}

static int result(const std::string& entry)
{
    int code = journal.call(entry);
    errno = code != 0 ? code : errno;
    return code != 0 ? -1 : 0;
}

void Sys::end(pid_t process, int status)
{
    auto found = processes.find(process);
    if (found == processes.end() || found->second.zombie) {
        return;
    }
    found->second.zombie = true;
    found->second.status = status;
    if (!found->second.exe.empty()) {
        processes.erase(found);
    }
}

static pid_t start(const Process& process)
{
    pid_t pid = sys.pid++;
    sys.processes[pid] = process;
    if (process.runs != FOREVER) {
        sys.at(process.runs, [pid, process] { sys.end(pid, process.status); });
    }
    if (process.reports != FOREVER) {
        sys.signal_at(process.reports, SIGUSR1);
    }
    sys.advance(0);
    return pid;
}

extern "C" {

unsigned sys_sleep(unsigned seconds)
{
    journal.call(fmt("sleep %u", seconds));
    return sys.advance(static_cast<int>(seconds) * 1000) == 0 ? 0 : 1;
}

int sys_usleep(useconds_t microseconds)
{
    journal.call(fmt("usleep %u", microseconds));
    return sys.advance(static_cast<int>(microseconds) / 1000);
}

int sys_clock_gettime(clockid_t, timespec* now)
{
    *now = { sys.clock / 1000, sys.clock % 1000 * 1000000L };
    return 0;
}

[[noreturn]] void sys_exit(int status)
{
    leave("exit", status);
}

[[noreturn]] void sys__exit(int status)
{
    leave("_exit", status);
}

// ---- processes ----

// The code between fork and exec runs in a real child, which tells what it did there; what the program that it has
// started does after that is the model's.
pid_t sys_fork()
{
    int ends[2];
    char text[8192] = "";

    if (result("fork") != 0) {
        return -1;
    }
    if (auto side = std::exchange(sys.fork, Sys::PROGRAM); side != Sys::PROGRAM) {
        return side == Sys::DAEMON ? 0 : sys.pid;
    }
    pid_t helper = pipe(ends) == 0 ? fork() : -1;
    if (helper == 0) {
        to_parent = ends[1];
        return 0;
    }
    close(ends[1]);
    FILE* from_child = fdopen(ends[0], "r");
    while (fgets(text, sizeof(text), from_child) != nullptr) {
        text[strcspn(text, "\n")] = '\0';
        journal.entries.push_back(text);
    }
    fclose(from_child);
    waitpid(helper, nullptr, 0);
    Process process = sys.next.empty() ? Process() : sys.next.front();
    if (!sys.next.empty()) {
        sys.next.pop_front();
    }
    return start(process);
}

int sys_execv(const char* path, char* const argv[])
{
    std::string entry = std::string("execv ") + path;
    for (; *argv != nullptr; argv++) {
        entry += std::string(" ") + *argv;
    }
    dprintf(to_parent, "%s\n", entry.c_str());
    _exit(0);
}

pid_t sys_waitpid(pid_t pid, int* status, int options)
{
    if (result(fmt("waitpid %d%s", pid, options == WNOHANG ? "" : fmt(" %d", options).c_str())) != 0) {
        return -1;
    }
    auto found = sys.processes.find(pid);
    if (found == sys.processes.end() || !found->second.exe.empty()) {
        errno = ECHILD;
        return -1;
    }
    while (!found->second.zombie) {
        if (options == WNOHANG) {
            return 0;
        }
        sys.advance(1000);
    }
    *status = found->second.status;
    sys.processes.erase(found);
    return pid;
}

int sys_kill(pid_t pid, int signal)
{
    EXPECT_GT(pid, 0) << "a process group";
    if (result(fmt("kill %d %d", pid, signal)) != 0) {
        return -1;
    }
    auto found = sys.processes.find(pid);
    if (found == sys.processes.end()) {
        errno = ESRCH;
        return -1;
    }
    if (signal == SIGKILL || (signal == SIGUSR1 && found->second.ack != -1)) {
        sys.end(pid, signal == SIGKILL ? SIGKILL : found->second.ack);
    }
    return 0;
}

int sys_system(const char* command)
{
    int code = result(std::string("system ") + command) != 0 ? -1 : sys.systemresult;
    errno = code == -1 ? EPERM : errno; // which a command that merely fails leaves alone
    return code;
}

int sys_pthread_create(pthread_t*, const pthread_attr_t* attributes, void* (*)(void*), void* copies)
{
    int state = -1;
    pthread_attr_getdetachstate(attributes, &state);
    int code = journal.call(state == PTHREAD_CREATE_DETACHED ? "pthread_create detached" : "pthread_create joinable");
    if (code == 0) {
        free(copies); // the thread's, which never runs
    }
    return code;
}

// ---- what start-up asks for and changes ----

pid_t sys_getpid()
{
    return 900; // start-up asks while it still runs in the launcher's process
}

pid_t sys_getppid()
{
    return sys.ppid;
}

uid_t sys_getuid()
{
    return sys.uid;
}

pid_t sys_setsid()
{
    return result("setsid");
}

int sys_chdir(const char* path)
{
    return result(std::string("chdir ") + path);
}

int sys_getrlimit(int resource, rlimit* limit)
{
    *limit = { RLIM_INFINITY, 8192 };
    return result(fmt("getrlimit %d", resource));
}

int sys_setrlimit(int resource, const rlimit* limit)
{
    return result(
        fmt("setrlimit %d %ld %ld", resource, static_cast<long>(limit->rlim_cur), static_cast<long>(limit->rlim_max)));
}

sighandler_t sys_signal(int signal, sighandler_t handler)
{
    return std::exchange(sys.handlers[signal], handler);
}

int sys_setenv(const char* name, const char* value, int overwrite)
{
    return result(fmt("setenv %s=%s %d", name, value, overwrite));
}

void* sys_calloc(size_t count, size_t size)
{
    return result("calloc") != 0 ? nullptr : calloc(count, size);
}

// ---- files ----

int sys_access(const char* path, int mode)
{
    return result(fmt("access %s %d", path, mode));
}

int sys_unlink(const char* path)
{
    return result(std::string("unlink ") + path);
}

int sys_scandir(const char* path, dirent*** list, int (*)(const dirent*),
                int (*compare)(const dirent**, const dirent**))
{
    std::set<std::string, std::greater<>> names = { ".", "..", "self", "uptime", "1x", "-3", "2" };
    for (const auto& [pid, process] : sys.processes) {
        if (!process.exe.empty()) {
            names.insert(std::to_string(pid));
        }
    }
    if (result(std::string("scandir ") + path) != 0) {
        return -1;
    }
    *list = static_cast<dirent**>(malloc(names.size() * sizeof(void*)));
    int count = 0;
    for (const std::string& name : names) { // backwards, so that only a sorted list is right
        auto* entry = static_cast<dirent*>(calloc(1, sizeof(dirent)));
        name.copy(entry->d_name, sizeof(entry->d_name) - 1);
        (*list)[count++] = entry;
    }
    qsort(*list, names.size(), sizeof(void*), reinterpret_cast<int (*)(const void*, const void*)>(compare));
    return count;
}

ssize_t sys_readlink(const char* path, char* buffer, size_t size)
{
    int pid = 0;
    journal.call(std::string("readlink ") + path);
    if (sscanf(path, "/proc/%d/exe", &pid) != 1 || sys.processes.count(pid) == 0) {
        errno = ENOENT;
        return -1;
    }
    return static_cast<ssize_t>(sys.processes[pid].exe.copy(buffer, size));
}

char* sys_realpath(const char* path, char* buffer)
{
    const std::string target = sys.resolved.empty() ? path : sys.resolved;
    if (result(std::string("realpath ") + path) != 0) {
        return nullptr;
    }
    return static_cast<char*>(memcpy(buffer, target.c_str(), target.size() + 1));
}
}
