/*
 * Private keys in PEM form, over several lines.
 */
#ifndef SAMPLE_REDACT_KEYS_H
#define SAMPLE_REDACT_KEYS_H

#include <span>

namespace sample {

class PrivateKeys {
public:
    /* Turns what a line has of keys into stars. Lines come in their order. */
    void clean(std::span<char> line);

private:
    int lines_ = 0; /* that are left of a key that has begun; 0 outside of one */
};

} // namespace sample

#endif
