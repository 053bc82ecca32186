// One supervisor at work in process and mount namespaces of its own, which take everything along when they end.
#pragma once

#include "supervisors.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace peers {

int64_t now(); // nanoseconds of the monotonic clock
void pause_for(double seconds);

// Runs work as process 1 of new namespaces with /proc and /run of their own, in an empty temporary directory, which it
// leaves behind, and gives the numbers that it returned. Throws with the text of what it threw, or when it ended
// otherwise.
std::vector<double> in_namespace(const std::function<std::vector<double>(const fs::path& directory)>& work);

// Starts a program with its output thrown away and an environment of its own.
pid_t spawn(const Command& command);
// The same, waited for; gives the nanoseconds that it took.
double run(const Command& command);

struct Stamp {
    pid_t pid;
    int64_t time; // now() in the service
};

// Waits until a service has noted so many times, at most a minute; gives all of them.
std::vector<Stamp> stamps(const fs::path& directory, int number, size_t count);

// The processes of this namespace that run a program of this name.
std::vector<pid_t> processes(const std::string& program);

struct Usage {
    double private_kib = 0;
    double resident_kib = 0;
    double processor_us = 0; // so far
};
Usage usage(pid_t pid);

} // namespace peers
