// SPDX-License-Identifier: Apache-2.0
// Counts commits and how long they take, from the request to its answer. For the loop.

#ifndef AGENT_NETCONF_COMMIT_METER_H
#define AGENT_NETCONF_COMMIT_METER_H

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>

#include "metrics/text.h"

namespace agent {

class CommitMeter {
public:
    /// A commit that has changed something is answered.
    void Made(std::chrono::steady_clock::duration took)
    {
        const double seconds = std::chrono::duration<double>(took).count();
        const auto at = std::lower_bound(kBounds.begin(), kBounds.end(), seconds) - kBounds.begin();
        ++m_counts.at(static_cast<std::size_t>(at));
        m_sum += seconds;
    }
    void NotMade() { ++m_refused; }

    [[nodiscard]] std::uint64_t Refused() const { return m_refused; }
    [[nodiscard]] metrics::Histogram Times() const { return {kBounds, m_counts, m_sum}; }

private:
    /// Seconds: a small commit takes milliseconds, one that waits for a subscriber up to the time that it
    /// has.
    static constexpr std::array kBounds{0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1,
                                        0.25,  0.5,    1.0,   2.5,  5.0,   10.0};
    std::array<std::uint64_t, kBounds.size() + 1> m_counts{};
    double m_sum = 0;
    std::uint64_t m_refused = 0;
};

}  // namespace agent

#endif
