// SPDX-License-Identifier: Apache-2.0
// The fuzzers' main program where there is no libFuzzer: runs the inputs in the folders that it is
// given, and says how many there were. Fails if there were none.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "Fuzzer.h"

int main(int argc, char** argv) {
    size_t count = 0;
    for (int i = 1; i < argc; i++) {
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(argv[i], error)) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> input{std::istreambuf_iterator<char>(file), {}};
            // Printed before it runs: it may be the last one.
            printf("%s\n", entry.path().c_str());
            fflush(stdout);
            // A block of its own, of exactly its size, so that reading past it shows.
            const std::vector<uint8_t> exact(input.begin(), input.end());
            LLVMFuzzerTestOneInput(exact.data(), exact.size());
            count++;
        }
        if (error) fprintf(stderr, "%s: %s\n", argv[i], error.message().c_str());
    }
    printf("%zu inputs\n", count);
    return count > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
