// Runs a fuzz target over the files of a directory. usage: fuzz_NAME_corpus DIRECTORY
#include <stdint.h>
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "check.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    isReplay = true;
    int count = 0;
    for (auto const& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        std::vector<char> const bytes{std::istreambuf_iterator<char>(file), {}};
        // Printed first: after a crash, the last name identifies the input.
        printf("%s, %zu bytes\n", entry.path().filename().c_str(), bytes.size());
        fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<uint8_t const*>(bytes.data()), bytes.size());
        ++count;
    }
    return count == 0;
}
