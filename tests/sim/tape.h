// The journal of a run as one thread's model reads it: entry by entry, each of which has to be the one expected.
#pragma once

#include "stage.h"

#include <stdexcept>

// The monitor did something else than the model.
struct Mismatch : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Lines that the model leaves out: those of the innermost operations. Nothing happens while they are written, either.
bool noise(const std::string& entry);

class Tape {
public:
    // aside is told of the entries that are passed and are not the thread's: signals, and what other threads did.
    Tape(const Journal& read, int reader, std::function<void(size_t entry)> aside);

    const std::string& next() const; // empty at the end
    size_t position() const
    {
        return at;
    }
    bool sees(const std::string& begin) const
    {
        return next().rfind(begin, 0) == 0;
    }

    // The next entry has to be this one, in which "*" stands for any text. Afterwards all is past that happened in it.
    const Note& take(const std::string& expected);
    bool fails(const std::string& call)
    {
        return take(call).error != 0;
    }
    void pass(const std::string& begin); // all entries up to the first that begins so, and that one, too

private:
    bool own() const;
    void go_on();

    const Journal& record;
    int thread;
    std::function<void(size_t)> aside;
    size_t at = 0;
};
