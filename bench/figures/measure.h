// SPDX-License-Identifier: Apache-2.0
// Timing and medians for the measurements of this folder.

#ifndef FIGURES_MEASURE_H
#define FIGURES_MEASURE_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace figures {

/// What one program of this folder does: how often a measurement is repeated, and the sizes.
struct Settings {
    std::size_t runs = 50;           // at least, of everything that a median is taken of
    std::size_t few = 100;           // interfaces of the small switch
    std::size_t many = 10'000;       // interfaces of the large switch
    std::size_t most = 100'000;      // of the largest
    std::size_t commits = 10'000;    // one-leaf commits, over which memory must stay flat
    std::size_t historyLimit = 500;  // of cdbd's history, in commits
};

class Stopwatch {
public:
    [[nodiscard]] double Milliseconds() const
    {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - m_start).count();
    }

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

/// The median; the samples need no order. At least one.
inline double Median(std::vector<double> samples)
{
    const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::nth_element(samples.begin(), middle, samples.end());
    return *middle;
}

}  // namespace figures

#endif
