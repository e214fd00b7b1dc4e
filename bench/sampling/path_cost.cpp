// SPDX-License-Identifier: Apache-2.0
// Forwarding with and without sampling, turn by turn, so that what else happens on the machine falls on
// both alike.

#include "figures/measure.h"
#include "sampling/figures.h"

namespace sampling {

PathCost MeasurePathCost(const Settings& settings, ForwardingPath& path, const std::function<void()>& on,
                         const std::function<void()>& off)
{
    // A fifth of a turn warms the caches up again after the switch.
    const auto turn = [&] {
        path.Forward(settings.turn / 5);
        return NanosecondsPerFrame(path.Forward(settings.turn));
    };
    std::vector<double> bare, sampled, added;
    off();
    double before = turn();
    for (std::size_t i = 0; i < settings.turns; ++i) {
        on();
        const double with = turn();
        off();
        const double after = turn();
        bare.push_back(after);
        sampled.push_back(with);
        added.push_back(with - (before + after) / 2);
        before = after;
    }
    return {figures::Median(bare), figures::Median(sampled), figures::Median(added)};
}

}  // namespace sampling
