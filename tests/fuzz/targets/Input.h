#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

/// What a fuzzer has made up, taken apart into values; an input that has ended gives zeros.
class Input
{
  public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    template <typename T>
    T Take()
    {
        T value{};
        const size_t length = std::min(size_, sizeof value);
        std::memcpy(&value, data_, length);
        Skip(length);
        return value;
    }

    bool TakeFlag() { return Take<uint8_t>() % 2 != 0; }

    /// At most so many bytes, as many as a length in the input says.
    std::string TakeText(size_t longest = 64)
    {
        const size_t length = std::min(size_, Take<uint8_t>() % (longest + 1));
        std::string text(reinterpret_cast<const char*>(data_), std::min(size_, length));
        Skip(text.size());
        return text;
    }

    /// A number below the bound.
    size_t TakeBelow(size_t bound) { return Take<uint8_t>() % bound; }

    [[nodiscard]] bool HasMore() const { return size_ > 0; }

  private:
    void Skip(size_t length)
    {
        data_ += length;
        size_ -= length;
    }

    const uint8_t* data_;
    size_t size_;
};

/// For calls that are made to see that they come back.
template <typename T>
void Ignore(const T& /*value*/)
{}

/// Ends the program when something does not hold, which is what fuzzers look for.
inline void Require(bool holds, const char* what)
{
    if (!holds)
    {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
