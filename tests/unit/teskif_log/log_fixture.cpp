#include "log_fixture.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

LogSystem logSystem;

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t id, struct timespec* now) noexcept
{
    if (const auto hook = std::exchange(logSystem.onClock, nullptr)) {
        hook();
    }
    if (id == CLOCK_REALTIME && logSystem.clock != 0) {
        *now = { logSystem.clock / 1000000000, logSystem.clock % 1000000000 };
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, id, now));
}

extern "C" __attribute__((visibility("default"))) int renameat2(int fromdir, const char* from, int todir,
                                                                const char* to, unsigned flags) noexcept
{
    int result = -1;

    errno = EINVAL;
    if (!logSystem.plainRename) {
        result = static_cast<int>(syscall(SYS_renameat2, fromdir, from, todir, to, flags));
    }
    if (const auto hook = std::exchange(logSystem.onRename, nullptr); hook && !hook(to)) {
        logSystem.onRename = hook;
    }
    return result;
}

LogTest::LogTest()
{
    std::string name = testing::TempDir() + "teskif_log_XXXXXX";

    home = mkdtemp(name.data());
    setenv("TESK_HOME", home.c_str(), 1);
    setenv("TZ", "UTC0", 1);
    logSystem = LogSystem();
}

LogTest::~LogTest()
{
    log_term(handle);
    logSystem = LogSystem();
    std::filesystem::remove_all(home);
}

void* LogTest::open(int level, int size, int generations)
{
    EXPECT_EQ(0, log_init("monp", &handle, level, size, generations));
    return handle;
}

std::vector<std::string> LogTest::lines(const std::string& name) const
{
    std::ifstream file(path(name));
    std::vector<std::string> found;

    for (std::string line; std::getline(file, line);) {
        found.push_back(line);
    }
    return found;
}

std::vector<std::string> LogTest::texts(const std::string& name) const
{
    std::vector<std::string> found = lines(name);

    for (std::string& line : found) {
        std::string::size_type text = 0;
        for (int word = 0; word < 6 && text != std::string::npos; word++) {
            text = line.find(' ', text + 1);
        }
        if (text != std::string::npos && line.size() > 28 && line[10] == 'T' && line[26] == '+') {
            line.erase(0, text + 1);
        }
    }
    return found;
}

std::string LogTest::printed(const char* format, ...)
{
    char text[1024];
    va_list arguments;

    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return text;
}
