#include "measures.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <numeric>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace peers {

namespace {

constexpr double MILLISECOND = 1e6;
constexpr int STARTS = 11;
constexpr int KILLS = 11;
constexpr int SERVICES = 50;
constexpr int SLEEPERS = 8000;
constexpr double SETTLED = 3; // seconds after which nobody is still starting
constexpr double IDLE = 8;    // seconds

double median(std::vector<double> numbers)
{
    const auto middle = numbers.begin() + static_cast<std::ptrdiff_t>(numbers.size() / 2);

    std::nth_element(numbers.begin(), middle, numbers.end());
    return *middle;
}

// The first time that each life of a service noted.
std::vector<Stamp> lives(const fs::path& directory, int number, size_t count)
{
    std::vector<Stamp> found;

    for (size_t least = count; found.size() < count; least++) {
        found.clear();
        for (const Stamp& stamp : stamps(directory, number, least)) {
            if (found.empty() || found.back().pid != stamp.pid) {
                found.push_back(stamp);
            }
        }
    }
    return found;
}

// From the start of the supervisor to its service's first instruction, in nanoseconds.
double start_one(const Supervisor& supervisor, const fs::path& directory, int number)
{
    supervisor.prepare(number, 1);
    const int64_t start = now();
    spawn(supervisor.start(number));
    return static_cast<double>(lives(directory, number, 1).front().time - start);
}

void start_many(const Supervisor& supervisor, const fs::path& directory, int count)
{
    supervisor.prepare(0, count);
    for (int number = 0; number < (supervisor.one_for_all ? 1 : count); number++) {
        spawn(supervisor.start(number));
    }
    for (int number = 0; number < count; number++) {
        lives(directory, number, 1);
    }
    pause_for(SETTLED);
}

Usage usage_of_all(const Supervisor& supervisor)
{
    Usage sum;

    for (const pid_t pid : processes(supervisor.program)) {
        const Usage one = usage(pid);
        sum.private_kib += one.private_kib;
        sum.resident_kib += one.resident_kib;
        sum.processor_us += one.processor_us;
    }
    return sum;
}

// Each trial has namespaces of its own; the supervisor in it works below the directory it gets there.
struct Trials {
    const Places& places;
    size_t index; // of the supervisor

    std::vector<double> run(const std::function<std::vector<double>(const Supervisor&, const fs::path&)>& work) const
    {
        return in_namespace(
            [&](const fs::path& directory) { return work(supervisors(places, directory)[index], directory); });
    }
};

double start_ms(const Trials& trials)
{
    std::vector<double> taken;

    for (int i = 0; i < STARTS; i++) {
        taken.push_back(trials
                            .run([](const Supervisor& supervisor, const fs::path& directory) {
                                return std::vector{ start_one(supervisor, directory, 0) / MILLISECOND };
                            })
                            .front());
    }
    return median(taken);
}

// Kills at moments that are spread evenly over a second since the last start, so that polling shows its whole range.
std::vector<double> restart_s(const Trials& trials)
{
    return trials.run([](const Supervisor& supervisor, const fs::path& directory) {
        std::vector<double> taken;

        start_one(supervisor, directory, 0);
        for (size_t i = 1; i <= KILLS; i++) {
            const pid_t service = lives(directory, 0, i).back().pid;
            pause_for(1 + (static_cast<double>(i) - 0.5) / KILLS);
            const int64_t start = now();
            kill(service, SIGKILL);
            taken.push_back(static_cast<double>(lives(directory, 0, i + 1).back().time - start) / 1e9);
        }
        return taken;
    });
}

struct Memory {
    double added_kib, resident_kib;
};

Memory memory(const Trials& trials)
{
    const auto of = [&](int count) {
        return trials.run([count](const Supervisor& supervisor, const fs::path& directory) {
            start_many(supervisor, directory, count);
            const Usage sum = usage_of_all(supervisor);
            return std::vector{ sum.private_kib, sum.resident_kib };
        });
    };
    const std::vector<double> one = of(1);

    return { (of(SERVICES)[0] - one[0]) / (SERVICES - 1), one[1] };
}

double count_lines(const fs::path& path)
{
    std::ifstream file(path);

    return static_cast<double>(std::count(std::istreambuf_iterator<char>(file), {}, '\n'));
}

struct Idle {
    double processor_us, calls; // a second
};

Idle idle(const Trials& trials)
{
    const std::vector<double> found = trials.run([](const Supervisor& supervisor, const fs::path& directory) {
        start_many(supervisor, directory, 1);
        const double before = usage_of_all(supervisor).processor_us;
        pause_for(IDLE);
        const double processor = (usage_of_all(supervisor).processor_us - before) / IDLE;

        std::vector<std::string> trace = { "/usr/bin/strace", "-f", "-qq", "-o", directory / "calls" };
        for (const pid_t pid : processes(supervisor.program)) {
            trace.insert(trace.end(), { "-p", std::to_string(pid) });
        }
        const pid_t tracer = spawn({ trace, {} });
        pause_for(1);
        const double first = count_lines(directory / "calls"); // the call that it found them in, and what was due
        pause_for(IDLE);
        const double calls = (count_lines(directory / "calls") - first) / IDLE;
        kill(tracer, SIGTERM);
        return std::vector{ processor, calls };
    });

    return { found[0], found[1] };
}

// From the service's report to the return of the command that started the monitor.
double report_ms(const Trials& trials)
{
    std::vector<double> taken;

    for (int i = 0; i < STARTS; i++) {
        taken.push_back(trials
                            .run([](const Supervisor& supervisor, const fs::path& directory) {
                                supervisor.prepare(0, 1);
                                run(supervisor.start(0));
                                const int64_t end = now();
                                return std::vector{ static_cast<double>(end - stamps(directory, 0, 2)[1].time) /
                                                    MILLISECOND };
                            })
                            .front());
    }
    return median(taken);
}

// What a search by executable cannot do without: each link read, and resolved, as it may lead through other links.
double plain_search()
{
    const int64_t start = now();
    char resolved[PATH_MAX];

    for (const auto& entry : fs::directory_iterator("/proc")) {
        std::error_code gone;
        const fs::path target = fs::read_symlink(entry.path() / "exe", gone);
        if (!target.empty() && realpath(target.c_str(), resolved) != nullptr && target == "/none") {
            throw std::runtime_error("found what is not there");
        }
    }
    return static_cast<double>(now() - start);
}

void start_sleepers()
{
    for (int i = 0; i < SLEEPERS; i++) {
        const pid_t pid = fork();
        if (pid == 0) {
            for (;;) {
                pause();
            }
        }
        if (pid < 0) {
            throw std::runtime_error("fork failed");
        }
    }
}

// Microseconds that one more process costs a search: the difference between a full and an empty list of processes.
std::vector<Value> search(const Places& places)
{
    const std::vector<std::string> names = { "monp", "plain loop", "start-stop-daemon", "pidof", "pgrep" };
    const auto taken = in_namespace([&](const fs::path& directory) {
        const Supervisor monitor = supervisors(places, directory).front();
        int number = 0;
        const std::vector<std::function<double()>> searches = {
            [&] { return start_one(monitor, directory, number++); },
            plain_search,
            [&] {
                return run({ { places.packages / "start-stop-daemon", "--status", "--exec", "/bin/dd" }, {} });
            },
            [&] {
                return run({ { places.packages / "pidof", "/bin/dd" }, {} });
            },
            [] {
                return run({ { "/usr/bin/pgrep", "-x", "none" }, {} });
            },
        };
        const auto each = [&] {
            std::vector<double> medians;
            for (const auto& one : searches) {
                std::vector<double> rounds(9);
                std::generate(rounds.begin(), rounds.end(), one);
                medians.push_back(median(rounds));
            }
            return medians;
        };
        const std::vector<double> few = each();
        start_sleepers();
        std::vector<double> many = each();
        for (size_t i = 0; i < many.size(); i++) {
            many[i] = (many[i] - few[i]) / SLEEPERS / 1000;
        }
        return many;
    });
    std::vector<Value> values;

    for (size_t i = 0; i < names.size(); i++) {
        values.push_back({ names[i], taken[i] });
    }
    return values;
}

} // namespace

std::vector<Measure> measure_all(const Places& places)
{
    Measure added = { "private memory of one more service of 50, KiB", 100, {} };
    Measure resident = { "resident size of the supervisor, KiB", 2048, {} };
    Measure start = { "start of the supervisor to the service's first instruction, ms", 3, {} };
    Measure middle = { "kill -9 to the next service's first instruction, median, s", 0.53, {} };
    Measure longest = { "kill -9 to the next service's first instruction, longest, s", 1.02, {} };
    Measure processor = { "idle: processor time a second, us", 50, {} };
    Measure calls = { "idle: system calls a second", 2, {} };
    const Measure found = { "search among 8000 processes, us each", 12, search(places) };
    Measure report = { "report to the return of the launcher's command, ms", 110, {} };
    const std::vector<Supervisor> all = supervisors(places, {});

    for (size_t i = 0; i < all.size(); i++) {
        const Trials trials{ places, i };
        const std::string& who = all[i].name;
        std::cerr << "measuring " << who << '\n';
        start.values.push_back({ who, start_ms(trials) });
        const std::vector<double> restarts = restart_s(trials);
        middle.values.push_back({ who, median(restarts) });
        longest.values.push_back({ who, *std::max_element(restarts.begin(), restarts.end()) });
        const Memory kib = memory(trials);
        added.values.push_back({ who, kib.added_kib });
        resident.values.push_back({ who, kib.resident_kib });
        const Idle quiet = idle(trials);
        processor.values.push_back({ who, quiet.processor_us });
        calls.values.push_back({ who, quiet.calls });
    }
    report.values.push_back({ all[0].name, report_ms({ places, 0 }) });
    return { added, resident, start, middle, longest, processor, calls, found, report };
}

} // namespace peers
