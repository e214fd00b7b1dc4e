// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target over every file of the directories named: how seeds, and inputs that once failed,
// are tested without libFuzzer. Fails when there is nothing to run.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& file : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream in(file.path(), std::ios::binary);
            const std::string bytes((std::istreambuf_iterator<char>(in)), {});
            std::printf("%s\n", file.path().c_str());
            std::fflush(stdout);  // the last one printed is the one that failed
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
            ++inputs;
        }
    }
    std::printf("%d inputs\n", inputs);
    return inputs == 0 ? 1 : 0;
}
