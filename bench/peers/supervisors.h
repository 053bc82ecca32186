// How each supervisor is told to keep the trivial service alive.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace peers {

namespace fs = std::filesystem;

// Where the programs are: the build, the unpacked packages, and a sample installation to copy.
struct Places {
    fs::path build, packages, installation;
};

struct Command {
    std::vector<std::string> arguments;
    std::vector<std::string> environment; // NAME=value, beside nothing but PATH
};

struct Supervisor {
    std::string name;
    std::string program; // what its processes run, the last part of its path
    bool one_for_all;    // one process for all services, which are prepared before it is started once
    std::function<void(int first, int count)> prepare;
    std::function<Command(int number)> start;
};

// The supervisors, ours first. Service N works in "<directory>/N" and notes its times in the file "stamps" there.
std::vector<Supervisor> supervisors(const Places& places, const fs::path& directory);

} // namespace peers
