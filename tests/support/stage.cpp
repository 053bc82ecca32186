// The journal, the two libraries, and the start of a test.
#include "stage.h"

#include "monp_signal.h"
#include "tesklog.h"
#include "teskxml.h"

#include <cstdarg>
#include <cstring>
#include <sstream>

Journal journal;
Policy xml;

std::string vfmt(const char* format, va_list args)
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

size_t Journal::add(const std::string& entry)
{
    notes.resize(entries.size()); // a test may have cleared them
    notes.push_back({ .thread = stage_thread(), .clock = sys.clock });
    entries.push_back(entry);
    if (stage_child != -1) {
        dprintf(stage_child, "%s\n", entry.c_str());
    }
    return entries.size() - 1;
}

int Journal::call(const std::string& entry)
{
    const size_t number = add(entry);
    int code = 0;

    if (auto event = when.extract(entry)) {
        event.mapped()();
    }
    if (chance && stage_child == -1) {
        code = chance(number);
    } else if (!fails.empty()) {
        auto hit = fails.find(entry);
        if (hit == fails.end()) {
            hit = fails.find(entry.substr(0, entry.find(' ')));
        }
        code = hit == fails.end() ? 0 : hit->second;
    }
    last = number;
    if (code != 0 && number < notes.size()) { // unless a test has cleared it meanwhile
        notes[number].result = -1;
        notes[number].error = code;
    }
    return code;
}

Note& Journal::answer()
{
    return notes.at(last);
}

std::string Journal::only(const std::string& words, const std::vector<std::string>& without) const
{
    std::string found;
    for (const std::string& entry : entries) {
        const std::string word = " " + entry.substr(0, entry.find(' ')) + " ";
        bool wanted = words.empty() || (" " + words + " ").find(word) != std::string::npos;
        for (const std::string& text : without) {
            wanted = wanted && entry.find(text) == std::string::npos;
        }
        found += wanted ? (found.empty() ? "" : "; ") + entry : "";
    }
    return found;
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
    va_start(args, format);
    if (level != TESKLOG_EVENT) {
        entry += vfmt(format, args);
    } else {
        entry += std::to_string(event);
        entry += event <= 3 || event % 2 == 0 ? std::string(" ") + va_arg(args, const char*) : "";
        entry += event <= 3 || event % 2 == 1 ? fmt(" %d", va_arg(args, int)) : "";
    }
    va_end(args);
    if (handle != nullptr) {
        journal.call(entry);
    }
}

// ---- the policy library ----

void Policy::fill(const std::string& type)
{
    // Texts behind "=", numbers behind "#".
    const std::string own = "|monp/service/" + type + "/";
    const Words words("all/path=/opt/x|all/core#0|all/stacksize#0|all/env/alloc=3|all/env/path=/bin|all/env/lang=C|"
                      "dummyconf#0|monp/type=own|monp/path=bin/monp|monp/log/level#4|monp/log/size#70000|"
                      "monp/elog/path=sbin/elog|monp/elog/arcpath=e.tgz|monp/elog/rotate#7|monp/elog/pattern#3|"
                      "pm/lockf=/lock|monp/md/dirpath=md|monp/md/filename=made" +
                      own + "action#1" + own + "param=-f a" + own + "restarttime#3" + own + "waittime#5" + own +
                      "parent_timeout#6" + own + "child_timeout#4|" + type + "/type=trn|" + type + "/path=bin/svc");
    values.clear();
    for (const std::string& word : words.list) {
        const size_t sign = word.find_first_of("=#");
        const std::string value = word.substr(sign + 1);
        auto& place = values["/root/" + word.substr(0, sign)];
        word[sign] == '=' ? place = value : place = std::stoi(value);
    }
}

int xmllib_init(const char* ident)
{
    return journal.call(std::string("xmllib_init ") + ident);
}

int xmllib_term()
{
    return journal.call("xmllib_term");
}

int xmllib_load_config()
{
    return journal.call("xmllib_load_config");
}

int xmllib_unload_config()
{
    return journal.call("xmllib_unload_config");
}

int xmllib_load_pathconfig(const char* path, void** handle)
{
    *handle = &xml;
    return journal.call(std::string("xmllib_load_pathconfig ") + path);
}

int xmllib_unload_pathconfig(void* handle)
{
    EXPECT_EQ(&xml, handle);
    return journal.call("xmllib_unload_pathconfig");
}

int xmllib_load_policy(const char* name)
{
    return journal.call(std::string("xmllib_load_policy ") + name);
}

int xmllib_unload_policy(const char* name)
{
    return journal.call(std::string("xmllib_unload_policy ") + name);
}

int xmllib_get_value(const char* key, int kind, void* destination, int* capacity)
{
    journal.call(fmt("xmllib_get_value %s %d %d", key, kind, *capacity));
    auto hit = xml.values.find(key);
    Note& answer = journal.answer();
    if (hit == xml.values.end()) {
        answer.error = 0x105;
        return 0x105;
    }
    if (kind == TESKXML_INT) {
        answer.text = std::to_string(std::get<int>(hit->second));
        memcpy(destination, &std::get<int>(hit->second), sizeof(int));
    } else {
        const std::string& text = std::get<std::string>(hit->second);
        answer.text = text;
        EXPECT_LT(text.size(), static_cast<size_t>(*capacity)) << key;
        memcpy(destination, text.c_str(), text.size() + 1);
    }
    *capacity = -1; // nobody may rely on it
    return 0;
}

// ---- the start of a test, and whole runs ----

// As at program start.
static void reset()
{
    gmonpparam = {};
    gmonpallpol = {};
    gmonppol = {};
    gmonpmonpol = {};
    for (MONP_FLAG* flag : { &gbmonpinited, &gbmonpend, &gbreload, &gbmonpnostart, &gbmonpterm, &gmdfilemaked,
                             &gmonpstate.bmarkerdue, &gmonpstate.bexec }) {
        *flag = 0;
    }
    gmonpstate.breported = gmonpstate.bendtested = 0;
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

Words::Words(const std::string& text)
{
    std::istringstream stream(text);
    for (std::string word; std::getline(stream, word, '|');) {
        list.push_back(word);
    }
    for (std::string& word : list) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
}

std::string run_monitor(const std::string& arguments)
{
    Words words("monp|" + arguments);
    reset();
    journal.entries.clear();
    sys.pid = 4711;
    sys.fork = Sys::DAEMON;
    return sys.run([&] { monp_main(static_cast<int>(words.list.size()), words.argv.data()); });
}
