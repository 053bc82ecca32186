// A home directory of the run's own, for files of the libraries and of their peers alike.
#ifndef BENCH_HOME_H
#define BENCH_HOME_H

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

// Ends the run: a time of something that did not happen must not be compared.
inline void need(bool done, const char* what)
{
    if (!done) {
        std::perror(what);
        std::_Exit(1);
    }
}

class BenchHome {
public:
    BenchHome()
    {
        std::string name = std::filesystem::temp_directory_path() / "monp-bench-XXXXXX";
        need(mkdtemp(name.data()) != nullptr, "mkdtemp");
        path = name;
        setenv("TESK_HOME", name.c_str(), 1);
    }
    ~BenchHome()
    {
        std::filesystem::remove_all(path);
    }
    BenchHome(const BenchHome&) = delete;
    BenchHome& operator=(const BenchHome&) = delete;

    std::filesystem::path path;
};

#endif
