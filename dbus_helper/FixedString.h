#pragma once

#include <cstddef>
#include <string_view>

namespace DbusHelper
{

/// Text of a length known at compile time: usable as a template argument and joined while compiling.
/// `Size` counts the terminating NUL.
template <std::size_t Size>
struct FixedString
{
    char text[Size]{};

    constexpr FixedString() = default;

    // NOLINTNEXTLINE(google-explicit-constructor): a literal is what it is for
    constexpr FixedString(const char (&literal)[Size])
    {
        for (std::size_t i = 0; i < Size; ++i)
        {
            text[i] = literal[i];
        }
    }

    [[nodiscard]] constexpr const char* c_str() const { return text; }
    [[nodiscard]] constexpr std::string_view View() const { return {text, Size - 1}; }
};

/// One text made of several, joined without separator.
template <std::size_t... Sizes>
[[nodiscard]] constexpr auto Concat(const FixedString<Sizes>&... parts)
{
    FixedString<(std::size_t{1} + ... + (Sizes - 1))> joined;
    std::size_t end = 0;
    const auto append = [&](std::string_view part) {
        for (const char character : part)
        {
            joined.text[end++] = character;
        }
    };
    (append(parts.View()), ...);
    return joined;
}

} // namespace DbusHelper
