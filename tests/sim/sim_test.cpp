// Random sequences of everything that can happen, in virtual time, against a model of the monitor.
//   MONP_SIM_RUNS   number of sequences, 10,000 if unset
//   MONP_SIM_SEED   of the first one, 1 if unset; the next one's is one more
#include "sequence.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>

static uint64_t setting(const char* name, uint64_t unset)
{
    const char* value = getenv(name);
    return value != nullptr ? strtoull(value, nullptr, 10) : unset;
}

TEST(Simulation, TheMonitorDoesWhatTheModelDoes)
{
    const uint64_t first = setting("MONP_SIM_SEED", 1);
    const uint64_t runs = setting("MONP_SIM_RUNS", 10000);

    printf("%llu sequences, the first from seed %llu\n", static_cast<unsigned long long>(runs),
           static_cast<unsigned long long>(first));
    for (uint64_t seed = first; seed < first + runs; seed++) {
        const Sequence sequence = draw(seed);
        if (run(sequence).empty()) {
            continue;
        }
        const Sequence shortest = shorten(sequence, [](const Sequence& each) { return !run(each).empty(); });
        FAIL() << "seed " << seed << "\n" << describe(shortest) << run(shortest);
    }
}
