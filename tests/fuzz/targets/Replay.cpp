/// Gives a target every file of the folders that are named: without a fuzzer, what was once found stays tried.

#include "tests/fuzz/targets/Input.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <span>

int main(int count, char** words)
{
    size_t replayed = 0;
    for (const char* folder : std::span(words, static_cast<size_t>(count)).subspan(1))
    {
        for (const auto& entry : std::filesystem::directory_iterator(folder))
        {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string bytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
            ++replayed;
        }
    }
    std::cout << replayed << " inputs\n";
    return replayed > 0 ? 0 : 1;
}
