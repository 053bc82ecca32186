#include "tape.h"

#include <algorithm>
#include <fnmatch.h>

static bool begins(const std::string& text, const char* begin)
{
    return text.rfind(begin, 0) == 0;
}

static bool contains(const std::string& text, const char* part)
{
    return text.find(part) != std::string::npos;
}

bool noise(const std::string& entry)
{
    const bool handler = contains(entry, " sig=") || (begins(entry, "trace: end - (type=") && !contains(entry, "ret="));
    return begins(entry, "detail: ") || (begins(entry, "trace: ") && !handler);
}

Tape::Tape(const Journal& read, int reader, std::function<void(size_t)> other)
    : record(read), thread(reader), aside(std::move(other))
{
    for (; at < record.entries.size() && !own(); at++) {
        aside(at);
    }
}

bool Tape::own() const
{
    const std::string& entry = record.entries[at];
    return record.notes[at].thread == thread && !begins(entry, "signal ") && !begins(entry, "world: ") && !noise(entry);
}

void Tape::go_on()
{
    for (at++; at < record.entries.size() && !own(); at++) {
        aside(at);
    }
}

const std::string& Tape::next() const
{
    static const std::string nothing;
    return at < record.entries.size() ? record.entries[at] : nothing;
}

const Note& Tape::take(const std::string& expected)
{
    const bool same = contains(expected, "*") ? fnmatch(expected.c_str(), next().c_str(), 0) == 0 : next() == expected;
    const size_t found = at;

    if (!same) {
        std::string before;
        for (size_t i = at - std::min<size_t>(at, 25); i < at; i++) {
            before += fmt("%8.3f %d  %s\n", record.notes[i].clock / 1000.0, record.notes[i].thread,
                          record.entries[i].c_str());
        }
        throw Mismatch(before + fmt("thread %d, entry %zu\nexpected  %s\nfound     %s", thread, at, expected.c_str(),
                                    next().c_str()));
    }
    go_on();
    return record.notes[found];
}

void Tape::pass(const std::string& begin)
{
    while (!next().empty() && !sees(begin)) {
        go_on();
    }
    take(begin + "*");
}
