// The system calls: a clock that moves only when the code sleeps, and a model of processes.
#include "stage.h"

#include <cerrno>
#include <csetjmp>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <memory>
#include <semaphore>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

Sys sys;
int stage_child = -1;

static jmp_buf way_out;
static std::string ending;
static thread_local std::string program; // that the thread is about to start
static int refused = 0;                  // in the child of a fork: errno of its execv

// ---- the collections ----

// A thread that runs by turns with the main one: each turn lasts until it sleeps or ends.
class Collection {
public:
    Collection(void* (*entry)(void*), void* argument);

    void turn();
    void rest(); // by the thread itself
    bool over() const
    {
        return ended;
    }

    static thread_local int number; // of the running thread

private:
    std::binary_semaphore go{ 0 };
    std::binary_semaphore back{ 0 };
    bool ended = false;
    std::jthread thread;
};

thread_local int Collection::number = 0;
static std::vector<std::unique_ptr<Collection>> collections;

Collection::Collection(void* (*entry)(void*), void* argument)
    : thread([this, entry, argument, own = static_cast<int>(collections.size()) + 1] {
          number = own;
          go.acquire();
          entry(argument);
          ended = true;
          back.release();
      })
{
}

void Collection::turn()
{
    go.release();
    back.acquire();
}

void Collection::rest()
{
    back.release();
    go.acquire();
}

int stage_thread()
{
    return Collection::number;
}

void Sys::finish()
{
    journal.chance = nullptr;
    for (auto& collection : collections) {
        while (!collection->over()) {
            for (auto& process : processes) {
                process.second.zombie = true;
            }
            collection->turn();
        }
    }
    collections.clear();
}

// ---- the clock and what it makes happen ----

void Sys::at(double second, std::function<void()> event)
{
    events.emplace(clock + static_cast<int>(second * 1000), std::move(event));
}

void Sys::signal(int signal)
{
    if (journal.chance) {
        journal.add(fmt("signal %d", signal));
    }
    cut = true;
    signal == SIGHUP ? monp_sighup(signal) : monp_sighandler1(signal);
}

void Sys::signal_at(double second, int signal)
{
    at(second, [this, signal] { this->signal(signal); });
}

int Sys::advance(int milliseconds)
{
    const int end = clock + milliseconds;

    if (end > patience) { // a wait that never ends is a fault of the code
        stop("stuck");
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

void Sys::stop(const std::string& how)
{
    if (stage_thread() != 0) { // it cannot leave for the main thread
        fprintf(stderr, "a collection is %s\n", how.c_str());
        abort();
    }
    ending = how;
    longjmp(way_out, 1);
}

[[noreturn]] static void leave(const char* how, int status)
{
    const std::string entry = fmt("%s %d", how, status);

    journal.call(entry);
    if (stage_child != -1) {
        _exit(0);
    }
    sys.stop(entry);
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
    const pid_t pid = sys.pid++;
    sys.processes[pid] = process;
    if (process.runs != FOREVER) {
        sys.at(process.runs, [pid, process] { sys.end(pid, process.status); });
    }
    if (process.reports != FOREVER) {
        sys.signal_at(process.reports, SIGUSR1);
    }
    if (stage_thread() == 0) {
        sys.advance(0);
    }
    return pid;
}

extern "C" {

unsigned sys_sleep(unsigned seconds)
{
    journal.call(fmt("sleep %u", seconds));
    const size_t entry = journal.last;
    if (stage_thread() != 0) {
        Collection* own = collections.at(static_cast<size_t>(stage_thread()) - 1).get();
        sys.at(seconds, [own] { own->turn(); });
        own->rest();
        return 0;
    }
    const bool whole = sys.advance(static_cast<int>(seconds) * 1000) == 0;
    journal.notes.at(entry).result = sys.clock;
    return whole ? 0 : 1;
}

int sys_usleep(useconds_t microseconds)
{
    journal.call(fmt("usleep %u", microseconds));
    const size_t entry = journal.last;
    const int code = sys.advance(static_cast<int>(microseconds) / 1000);
    journal.notes.at(entry).result = sys.clock;
    return code;
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

// What the program that is about to be started will do.
static Process coming()
{
    auto own = sys.programs.find(program);
    auto& queue = own != sys.programs.end() && !own->second.empty() ? own->second : sys.next;
    Process process = queue.empty() ? Process() : queue.front();
    if (!queue.empty()) {
        queue.pop_front();
    }
    return process;
}

// The code between fork and exec runs in a real child, which tells what it did there; what the program that it has
// started does after that is the model's.
static bool child_side(Process& process)
{
    int ends[2];
    char text[8192] = "";
    const size_t first = journal.entries.size();
    const pid_t helper = pipe(ends) == 0 ? fork() : -1;

    if (helper == 0) {
        stage_child = ends[1];
        refused = process.refused;
        return true;
    }
    close(ends[1]);
    FILE* from_child = fdopen(ends[0], "r");
    while (fgets(text, sizeof(text), from_child) != nullptr) {
        text[strcspn(text, "\n")] = '\0';
        journal.add(text);
    }
    fclose(from_child);
    waitpid(helper, nullptr, 0);
    journal.notes.resize(journal.entries.size());
    if (journal.entries.size() > first) {
        journal.notes[first].error = process.refused;
    }
    int status = 0;
    if (sscanf(journal.entries.back().c_str(), "_exit %d", &status) == 1) { // without having started anything
        process = { .runs = 0, .status = exited(status) };
    }
    return false;
}

pid_t sys_fork()
{
    if (result("fork") != 0) {
        return -1;
    }
    const size_t entry = journal.last;
    if (auto side = std::exchange(sys.fork, Sys::PROGRAM); side != Sys::PROGRAM) {
        return side == Sys::DAEMON ? 0 : sys.pid;
    }
    Process process = coming();
    if ((sys.forks || process.refused != 0) && child_side(process)) {
        return 0;
    }
    const pid_t pid = start(process);
    journal.notes.at(entry).result = pid;
    return pid;
}

int sys_execv(const char* path, char* const argv[])
{
    std::string entry = std::string("execv ") + path;
    for (; *argv != nullptr; argv++) {
        entry += std::string(" ") + *argv;
    }
    journal.add(entry);
    if (refused == 0) {
        _exit(0);
    }
    errno = refused;
    return -1;
}

pid_t sys_waitpid(pid_t pid, int* status, int options)
{
    if (result(fmt("waitpid %d%s", pid, options == WNOHANG ? "" : fmt(" %d", options).c_str())) != 0) {
        return -1;
    }
    const size_t entry = journal.last;
    auto found = sys.processes.find(pid);
    if (found == sys.processes.end() || !found->second.exe.empty()) {
        errno = journal.notes.at(entry).error = ECHILD;
        journal.notes[entry].result = -1;
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
    journal.notes.at(entry).result = pid;
    journal.notes[entry].status = *status;
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
        errno = journal.answer().error = ESRCH;
        journal.answer().result = -1;
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
    journal.answer().result = code;
    return code;
}

int sys_pthread_create(pthread_t*, const pthread_attr_t* attributes, void* (*entry)(void*), void* copies)
{
    int state = -1;
    pthread_attr_getdetachstate(attributes, &state);
    int code = journal.call(state == PTHREAD_CREATE_DETACHED ? "pthread_create detached" : "pthread_create joinable");
    if (code == 0 && sys.threads) {
        collections.push_back(std::make_unique<Collection>(entry, copies));
        journal.answer().result = static_cast<int>(collections.size());
        sys.at(*sys.threads / 1000.0, [own = collections.back().get()] { own->turn(); });
    } else if (code == 0) {
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
    program = mode == X_OK ? path : program;
    return result(fmt("access %s %d", path, mode));
}

int sys_unlink(const char* path)
{
    const int code = result(std::string("unlink ") + path);
    if (code == 0 && sys.files) {
        sys.files->erase(path);
    }
    return code;
}

int sys_stat(const char* path, struct stat* found)
{
    if (!sys.files) {
        return stat(path, found);
    }
    const int code = result(std::string("stat ") + path);
    if (code == 0 && sys.files->count(path) == 0) {
        errno = journal.answer().error = ENOENT;
        return journal.answer().result = -1;
    }
    return code;
}

int sys_mkdir(const char* path, mode_t mode)
{
    if (!sys.files) {
        return mkdir(path, mode);
    }
    const int code = result(fmt("mkdir %s %o", path, mode));
    if (code == 0) {
        sys.files->insert(path);
    }
    return code;
}

// What is for the launcher's standard error.
int sys_fprintf(FILE*, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    journal.call("stderr: " + vfmt(format, args));
    va_end(args);
    return 0;
}

int sys_fprintf_chk(FILE*, int, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    journal.call("stderr: " + vfmt(format, args));
    va_end(args);
    return 0;
}

FILE* sys_fopen(const char* path, const char* mode)
{
    if (!sys.files) {
        return fopen(path, mode);
    }
    if (result(fmt("fopen %s %s", path, mode)) != 0) {
        return nullptr;
    }
    sys.files->insert(path);
    return fopen("/dev/null", mode);
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
    const size_t entry = journal.last;
    if (sscanf(path, "/proc/%d/exe", &pid) != 1 || sys.processes.count(pid) == 0) {
        errno = ENOENT;
        return -1;
    }
    journal.notes.at(entry).text = sys.processes[pid].exe;
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
