#pragma once

#include <functional>
#include <string>
#include <vector>

/// What every benchmark here is made of: a piece of work and the least that the same work can cost, measured
/// in turns, so that a noisy machine is noisy for both; the median of the rounds' ratios is what counts.
namespace velto::bench {

struct Cost {
    double seconds = 0;
    double cpuSeconds = 0; ///< of the process and its ended children: what a busy machine distorts less
    double count = 0;      ///< what was done that often, for the measurement's own use
    double peakBytes = 0;  ///< resident memory; filled by inChild()
};

using Series = std::vector<Cost>;

[[nodiscard]] Cost costOf(const std::function<void()>& work);

/// The cheapest of some runs: for work so short that one interruption spoils it.
[[nodiscard]] Cost cheapestOf(int runs, const std::function<void()>& work);

/// Runs `measurement` in a child process, so that each has a heap and a peak memory of its own. Throws if
/// it fails.
[[nodiscard]] Cost inChild(const std::function<Cost()>& measurement);

/// Prints the row of a measure and its floor, round by round: the ratio has to be at most `bound`.
void report(const std::string& what, const Series& ours, const Series& floor, double bound);

/// Prints a row that has no bound to hold.
void report(const std::string& what, const Series& ours, const Series& floor);

/// A measure whose bound is an amount: at most or at least `bound`, in `unit`.
enum class Hold { atMost, atLeast };
void report(const std::string& what, double value, Hold hold, double bound, const std::string& unit);

} // namespace velto::bench
