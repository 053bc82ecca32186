// Stands in for the fuzzer in an ordinary build: gives the target each file of a directory once.
#include "fuzz.h"

#include <filesystem>
#include <fstream>
#include <iterator>

int main(int argc, char** argv)
{
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : ".")) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string bytes{ std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>() };
        fprintf(stderr, "%s\n", entry.path().c_str()); // the last one printed is the one that failed
        FUZZ_CHECK(file.good() && !bytes.empty());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        files++;
    }
    FUZZ_CHECK(files > 0);
    return 0;
}
