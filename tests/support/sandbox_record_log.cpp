/*
 * libtesklog.so.1.0 that records each call. An answer for "log_init" makes it fail with that code.
 */
#include "sandbox_record.h"
#include "tesklog.h"

#include <cstdarg>
#include <cstdio>

static std::string level_word(int level)
{
    static const std::map<int, std::string> words = { { TESKLOG_ERROR, "error" },   { TESKLOG_WARNING, "warning" },
                                                      { TESKLOG_INFO, "info" },     { TESKLOG_TRACE, "trace" },
                                                      { TESKLOG_DETAIL, "detail" }, { TESKLOG_EVENT, "event" } };

    return words.contains(level) ? words.at(level) : "level" + std::to_string(level);
}

static std::string formatted(const char* format, va_list list)
{
    char text[4096];

    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the caller's va_start is not seen
    if (std::vsnprintf(text, sizeof(text), format, list) >= static_cast<int>(sizeof(text))) {
        std::abort();
    }
    return text;
}

int log_init(const char* ident, void** handle, int level, int size, int generations)
{
    const int result = record::result("log_init");

    record::add("lib", "log_init",
                ident + (' ' + std::to_string(level)) + ' ' + std::to_string(size) + ' ' + std::to_string(generations));
    *handle = result == 0 ? handle : nullptr;
    return result;
}

void log_write(void* handle, int level, int event, const char*, int, const char* function, const char* format, ...)
{
    // An event has no format: its arguments are those that its number stands for.
    static const char* const events[] = { "",       "[1] %s %d", "[2] %s %d", "[3] %s %d", "[4] %s",
                                          "[5] %d", "[6] %s",    "[7] %d",    "[8] %s",    "[9] %d" };
    va_list list;

    if (handle == nullptr) {
        return;
    }
    va_start(list, format);
    record::add(level_word(level), function, formatted(format == nullptr ? events[event] : format, list));
    va_end(list);
}

void log_term(void* handle)
{
    record::add("lib", "log_term", handle == nullptr ? "null" : "open");
}
