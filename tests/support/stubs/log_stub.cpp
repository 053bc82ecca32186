/*
 * A log library with the three operations and nothing else, as the cluster's own one is. Its lines are plain text in
 * <home>/log/<ident>.txt, so nobody can mistake its log for one of ours.
 */
#include "tesklog.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

struct Log {
    int fd;
    int level;
};

/* As the monitor may write in a signal handler and in a forked child, there is one write a line and nothing shared. */
void write_line(const Log& log, const std::array<char, 2048>& line, int length)
{
    const int error = errno;
    const size_t size = length < 0 ? 0 : static_cast<size_t>(length);

    if (write(log.fd, line.data(), size < line.size() ? size : line.size() - 1) < 0) {
        errno = error; /* a lost line is this library's own business */
    }
    errno = error;
}

} // namespace

int log_init(const char* ident, void** handle, int level, int /*size*/, int /*generations*/)
{
    const char* home = getenv("TESK_HOME");
    const std::string file = std::string(home != nullptr ? home : TESK_HOME_DEFAULT) + "/log/" + ident + ".txt";
    const int fd = open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);

    *handle = fd < 0 ? nullptr : new Log{ fd, level != 0 ? level : TESKLOG_INFO };
    return fd < 0 ? errno : 0;
}

void log_write(void* handle, int level, int event, const char* /*file*/, int /*line*/, const char* function,
               const char* format, ...)
{
    const auto* log = static_cast<const Log*>(handle);
    std::array<char, 2048> line = {};
    va_list values;

    if (log == nullptr || (level > log->level && level != TESKLOG_EVENT)) {
        return;
    }
    int length = std::snprintf(line.data(), line.size(), "%d %d %s: ", level, event, function);
    if (format != nullptr) {
        va_start(values, format);
        length += std::vsnprintf(line.data() + length, line.size() - static_cast<size_t>(length) - 1, format, values);
        va_end(values);
    }
    length = length < static_cast<int>(line.size()) - 1 ? length : static_cast<int>(line.size()) - 2;
    line[static_cast<size_t>(length)] = '\n';
    write_line(*log, line, length + 1);
}

void log_term(void* handle)
{
    const auto* log = static_cast<const Log*>(handle);

    if (log != nullptr) {
        close(log->fd);
        delete log;
    }
}
