#include "benchmarks/Table.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

namespace Bench
{

void Table::Print() const
{
    std::vector<size_t> widths(rows_.front().size());
    for (const auto& row : rows_)
    {
        for (size_t column = 0; column < row.size(); ++column)
        {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    for (const auto& row : rows_)
    {
        for (size_t column = 0; column < row.size(); ++column)
        {
            const int width = static_cast<int>(widths[column]);
            std::printf(column == 0 ? "%-*s" : "  %*s", width, row[column].c_str());
        }
        std::printf("\n");
    }
    std::fflush(stdout);
}

std::string Text(const char* format, ...)
{
    std::array<char, 101> text{};
    va_list arguments; // NOLINT(cppcoreguidelines-init-variables): va_start initialises it
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    return text.data();
}

std::string Microseconds(double seconds) { return Text("%.1f us", seconds * 1e6); }

const char* Verdict(bool isMet) { return isMet ? "met" : "missed"; }

} // namespace Bench
