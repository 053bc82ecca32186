// A random sequence of what can happen to the monitor, its run on the stage, and its shortening after a failure.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// One thing that happens. The kind says what the numbers and the text mean, see sequence.cpp.
struct Happening {
    size_t kind = 0;
    int when = 0; // second, or how many calls before
    int what = 0;
    int how = 0;
    int then = 0;
    std::string text{};
};

struct Sequence {
    std::string type;
    std::vector<Happening> happenings;
};

Sequence draw(uint64_t seed);
std::string describe(const Sequence& sequence); // a line for each thing

// Runs the monitor through a sequence. Tells how it differs from the model; empty: it does not.
std::string run(const Sequence& sequence);

// The sequence without all that is not needed for the failure.
Sequence shorten(Sequence sequence, const std::function<bool(const Sequence&)>& fails);
