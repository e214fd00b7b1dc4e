// SPDX-License-Identifier: Apache-2.0
// What chance allows a number of samples to be.

#ifndef SAMPLES_BINOMIAL_H
#define SAMPLES_BINOMIAL_H

#include <cmath>
#include <cstdint>

namespace samples_tests {

/// Of each statement about what chance allows: a right manager fails it so rarely.
inline constexpr double kFalseAlarm = 1e-8;

struct Bounds {
    std::uint64_t least, most;
};

/// The narrowest bounds that a right number of `trials` with the probability leaves with `falseAlarm` at
/// most, half of it below and half above: sums of the distribution's own terms, no approximation.
inline Bounds BinomialBounds(std::uint64_t trials, double probability, double falseAlarm)
{
    const auto n = static_cast<double>(trials);
    const auto term = [&](std::uint64_t successes) {
        const auto k = static_cast<double>(successes);
        return std::exp(std::lgamma(n + 1) - std::lgamma(k + 1) - std::lgamma(n - k + 1) +
                        k * std::log(probability) + (n - k) * std::log1p(-probability));
    };
    Bounds bounds{0, trials};
    for (double below = term(0); below <= falseAlarm / 2; below += term(bounds.least)) ++bounds.least;
    for (double above = term(trials); above <= falseAlarm / 2; above += term(bounds.most)) --bounds.most;
    return bounds;
}

}  // namespace samples_tests

#endif
