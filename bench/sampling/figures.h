// SPDX-License-Identifier: Apache-2.0
// The figures of sampling, one function a group. Each adds its rows to the table.

#ifndef SAMPLING_FIGURES_H
#define SAMPLING_FIGURES_H

#include <chrono>
#include <cstddef>
#include <functional>

#include "figures/table.h"
#include "sampling/forwarding_path.h"

namespace sampling {

struct Settings {
    std::size_t runs = 5;                 // of what is measured for a second or longer
    std::size_t turns = 25;               // with and without sampling, turn by turn
    std::chrono::milliseconds turn{100};  // the length of one
    std::chrono::milliseconds run{1000};
    std::size_t few = 256, many = 4096;  // interfaces that are configured and idle
};

/// 1: what sampling costs a packet that is not sampled.
void MeasurePath(const Settings& settings, ForwardingPath& path, figures::Table& table);
/// 2: the manager's time per sample, what is lost, and the forwarding rate when all is sampled.
void MeasureSamples(const Settings& settings, ForwardingPath& path, figures::Table& table);
/// 3: many interfaces without traffic.
void MeasureIdle(const Settings& settings, ForwardingPath& path, figures::Table& table);
/// 4: from the service's call to the first sample.
void MeasureFirstSample(const Settings& settings, ForwardingPath& path, figures::Table& table);
/// 5: the manager's share of a machine that has more to do than it can.
void MeasureShare(const Settings& settings, ForwardingPath& path, figures::Table& table);

/// What a frame takes of the forwarding core, in nanoseconds.
struct PathCost {
    double bare = 0;     // median of the turns without sampling
    double sampled = 0;  // and with it
    double added = 0;    // median of the differences of neighbours
};

/// Forwards at full rate, turn by turn without and with sampling. The functions switch it on and off and
/// return when that is in effect.
PathCost MeasurePathCost(const Settings& settings, ForwardingPath& path, const std::function<void()>& on,
                         const std::function<void()>& off);

}  // namespace sampling

#endif
