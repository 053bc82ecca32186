// What all fuzz targets share: the check that ends a run, and taking an input apart.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

// Ends the program, which is how the fuzzer, or ctest, learns of a fault.
#define FUZZ_CHECK(condition) \
    ((condition) ? (void)0 : (fprintf(stderr, "%s:%d: broken: %s\n", __FILE__, __LINE__, #condition), abort()))

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// The parts of an input, one behind the other; what is missing at its end is zero or empty.
struct Input {
    template <class Number> Number number()
    {
        Number value = 0;
        const std::string_view part = rest.substr(0, sizeof(value));
        memcpy(&value, part.data(), part.size());
        rest.remove_prefix(part.size());
        return value;
    }

    std::string text() // up to the next NUL, which is left out
    {
        const std::string_view part = rest.substr(0, rest.find('\0'));
        rest.remove_prefix(part.size() + (part.size() < rest.size() ? 1 : 0));
        return std::string(part);
    }

    std::string_view rest;
};
