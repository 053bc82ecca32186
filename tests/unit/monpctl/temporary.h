/*
 * A directory of its own for a test, removed after it.
 */
#ifndef MONPCTL_TEMPORARY_H
#define MONPCTL_TEMPORARY_H

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

struct Temporary {
    std::filesystem::path path = [] {
        std::string name = testing::TempDir() + "monpctl.XXXXXX";
        return mkdtemp(name.data()) == nullptr ? throw std::runtime_error(name) : name;
    }();

    Temporary() = default;
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
    ~Temporary()
    {
        std::filesystem::remove_all(path);
    }
};

#endif
