// A record in the log file, one that the level drops, and nine processes that write at once, beside spdlog's file sink
// that is flushed with each line. Both write lines of the same words to files of the same directory.
#include "bench_home.h"
#include "tesklog.h"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <chrono>
#include <climits>
#include <fstream>
#include <iterator>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const BenchHome home;

constexpr int without_rotation = INT_MAX;
constexpr int with_rotation = 1000000; // bytes: several times in one measurement
constexpr int generations = 5;
constexpr int records = 20000;
constexpr int writers = 9; // one for each service of a node
constexpr int records_each = 2000;

class Tesklog {
public:
    explicit Tesklog(int size)
    {
        need(log_init("bench", &handle, TESKLOG_INFO, size, generations) == 0, "log_init");
    }
    ~Tesklog()
    {
        log_term(handle);
    }
    Tesklog(const Tesklog&) = delete;
    Tesklog& operator=(const Tesklog&) = delete;

    static constexpr const char* file = "bench.log";

    void write(int n)
    {
        TESKLOG_LINE(handle, TESKLOG_INFO, "process started. (type=%s pid=%d timer=%d)", "dusko", 4711, n);
    }
    void drop(int n)
    {
        TESKLOG_LINE(handle, TESKLOG_TRACE, "process started. (type=%s pid=%d timer=%d)", "dusko", 4711, n);
    }

private:
    void* handle = nullptr;
};

class Spdlog {
public:
    static constexpr const char* file = "spdlog.log";

    explicit Spdlog(int size) : logger("bench", make_sink(size))
    {
        logger.set_pattern("%Y-%m-%dT%H:%M:%S.%f%z %l %P/%t %n %! %g:%# %v");
        logger.set_level(spdlog::level::info);
        logger.flush_on(spdlog::level::info);
    }
    void write(int n)
    {
        SPDLOG_LOGGER_CALL(&logger, spdlog::level::info, "process started. (type={} pid={} timer={})", "dusko", 4711,
                           n);
    }
    void drop(int n)
    {
        SPDLOG_LOGGER_CALL(&logger, spdlog::level::trace, "process started. (type={} pid={} timer={})", "dusko", 4711,
                           n);
    }

private:
    static spdlog::sink_ptr make_sink(int size)
    {
        const std::string path = home.path / "log" / file;
        std::filesystem::create_directories(home.path / "log");
        spdlog::sink_ptr sink;
        if (size == without_rotation) {
            sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path);
        } else {
            sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, static_cast<size_t>(size), generations);
        }
        return sink;
    }

    spdlog::logger logger;
};

// Each measurement begins with no file, so that none pays for what another one wrote.
void clean()
{
    std::filesystem::remove_all(home.path / "log");
}

// Times of lines that are not in the file would be worth nothing.
template <class Log> void check_lines(long expected)
{
    std::ifstream in(home.path / "log" / Log::file, std::ios::binary);
    const long lines = std::count(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>(), '\n');
    need(lines == expected, "lines in the log");
}

template <class Log, int size> void written(benchmark::State& state)
{
    clean();
    Log log(size);
    int n = 0;
    for (auto _ : state) {
        log.write(n++);
    }
    if (size == without_rotation) {
        check_lines<Log>(n);
    }
}

template <class Log> void filtered(benchmark::State& state)
{
    clean();
    Log log(without_rotation);
    int n = 0;
    for (auto _ : state) {
        log.drop(n++);
    }
}

// One writer: opens the log, tells that it is ready, waits for the others, writes.
template <class Log> [[noreturn]] void write_as_child(const int* ready, const int* go)
{
    char byte = 'r';
    Log log(without_rotation);
    close(go[1]);
    need(write(ready[1], &byte, 1) == 1 && read(go[0], &byte, 1) == 0, "child");
    for (int n = 0; n < records_each; n++) {
        log.write(n);
    }
    _exit(0);
}

template <class Log> std::chrono::duration<double> write_together()
{
    std::array<int, 2> ready = {};
    std::array<int, 2> go = {};
    need(pipe(ready.data()) == 0 && pipe(go.data()) == 0, "pipe");
    std::array<pid_t, writers> children = {};
    for (pid_t& child : children) {
        child = fork();
        need(child >= 0, "fork");
        if (child == 0) {
            write_as_child<Log>(ready.data(), go.data());
        }
    }
    for (int n = 0; n < writers; n++) {
        char byte = 0;
        need(read(ready[0], &byte, 1) == 1, "ready");
    }
    const auto begin = std::chrono::steady_clock::now();
    close(go[1]);
    for (const pid_t child : children) {
        int status = 0;
        need(waitpid(child, &status, 0) == child && status == 0, "waitpid");
    }
    const auto end = std::chrono::steady_clock::now();
    for (const int fd : { ready[0], ready[1], go[0] }) {
        close(fd);
    }
    return end - begin;
}

template <class Log> void nine(benchmark::State& state)
{
    for (auto _ : state) {
        clean();
        state.SetIterationTime(write_together<Log>().count());
        check_lines<Log>(writers * records_each);
    }
}

BENCHMARK(filtered<Tesklog>);
BENCHMARK(filtered<Spdlog>);
BENCHMARK(written<Tesklog, without_rotation>)->Name("written<Tesklog>")->Iterations(records);
BENCHMARK(written<Spdlog, without_rotation>)->Name("written<Spdlog>")->Iterations(records);
BENCHMARK(written<Tesklog, with_rotation>)->Name("rotated<Tesklog>")->Iterations(records);
BENCHMARK(written<Spdlog, with_rotation>)->Name("rotated<Spdlog>")->Iterations(records);
BENCHMARK(nine<Tesklog>)->UseManualTime()->Iterations(1);
BENCHMARK(nine<Spdlog>)->UseManualTime()->Iterations(1);

} // namespace
