// What is measured, and how.
#pragma once

#include "trial.h"

#include <string>
#include <vector>

namespace peers {

struct Value {
    std::string who;
    double number;
};

struct Measure {
    std::string title;         // with its unit
    double goal;               // ours has to stay at or below it
    std::vector<Value> values; // ours first
};

// Takes all measures, one supervisor at a time; tells on standard error what it is at. Seven minutes.
std::vector<Measure> measure_all(const Places& places);

} // namespace peers
