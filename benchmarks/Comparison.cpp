#include "benchmarks/Comparison.h"

#include <signal.h>

#include <algorithm>

namespace Bench
{
namespace
{

volatile sig_atomic_t isInterrupted = 0;

template <typename Combine>
Spread PairByPair(const Comparison& comparison, size_t index, Combine combine)
{
    std::vector<double> values;
    for (size_t pair = 0; pair < comparison.measured.size(); ++pair)
    {
        values.push_back(combine(comparison.measured.at(pair).at(index), comparison.bare.at(pair).at(index)));
    }
    return SpreadOf(std::move(values));
}

} // namespace

Spread SpreadOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    const double median = values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
    return {values.front(), median, values.back()};
}

Spread Comparison::MeasuredSpread(size_t index) const
{
    return PairByPair(*this, index, [](double ours, double) { return ours; });
}

Spread Comparison::BareSpread(size_t index) const
{
    return PairByPair(*this, index, [](double, double yardstick) { return yardstick; });
}

Spread Comparison::Ratio(size_t index) const
{
    return PairByPair(*this, index, [](double ours, double yardstick) { return ours / yardstick; });
}

double Comparison::RatioOfLeast(size_t index) const { return MeasuredSpread(index).least / BareSpread(index).least; }

Spread Comparison::Difference(size_t index) const
{
    return PairByPair(*this, index, [](double ours, double yardstick) { return ours - yardstick; });
}

Comparison Interleave(size_t rounds, const Round& measured, const Round& bare)
{
    measured();
    bare();
    Comparison comparison;
    for (size_t pair = 0; pair < rounds; ++pair)
    {
        ThrowIfInterrupted();
        if (pair % 2 == 0)
        {
            comparison.measured.push_back(measured());
            comparison.bare.push_back(bare());
        }
        else
        {
            comparison.bare.push_back(bare());
            comparison.measured.push_back(measured());
        }
    }
    return comparison;
}

void ListenToInterrupts()
{
    struct sigaction action
    {};
    action.sa_handler = [](int) { isInterrupted = 1; };
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
}

void ThrowIfInterrupted()
{
    if (isInterrupted != 0)
    {
        throw Interrupted();
    }
}

} // namespace Bench
