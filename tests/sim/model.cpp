#include "model.h"

#include <climits>
#include <csignal>

namespace {

enum Action { NONE = 1, RESTART, STOP, HALT, REBOOT };
constexpr int KILLED = -1; // end status of a process that was ended by our exit signal, or that never ran
constexpr int FAILED = 4;

// A process and the wait for it.
struct Child {
    pid_t pid = 0;
    bool ours = true; // false: adopted
    int result = 0;   // of the last look: 0 still there, below 0 failed
    int error = 0;
    int raw = 0;
    bool forced = false; // the wait for it was given up
};

// Takes the lines about the end of a child and tells its status: KILLED after an end by our exit signal.
int decode(Tape& tape, const std::string& type, const Child& child, bool& normal)
{
    const int raw = child.raw;
    const int signal = raw & 0x7f;
    const std::string of = fmt("(type=%s pid=%d stat=%d", type.c_str(), child.pid, raw);
    int status = KILLED;

    normal = signal == 0;
    if (normal) {
        status = raw >> 8 & 0xff;
        tape.take(fmt("info: process exited. (type=%s pid=%d stat=%d)", type.c_str(), child.pid, status));
    } else if (signal != 0x7f) {
        if (signal != SIGUSR1) {
            status = 101;
            tape.take(fmt("error: process exited for term signal. %s sig=%d)", of.c_str(), signal));
        }
        if ((raw & CORE) != 0) {
            status = 102;
            tape.take(fmt("error: process exited for core was outed. %s sig=%d)", of.c_str(), signal));
        }
    } else if ((raw & 0xff) == 0x7f) {
        status = 103;
        tape.take(fmt("error: process exited for stop signal. %s sig=%d)", of.c_str(), raw >> 8 & 0xff));
    } else {
        status = 199;
        tape.take(fmt("error: process exited, but status is unknown. %s)", of.c_str()));
    }
    return status;
}

// Starts a program; what its child does up to exec is told only where that really ran. False: the fork failed.
bool launch(Tape& tape, const std::string& type, const std::string& path, const std::string& arguments, Child& child)
{
    const Note& note = tape.take("fork");

    if (note.error != 0) {
        tape.take(fmt("error: fork() failed. (type=%s errno=%d)", type.c_str(), note.error));
        return false;
    }
    child.pid = note.result;
    if (tape.sees("execv ")) {
        const int refused = tape.take("execv " + path + " " + arguments).error;
        if (refused != 0) {
            tape.take(fmt("error: execv() failed. (type=%s path=%s errno=%d)", type.c_str(), path.c_str(), refused));
            tape.take("_exit 4");
        }
    }
    return true;
}

bool executable(Tape& tape, const std::string& type, const std::string& path)
{
    const int error = tape.take("access " + path + " 1").error;

    if (error != 0) {
        tape.take(fmt("error: access() failed. (type=%s errno=%d)", type.c_str(), error));
    }
    return error == 0;
}

std::string base(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

// ---- the collection of error logs, on a thread of its own ----

struct Collection {
    bool busy = false; // refused, since another one was running
    size_t first = 0;  // entries between which it keeps others from running
    size_t last = 0;
    size_t awaited = 0; // entry behind which it asks for the marker; 0: it does not
    std::string type{};
};

struct Collector {
    Tape& tape;
    std::string type;
    std::string path;
    std::string arguments;
    Collection told{};

    // Result and status of the program.
    std::pair<int, int> run()
    {
        Child child;
        int result = FAILED;
        int status = KILLED;
        bool normal = false;

        tape.take(fmt("info: start - (type=%s path=%s argv=* wait=0 pid=* stat=* std=1", type.c_str(), path.c_str()));
        if (executable(tape, type, path) && launch(tape, type, path, arguments, child)) {
            do {
                tape.take("sleep 1"); // neither requests nor signals shorten it
                const size_t entry = tape.position();
                const Note& look = tape.take(fmt("waitpid %d", child.pid));
                child.result = look.result;
                told.awaited = child.result != 0 ? entry : 0;
                child.error = look.error;
                child.raw = look.status;
            } while (child.result == 0);
            result = child.result < 0 ? FAILED : 0;
            if (child.result < 0) {
                tape.take(fmt("warning: waitpid() failed. (type=%s errno=%d)", type.c_str(), child.error));
            } else {
                status = decode(tape, type, child, normal);
            }
        }
        tape.take(fmt("info: end - (type=%s ret=%d pid=%d stat=%d)", type.c_str(), result, child.pid, status));
        return { result, status };
    }

    void collect(bool busy)
    {
        int result = 0;
        int status = 0;

        told.type = type;
        told.first = tape.position();
        told.busy = busy;
        told.last = SIZE_MAX;
        tape.take(fmt("info: start - (type=%s)", type.c_str()));
        if (busy) {
            tape.take(fmt("info: now elog collecting. (type=%s exec=-1)", type.c_str()));
        } else {
            tape.take("info: path=" + path + " bin=" + base(path));
            std::tie(result, status) = run();
            if (result != 0) {
                tape.take(fmt("error: monp_create_process() failed. (type=%s ret=%d path=%s)", type.c_str(), result,
                              path.c_str()));
            }
        }
        told.last = tape.position();
        tape.take(fmt("info: end - (type=%s ret=%d stat=%d)", type.c_str(), result, status));
    }
};

// ---- the main thread ----

class Model {
public:
    Model(const Journal& read, const Given& options)
        : record(read), given(options), tape(read, 0, [this](size_t entry) { happened(entry); }),
          policies(tape, options)
    {
    }

    void run(const std::string& ending);

private:
    enum Step { HEAD, WAITING, START, RECOVERY, LEAVE };

    // What happens beside.
    void happened(size_t entry);
    void settle();
    bool test(const bool& flag);
    void pause();
    void pause_whole(const bool* until);

    // Its marker and its launcher.
    bool directory(const std::string& path);
    void make_marker();
    void delete_marker();
    bool release_launcher();

    // Processes.
    void throw_signal(const Child& child, int signal);
    bool look(Child& child);
    void wait_for_end(Child& child, int wait, int signal);
    bool search(const std::string& path, Child& child);
    bool start_or_adopt(Child& child);
    bool reported_in_time();
    void abandon(Child& child);
    int service_outcome(const Child& child);
    int start_service();
    void wait_until_gone();
    int run_command(const std::string& path, const std::string& arguments, int& status);

    // The states.
    bool load_policy();
    bool start_up();
    Step head();
    Step waiting();
    Step reload_policy();
    Step start();
    Step ended();
    void collect();
    Step recovery();
    Step restart();
    int drastic();
    int fall_back(const std::string& command);
    void leave(const std::string& ending);

    std::string type() const
    {
        return policies.type();
    }
    int action() const
    {
        return policies.number("service/action");
    }
    bool uses_marker() const
    {
        return type() == "pelkant";
    }
    void line(const std::string& text)
    {
        tape.take(text);
    }

    // A line that begins with the policy type.
    void typed(const char* level_and_text, const std::string& more = "")
    {
        tape.take(fmt("%s (type=%s%s)", level_and_text, type().c_str(), more.c_str()));
    }

    const Journal& record;
    Given given;
    std::deque<int> pending; // signals whose lines are due
    std::vector<Collection> collections;
    bool inited = false; // a start is permitted
    bool end = false;    // asked to end
    bool reload = false; // asked to read the policy
    bool made = false;   // the marker
    bool due = false;    // a collection has ended that makes it
    bool launcher_waits = false;
    bool launcher_lives = true;
    bool reported = false; // the service of this start, or it was adopted
    int status = 0;
    pid_t pid = 0;
    int restarts = 0;
    int exit_status = 0;
    std::string service; // its path and arguments, which no reload changes
    std::string arguments;
    Tape tape;
    Policies policies;
};

// ---- what happens beside ----

// A signal sets its flag at once; its lines follow when the monitor next tests a flag or wakes.
void Model::happened(size_t entry)
{
    const std::string& what = record.entries[entry];
    int signal = 0;

    if (sscanf(what.c_str(), "signal %d", &signal) == 1) {
        (signal == SIGUSR1 ? inited : signal == SIGUSR2 ? end : reload) = true;
        pending.push_back(signal);
    } else if (what == "world: the launcher ends") {
        launcher_lives = false;
    }
    for (const Collection& collection : collections) {
        due = due || (collection.awaited == entry && collection.type == "pelkant" && !made);
    }
}

// The lines of the signals that have arrived so far, and the marker that they and ended collections ask for.
void Model::settle()
{
    for (size_t left = pending.size(); left > 0; left--) {
        const int signal = pending.front();
        pending.pop_front();
        typed("trace: start -", fmt(" sig=%d", signal));
        typed("trace: catch signal.", fmt(" sig=%d", signal));
        if (signal == SIGUSR1) {
            make_marker();
        }
        typed("trace: end -");
    }
    if (std::exchange(due, false)) {
        make_marker();
    }
}

// A flag counts as it was before the lines are written.
bool Model::test(const bool& flag)
{
    const bool value = flag;
    settle();
    return value;
}

void Model::pause()
{
    tape.take("sleep 1");
    settle();
}

// A second that signals do not shorten; one that sets the flag ends it.
void Model::pause_whole(const bool* until)
{
    const Note* slept = &tape.take("sleep 1");
    const int over = slept->clock + 1000;

    settle();
    while (slept->result < over && (until == nullptr || !*until)) {
        const int left = over - slept->result;
        slept = &tape.take(left == 1000 ? "sleep 1" : fmt("usleep %d", left * 1000));
        settle();
    }
}

// ---- marker and launcher ----

bool Model::directory(const std::string& path)
{
    if (!tape.fails("stat " + path)) {
        return true;
    }
    const int error = tape.take("mkdir " + path + " 744").error;
    if (error != 0) {
        line(fmt("error: mkdir failed. (dir=%s errno=%d)", path.c_str(), error));
    }
    return error == 0;
}

void Model::make_marker()
{
    const std::string path = policies.path("monp/md/dirpath");
    const std::string file = path + "/" + policies.text("monp/md/filename");

    if (made || !uses_marker()) {
        return;
    }
    typed("info: start -");
    if (directory(path)) {
        const int error = tape.take("fopen " + file + " ae").error;
        made = error == 0;
        if (error != 0) {
            line(fmt("error: fopen failed. (file=%s errno=%d)", file.c_str(), error));
        }
    }
    typed("info: end -");
}

void Model::delete_marker()
{
    const std::string file = policies.path("monp/md/dirpath") + "/" + policies.text("monp/md/filename");

    if (!uses_marker()) {
        return;
    }
    due = false; // it would be of the phase that ends here
    typed("info: start -");
    int error = tape.take("stat " + file).error;
    if (error != 0) {
        line(fmt("error: Not exist file. (file=%s errno=%d)", file.c_str(), error));
    } else if ((error = tape.take("unlink " + file).error) != 0) {
        line(fmt("error: unlink failed. (file=%s errno=%d)", file.c_str(), error));
    }
    typed("info: end -");
}

// Once in a run. A launcher that is gone is spared: its pid may be anybody's.
bool Model::release_launcher()
{
    if (!std::exchange(launcher_waits, false)) {
        return false;
    }
    if (launcher_lives) {
        tape.take(fmt("kill 900 %d", SIGUSR1));
    }
    return true;
}

// ---- processes ----

void Model::throw_signal(const Child& child, int signal)
{
    tape.take(fmt("kill %d %d", child.pid, signal));
    typed("info: throw exit signal.", fmt(" pid=%d sig=%d", child.pid, signal));
}

bool Model::look(Child& child)
{
    const Note& note = tape.take(fmt(child.ours ? "waitpid %d" : "kill %d 0", child.pid));

    child.result = note.result;
    child.error = note.error;
    child.raw = note.status;
    return child.result != 0;
}

// An end request brings the exit signal, so many seconds of patience, one more look, and SIGKILL, which nobody awaits.
void Model::wait_for_end(Child& child, int wait, int signal)
{
    int pauses = 0;

    do {
        if (test(inited)) {
            release_launcher();
        }
        if (!test(end)) {
            pause_whole(&end);
            continue;
        }
        if (pauses == 0 && signal > 0) {
            throw_signal(child, child.forced ? SIGKILL : signal);
        }
        if (wait <= 0) {
            pauses = INT_MAX;
            pause_whole(nullptr);
        } else if (child.forced) {
            return;
        } else if (pauses == wait) {
            child.forced = true;
            pauses = 0;
        } else {
            pauses++;
            pause_whole(nullptr);
        }
    } while (!look(child));
}

// The first process of /proc whose executable is the service's.
bool Model::search(const std::string& path, Child& child)
{
    if (tape.fails("scandir /proc")) {
        line("error: scandir /proc failed.");
        return false;
    }
    while (child.pid == 0 && tape.sees("readlink ")) {
        int candidate = 0;
        sscanf(tape.next().c_str(), "readlink /proc/%d/exe", &candidate);
        const std::string executed = tape.take("readlink *").text;
        if (!executed.empty() && !tape.fails("realpath " + path) && executed == path) {
            child.pid = candidate;
        }
    }
    line(child.pid != 0 ? fmt("info: service process is found. (pid=%d)", child.pid)
                        : "info: service process is not found.");
    return child.pid != 0;
}

bool Model::start_or_adopt(Child& child)
{
    if (search(service, child)) {
        child.ours = false;
        typed("info: service process is already started.");
        inited = true;
        make_marker();
        return true;
    }
    line(fmt("info: monp_getservice(%s) not found. (ret:4)", service.c_str()));
    return launch(tape, type(), service, arguments, child);
}

// Tested before each second, so that a report in the last one is late.
bool Model::reported_in_time()
{
    const int seconds = policies.number("service/child_timeout");
    int i = 0;

    while (i < seconds && !test(inited)) {
        pause_whole(&inited);
        i++;
    }
    return i < seconds;
}

// A silent service is ended and reaped.
void Model::abandon(Child& child)
{
    release_launcher();
    throw_signal(child, SIGUSR1);
    pause_whole(nullptr);
    if (!tape.fails(fmt("kill %d 0", child.pid))) {
        throw_signal(child, SIGKILL);
    }
    inited = false;
    const Note& note = tape.take(fmt("waitpid %d 0", child.pid));
    child.result = note.result;
    child.error = note.error;
    child.raw = note.status;
}

int Model::service_outcome(const Child& child)
{
    bool normal = false;

    if (!child.ours) {
        status = test(end) ? 0 : status;
    } else if (child.result < 0) {
        line(fmt("warning: waitpid() failed. (type=%s errno=%d)", type().c_str(), child.error));
        return FAILED;
    } else if (child.result > 0) {
        status = decode(tape, type(), child, normal);
    }
    if (!normal) {
        make_marker();
        if (child.forced) {
            status = action() == HALT || action() == REBOOT ? KILLED : 0;
        }
    }
    return 0;
}

// An end request that came before is not forgotten: the loop has tested for it last, so nobody has seen it yet.
int Model::start_service()
{
    Child child;
    int result = FAILED;

    line(fmt("info: start - (type=%s path=%s argv=* wait=%s pid=* stat=* std=0", type().c_str(), service.c_str(),
             policies.text("service/waittime").c_str()));
    status = KILLED;
    pid = 0;
    inited = reported = false;
    if (executable(tape, type(), service) && start_or_adopt(child)) {
        pid = child.pid;
        reported = reported_in_time();
        if (reported) {
            wait_for_end(child, policies.number("service/waittime"), SIGUSR1);
        } else {
            abandon(child);
        }
        result = service_outcome(child);
    }
    typed("info: end -", fmt(" ret=%d pid=%d stat=%d", result, pid, status));
    // A report that comes too late asks for no other start.
    inited = inited && reported;
    return result;
}

void Model::wait_until_gone()
{
    int error = ESRCH;

    while (pid > 0 && (error = tape.take(fmt("kill %d 0", pid)).error) == 0) {
        pause_whole(nullptr);
    }
    typed("info: process ended.", fmt(" pid=%d errno=%d", pid, error));
}

// A command of the policy, which nobody hurries. Tells its result.
int Model::run_command(const std::string& path, const std::string& words, int& told)
{
    Child child;
    int result = FAILED;
    bool normal = false;

    line(fmt("info: start - (type=%s path=%s argv=* wait=0 pid=* stat=* std=1", type().c_str(), path.c_str()));
    if (executable(tape, type(), path) && launch(tape, type(), path, words, child)) {
        wait_for_end(child, 0, 0);
        make_marker();
        if (child.result < 0) {
            typed("warning: waitpid() failed.", fmt(" errno=%d", child.error));
        } else {
            result = 0;
            told = decode(tape, type(), child, normal);
        }
    }
    typed("info: end -", fmt(" ret=%d pid=%d stat=%d", result, child.pid, told));
    return result;
}

// ---- the states ----

bool Model::load_policy()
{
    if (policies.load()) {
        return true;
    }
    exit_status = 1;
    line(fmt("error: monp_getconfig() failed. (type=%s ret=4)", given.type.c_str()));
    line("stderr: monp : monp_getconfig() failed. (ret=4 line=*)\n");
    return false;
}

// False: the policy cannot be read.
bool Model::start_up()
{
    tape.pass("info: end - (ret=");
    if (!load_policy()) {
        return false;
    }
    service = policies.path(given.type + "/path");
    arguments = base(service) + " " + policies.text("monp/service/" + given.type + "/param");
    tape.pass("info: path=");
    launcher_waits = true;
    settle();
    delete_marker();
    inited = true;
    end = made = false;
    return true;
}

Model::Step Model::head()
{
    if (test(end)) {
        return LEAVE;
    }
    const bool open = !policies.held_back_by_dummy() && !policies.disabled() && test(inited) && !given.nostart;
    return open ? START : WAITING;
}

Model::Step Model::waiting()
{
    make_marker();
    if (release_launcher()) {
        line(fmt("info: waiting for a service start request. (type=%s)", given.type.c_str()));
    }
    if (test(reload)) {
        return reload_policy();
    }
    pause();
    return HEAD;
}

// One that finds nothing against a start is a start request.
Model::Step Model::reload_policy()
{
    reload = false;
    line(fmt("info: reload configuration. (type=%s)", given.type.c_str()));
    if (uses_marker()) {
        delete_marker();
        made = false;
    }
    if (!load_policy()) {
        return LEAVE;
    }
    if (policies.held_back_by_dummy()) {
        line("info: dummyconf detected.");
    } else if (policies.disabled()) {
        line(fmt("info: service is disabled. (type=%s)", given.type.c_str()));
    } else if (given.nostart) {
        line(fmt("info: service is not started. (type=%s)", given.type.c_str()));
    } else {
        return START;
    }
    pause();
    return HEAD;
}

Model::Step Model::start()
{
    if (test(end)) {
        return HEAD;
    }
    const int result = start_service();
    if (result != 0) {
        exit_status = FAILED;
        make_marker();
        typed("error: start of processing failed.", fmt(" ret=%d path=%s", result, service.c_str()));
        line(fmt("event: 2 %s %d", type().c_str(), status));
    }
    if (!reported) {
        typed("error: initialize error.", fmt(" stat=%d path=%s", status, service.c_str()));
        make_marker();
        line(fmt("event: 1 %s %d", type().c_str(), status));
        return HEAD;
    }
    return ended();
}

// The service has run and is gone, by request or by itself.
Model::Step Model::ended()
{
    const std::string how = fmt("recover is %d. (stat=%d path=%s)", action(), status, service.c_str());

    if (!test(end)) {
        line(fmt("error: process %s exited. %s", type().c_str(), how.c_str()));
        line(fmt("event: 2 %s %d", type().c_str(), status));
        collect();
        return RECOVERY;
    }
    end = false;
    if (status == KILLED) {
        line(fmt("error: process %s killed. %s", type().c_str(), how.c_str()));
        return RECOVERY;
    }
    typed("info: monitor term.", fmt(" stat=%d path=%s act=%d", status, service.c_str(), action()));
    return status == 0 || action() == NONE || action() == RESTART ? LEAVE : RECOVERY;
}

void Model::collect()
{
    if (const int error = tape.take("calloc").error; error != 0) {
        typed("info: calloc() failed.", fmt(" errno=%d", error));
        return;
    }
    const Note& note = tape.take("pthread_create detached");
    if (note.error != 0) {
        typed("info: pthread_create() failed.", fmt(" ret=%d", note.error));
        return;
    }
    Tape own(record, note.result, [](size_t) {});
    const std::string path = policies.path("monp/elog/path");
    const int pattern = policies.number("monp/elog/pattern");
    Collector collector{ own, type(), path,
                         fmt("%s -t %s-%s%s%s -o %s -r %s", base(path).c_str(), policies.text("monp/type").c_str(),
                             type().c_str(), (pattern & 1) != 0 ? " -l" : "", (pattern & 2) != 0 ? " -d" : "",
                             policies.path("monp/elog/arcpath").c_str(), policies.text("monp/elog/rotate").c_str()) };
    bool busy = false;
    for (const Collection& other : collections) {
        busy = busy || (!other.busy && other.first < own.position() && own.position() < other.last);
    }
    try {
        collector.collect(busy);
    } catch (const Mismatch&) {
        if (!own.next().empty() && !own.sees("exit ")) { // else the monitor has ended before
            throw;
        }
    }
    collections.push_back(collector.told);
}

Model::Step Model::recovery()
{
    const char* const about = action() == NONE ? "info: recovery is none." : "error: unknown recovery.";

    if (action() == RESTART) {
        return restart();
    }
    if (action() < STOP || action() > REBOOT) {
        exit_status = action() == NONE ? exit_status : FAILED;
        typed(about, fmt(" pact=%d fact=%d", action(), action() == NONE ? NONE : 0));
    } else if (const int result = drastic(); result != 0) {
        exit_status = FAILED;
        typed("error: recovery failed.", fmt(" act=%d ret=%d", action(), result));
    }
    return LEAVE;
}

Model::Step Model::restart()
{
    const int most = policies.number("service/restarttime");

    if (most > 0 && ++restarts > most) {
        typed("info: recovery reached maximum.", fmt(" time=%d max=%d", restarts, most));
        return LEAVE;
    }
    wait_until_gone();
    line(fmt("event: 3 %s %d", type().c_str(), status));
    return HEAD;
}

int Model::drastic()
{
    static const struct {
        const char* section;
        const char* option;
        const char* what;
        const char* fallback;
    } rows[] = { { "cl", "-t ", "stop of cluster", "" },
                 { "down", "", "system halt", "/sbin/shutdown -h now" },
                 { "down", "-r ", "system reboot", "/sbin/shutdown -r now" } };
    const auto& row = rows[action() - STOP];
    const int event = 4 + 2 * (action() - STOP);
    const std::string fallback = row.fallback;
    int told = KILLED;
    int result = FAILED;

    line(fmt("event: %d %s", event, type().c_str()));
    if (const auto path = policies.command(row.section); !path) {
        line(fmt("error: monp_xml_getcprocpolicy() failed. (type=%s ret=4 ldtype=%s)", type().c_str(), row.section));
    } else {
        line("info: path=" + *path + " bin=" + base(*path));
        const int ran = run_command(
            *path, base(*path) + " " + row.option + "--type " + policies.text("monp/type") + " --nochk", told);
        result = ran == 0 && told == 0 ? 0 : FAILED;
        if (ran != 0) {
            typed("error: monp_create_process() failed.", fmt(" ret=4 path=%s", path->c_str()));
        }
        if (result != 0 && (ran == 0 || !fallback.empty())) {
            line(fmt("error: %s failed. (type=%s ret=%d path=%s stat=%#x)", row.what, type().c_str(), ran,
                     path->c_str(), static_cast<unsigned>(told)));
        }
        if (result != 0 && !fallback.empty()) {
            result = fall_back(fallback);
        }
    }
    if (result != 0) {
        line(fmt("event: %d %d", event + 1, told));
    }
    return result;
}

int Model::fall_back(const std::string& command)
{
    line("info: retry, path=" + command);
    const int raw = tape.take("system " + command).result;
    const int error = raw == -1 ? EPERM : 0;

    if ((raw & 0x7f) != 0) {
        line(fmt("error: system(%s) failed. (ret:%d,errno:%d)", command.c_str(), raw, error));
    } else if ((raw & 0xff00) != 0) {
        line(fmt("error: cmd(%s) failed (ret=%d errno=%d).", command.c_str(), raw >> 8, error));
    } else {
        line(fmt("info: cmd(%s) success.", command.c_str()));
        return 0;
    }
    return FAILED;
}

// The way out, from wherever it comes.
void Model::leave(const std::string& ending)
{
    static const std::map<std::string, std::string> suffixes = { { "dusko", "_trn" },     { "pelkant", "_md" },
                                                                 { "sorvin", "_sorvin" }, { "tamzile", "_tamzsync" },
                                                                 { "goru", "_ib" },       { "lenk", "_api" } };
    const std::string lock = policies.text("pm/lockf") + suffixes.at(given.type);

    settle();
    release_launcher();
    if (!service.empty() && !policies.text("pm/lockf").empty()) {
        int error = tape.take("access " + lock + " 0").error;
        const char* call = "access";
        if (error == 0) {
            error = tape.take("unlink " + lock).error;
            call = "unlink";
        }
        if (error != 0) {
            line(fmt("error: %s() failed. (type=%s path=%s err=%d)", call, type().c_str(), lock.c_str(), error));
        }
    }
    typed("info: end -", fmt(" ret=%d", exit_status));
    line("log_term");
    line(fmt("exit %d", exit_status));
    if (ending != fmt("exit %d", exit_status)) {
        throw Mismatch("ended with " + ending);
    }
}

void Model::run(const std::string& ending)
{
    Step step = start_up() ? HEAD : LEAVE;

    while (step != LEAVE) {
        step = step == HEAD ? head() : step == WAITING ? waiting() : step == START ? start() : recovery();
    }
    leave(ending);
}

} // namespace

std::string differs(const Journal& read, const std::string& ending, const Given& given)
{
    try {
        Model(read, given).run(ending);
    } catch (const Mismatch& mismatch) {
        return mismatch.what();
    }
    return "";
}
