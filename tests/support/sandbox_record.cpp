/*
 * Takes the place of both libraries, under both names: appends each call, in the shape of the log's lines, to
 * work/record and answers from work/answers, which holds lines "key=value".
 */
#include "tesklog.h"
#include "teskxml.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <string>
#include <unistd.h>

namespace {

std::map<std::string, std::string> values;

std::string work(const char* name)
{
    const char* home = std::getenv("TESK_HOME");

    return (home == nullptr ? std::string() : home) + "/work/" + name;
}

/*
 * One write, so that the calls of several processes and threads stay whole.
 */
void record(const std::string& level, const std::string& function, const std::string& text)
{
    const std::string line = "- " + level + ' ' + std::to_string(gettid()) + " - " + function + " - " + text + '\n';
    const int file = open(work("record").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);

    if (file < 0 || write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        std::abort();
    }
    close(file);
}

/*
 * No table of objects: the collection thread may write while the program's exit tears such tables down.
 */
const char* word(int level)
{
    switch (level) {
    case TESKLOG_ERROR:
        return "error";
    case TESKLOG_WARNING:
        return "warning";
    case TESKLOG_INFO:
        return "info";
    case TESKLOG_TRACE:
        return "trace";
    case TESKLOG_DETAIL:
        return "detail";
    case TESKLOG_EVENT:
        return "event";
    default:
        std::abort();
    }
}

int call(const std::string& name, const std::string& argument = "-")
{
    record("lib", name, argument);
    return 0;
}

} // namespace

int log_init(const char* ident, void** handle, int level, int size, int generations)
{
    record("lib", "log_init",
           ident + (' ' + std::to_string(level)) + ' ' + std::to_string(size) + ' ' + std::to_string(generations));
    *handle = handle;
    return 0;
}

void log_write(void*, int level, int event, const char*, int, const char* function, const char* format, ...)
{
    // An event has no format: its arguments are those that its number stands for.
    static const char* const events[] = { "",       "[1] %s %d", "[2] %s %d", "[3] %s %d", "[4] %s",
                                          "[5] %d", "[6] %s",    "[7] %d",    "[8] %s",    "[9] %d" };
    char text[4096];
    va_list list;

    va_start(list, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the va_start above is not seen
    if (std::vsnprintf(text, sizeof(text), format == nullptr ? events[event] : format, list) >= int{ sizeof(text) }) {
        std::abort();
    }
    va_end(list);
    record(word(level), function, text);
}

void log_term(void* handle)
{
    record("lib", "log_term", handle == nullptr ? "null" : "open");
}

int xmllib_init(const char* ident)
{
    std::ifstream file(work("answers"));

    for (std::string key, value; std::getline(file, key, '=') && std::getline(file, value);) {
        values[key] = value;
    }
    return call("xmllib_init", ident);
}

int xmllib_term(void)
{
    return call("xmllib_term");
}

int xmllib_load_config(void)
{
    return call("xmllib_load_config");
}

int xmllib_unload_config(void)
{
    return call("xmllib_unload_config");
}

int xmllib_load_pathconfig(const char* path, void**)
{
    return call("xmllib_load_pathconfig", path);
}

int xmllib_unload_pathconfig(void*)
{
    return call("xmllib_unload_pathconfig");
}

int xmllib_load_policy(const char* name)
{
    return call("xmllib_load_policy", name);
}

int xmllib_unload_policy(const char* name)
{
    return call("xmllib_unload_policy", name);
}

int xmllib_get_value(const char* key, int kind, void* destination, int* capacity)
{
    const auto value = values.find(key + std::strlen("/root/"));

    call("xmllib_get_value", key + (' ' + std::to_string(kind)) + ' ' + std::to_string(*capacity));
    *capacity = 0; // a library may use it to tell what it stored, so a caller must set it for each read
    if (value == values.end()) {
        return 0x21;
    }
    if (kind == TESKXML_INT) {
        const int number = std::stoi(value->second);
        std::memcpy(destination, &number, sizeof(number));
    } else {
        std::memcpy(destination, value->second.c_str(), value->second.size() + 1);
    }
    return 0;
}
