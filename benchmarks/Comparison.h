#pragma once

#include <cstddef>
#include <functional>
#include <vector>

namespace Bench
{

struct Spread
{
    double least;
    double median;
    double most;
};

/// `values` must not be empty.
[[nodiscard]] Spread SpreadOf(std::vector<double> values);

/// What one round cost, in any unit that is the same on both sides.
using Cost = std::vector<double>;
using Round = std::function<Cost()>;

/// Costs of both sides, round by round: element i of each belongs to the same pair.
struct Comparison
{
    std::vector<Cost> measured;
    std::vector<Cost> bare;

    /// Of the figure at `index` of the costs.
    [[nodiscard]] Spread MeasuredSpread(size_t index) const;
    [[nodiscard]] Spread BareSpread(size_t index) const;
    /// Pair by pair, measured / bare.
    [[nodiscard]] Spread Ratio(size_t index) const;
    /// The least of measured / the least of bare: what is left when nothing disturbed either.
    [[nodiscard]] double RatioOfLeast(size_t index) const;
    /// Pair by pair, measured - bare.
    [[nodiscard]] Spread Difference(size_t index) const;
};

/// Runs the two sides alternately, the side that goes first changing with each pair, after a pair that does not count.
/// So whatever slows the machine down for longer than a round slows both sides of a pair.
[[nodiscard]] Comparison Interleave(size_t rounds, const Round& measured, const Round& bare);

/// Makes Ctrl-C and SIGTERM end the next pair, or any other wait, with Interrupted.
void ListenToInterrupts();
void ThrowIfInterrupted();

class Interrupted
{};

} // namespace Bench
