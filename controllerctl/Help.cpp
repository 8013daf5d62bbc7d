#include "controllerctl/Help.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <sstream>

namespace ControllerCtl
{
namespace
{

/// Where the last column of a line begins: behind the first two blanks that follow a word; 0 when it has one alone.
size_t LastColumn(const std::string& line)
{
    const size_t word = line.find_first_not_of(' ');
    const size_t gap = word == std::string::npos ? word : line.find("  ", word);
    const size_t column = gap == std::string::npos ? gap : line.find_first_not_of(' ', gap);
    return column == std::string::npos ? 0 : column;
}

/// Appends words in lines that begin with `margin`, the first of them with `begin`.
void Fill(std::string& wrapped, std::string begin, const std::string& margin, const std::string& text, size_t width)
{
    std::istringstream words(text);
    bool empty = true;
    for (std::string word; words >> word; empty = false)
    {
        if (!empty && begin.size() + 1 + word.size() > width)
        {
            wrapped += begin + "\n";
            begin = margin;
            empty = true;
        }
        begin += (empty ? "" : " ") + word;
    }
    wrapped += begin + "\n";
}

void WrapLine(std::string& wrapped, const std::string& line, size_t width)
{
    constexpr size_t further = 4;
    const size_t indent = std::min(line.find_first_not_of(' '), line.size());
    const size_t column = LastColumn(line);
    if (line.size() <= width)
    {
        wrapped += line + "\n";
    }
    else if (column > width / 2)
    {
        const std::string margin(indent + further, ' ');
        wrapped += line.substr(0, line.find("  ", indent)) + "\n";
        Fill(wrapped, margin, margin, line.substr(column), width);
    }
    else
    {
        const size_t margin = column == 0 ? indent : column;
        Fill(wrapped, line.substr(0, margin), std::string(margin, ' '), line.substr(margin), width);
    }
}

} // namespace

size_t Width()
{
    constexpr size_t usual = 80;
    const char* const variable = std::getenv("COLUMNS");
    const std::string given = variable == nullptr ? "" : variable;
    size_t columns = 0;
    std::from_chars(given.data(), given.data() + given.size(), columns);
    winsize size{};
    if (columns == 0 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0)
    {
        columns = size.ws_col;
    }
    return columns == 0 ? usual : columns;
}

std::string Wrapped(const std::string& text, size_t width)
{
    std::string wrapped;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
    {
        WrapLine(wrapped, line, width);
    }
    return wrapped;
}

} // namespace ControllerCtl
