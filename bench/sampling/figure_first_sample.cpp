// SPDX-License-Identifier: Apache-2.0
// Figure 4: from the service's call to the first sample at the collector, while traffic flows.

#include <stdexcept>
#include <thread>

#include "figures/measure.h"
#include "sampling/collector.h"
#include "sampling/figures.h"
#include "sampling/measured_manager.h"

namespace sampling {
namespace {

constexpr std::uint64_t kFrames = 100'000;  // a second
constexpr std::uint32_t kRate = 100;
constexpr std::chrono::seconds kPatience{5};

}  // namespace

void MeasureFirstSample(const Settings& settings, ForwardingPath& path, figures::Table& table)
{
    Collector collector;
    MeasuredManager manager(Capture::kEbpf, collector.Port());
    support::BackgroundTraffic traffic(ForwardingPath::kHostA, path.Frames(), kFrames, kForwardingCore);
    std::vector<double> times;
    for (std::size_t run = 0; run < settings.turns; ++run) {
        collector.WatchForFlowSample();
        const auto start = Collector::Clock::now();
        manager.Set(ForwardingPath::kIn, {.rate = kRate});
        const auto first = collector.AwaitFlowSample(kPatience);
        if (!first) throw std::runtime_error("no sample came");
        times.push_back(std::chrono::duration<double, std::milli>(*first - start).count());
        manager.StopSampling(ForwardingPath::kIn);
        const auto settled = collector.Settled();
        if (settled.Lost() != 0) throw std::runtime_error("samples were lost");
    }
    traffic.Stop();
    table.AtMost("4 from the service call to the first sample", figures::Median(times), 60, "ms");
    table.Plain("4 the longest of these", *std::max_element(times.begin(), times.end()), "ms");
}

}  // namespace sampling
