#include "stage.h"

#include "monp_signal.h"

#include <cstdarg>
#include <sstream>

Journal journal;

static std::string vfmt(const char* format, va_list args)
{
    char text[8192];

    vsnprintf(text, sizeof(text), format, args);
    return text;
}

std::string fmt(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    std::string text = vfmt(format, args);
    va_end(args);
    return text;
}

int Journal::call(const std::string& entry)
{
    entries.push_back(entry);
    if (auto event = when.extract(entry)) {
        event.mapped()();
    }
    auto hit = fails.find(entry);
    if (hit == fails.end()) {
        hit = fails.find(entry.substr(0, entry.find(' ')));
    }
    return hit == fails.end() ? 0 : hit->second;
}

std::string Journal::but(const std::string& words, const std::vector<std::string>& texts) const
{
    std::string found;
    for (const std::string& entry : entries) {
        const std::string word = " " + entry.substr(0, entry.find(' ')) + " ";
        bool wanted = words.empty() || (" " + words + " ").find(word) != std::string::npos;
        for (const std::string& text : texts) {
            wanted = wanted && entry.find(text) == std::string::npos;
        }
        found += wanted ? (found.empty() ? "" : "; ") + entry : "";
    }
    return found;
}

std::string Journal::only(const std::string& words) const
{
    return but(words, {});
}

size_t Journal::count(const std::string& begin) const
{
    return static_cast<size_t>(std::count_if(entries.begin(), entries.end(),
                                             [&](const std::string& entry) { return entry.rfind(begin, 0) == 0; }));
}

// ---- the log library ----

int log_init(const char* ident, void** handle, int level, int size, int generations)
{
    int code = journal.call(fmt("log_init %s %d %d %d", ident, level, size, generations));
    *handle = code == 0 ? &journal : *handle; // a failure may leave it as it was
    return code;
}

void log_term(void* handle)
{
    EXPECT_EQ(&journal, handle);
    journal.call("log_term");
}

void log_write(void* handle, int level, int event, const char* file, int line, const char* function, const char* format,
               ...)
{
    static const std::map<int, std::string> names = { { TESKLOG_ERROR, "error: " },   { TESKLOG_WARNING, "warning: " },
                                                      { TESKLOG_INFO, "info: " },     { TESKLOG_TRACE, "trace: " },
                                                      { TESKLOG_DETAIL, "detail: " }, { TESKLOG_EVENT, "event: " } };
    std::string entry = names.at(level);
    va_list args;

    EXPECT_TRUE(file != nullptr && line > 0 && function != nullptr);
    journal.function = function;
    EXPECT_TRUE((level == TESKLOG_EVENT) == (event != 0) && (event != 0) == (format == nullptr));
    va_start(args, format);
    if (level != TESKLOG_EVENT) {
        entry += vfmt(format, args);
    } else {
        entry += std::to_string(event);
        if (event <= 3 || event % 2 == 0) {
            entry += std::string(" ") + va_arg(args, const char*);
        }
        if (event <= 3 || event % 2 == 1) {
            entry += fmt(" %d", va_arg(args, int));
        }
    }
    va_end(args);
    if (handle != nullptr) {
        journal.call(entry);
    }
}

// ---- the start of a test, and whole runs ----

// As at program start.
static void reset()
{
    gmonpparam = {};
    gmonpallpol = {};
    gmonppol = {};
    gmonpmonpol = {};
    for (MONP_FLAG* flag : { &gbmonpinited, &gbmonpend, &gbreload, &gbmonpnostart, &gbmonpterm, &gmdfilemaked }) {
        *flag = 0;
    }
    gmonpppid = 0;
    gpmonplog = nullptr;
    free(gpmonpldpol);
    gpmonpldpol = nullptr;
    gmonpldpolnum = 0;
}

Monitor::Monitor()
{
    reset();
    monp_drainsignals(); // forgets those of the test before
    put(gmonpparam.type, "dusko");
    put(gmonpmonpol.type, "trn");
    put(gmonpallpol.instpath, "/opt/x/");
    sys = Sys();
    xml = Policy();
    journal = Journal();
    gpmonplog = &journal;
}

void break_marker()
{
    put(gmonpmonpol.type, "pelkant");
    put(gmonpallpol.instpath, "/nonexistent/");
    put(gmonppol.mddirpath, "md");
}

std::string run_monitor(const std::string& arguments)
{
    std::istringstream words("monp " + arguments);
    std::vector<std::string> list(std::istream_iterator<std::string>(words), {});
    std::vector<char*> argv;
    argv.reserve(list.size() + 1);
    for (std::string& word : list) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    reset();
    journal.entries.clear();
    sys.pid = 4711;
    sys.fork = Sys::DAEMON;
    return sys.run([&] { monp_main(static_cast<int>(list.size()), argv.data()); });
}
