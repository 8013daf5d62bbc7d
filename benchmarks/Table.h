#pragma once

#include <string>
#include <vector>

namespace Bench
{

/// Plain text in aligned columns, the first to the left, the others to the right; the first row is the heading.
class Table
{
  public:
    explicit Table(std::vector<std::string> heading) : rows_{std::move(heading)} {}

    void Add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    void Print() const;

  private:
    std::vector<std::vector<std::string>> rows_;
};

/// What printf(3) would print, up to 100 characters.
[[nodiscard, gnu::format(printf, 1, 2)]] std::string Text(const char* format, ...);

/// Seconds as microseconds.
[[nodiscard]] std::string Microseconds(double seconds);

[[nodiscard]] const char* Verdict(bool isMet);

} // namespace Bench
