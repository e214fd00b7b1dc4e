// SPDX-License-Identifier: Apache-2.0
// Figure 1: what sampling costs a packet that is not sampled.

#include <exception>

#include "sampling/collector.h"
#include "sampling/empty_program.h"
#include "sampling/figures.h"
#include "sampling/measured_manager.h"

namespace sampling {
namespace {

constexpr std::uint32_t kHardlyEver = 16'777'215;  // the lowest rate that can be configured

double BoundOf(Capture capture) { return capture == Capture::kEbpf ? 70 : 150; }

void Measure(const Settings& settings, ForwardingPath& path, figures::Table& table, Capture capture)
{
    Collector collector;
    MeasuredManager manager(capture, collector.Port());
    const auto cost = MeasurePathCost(
        settings, path, [&] { manager.Sample(ForwardingPath::kIn, kHardlyEver); },
        [&] { manager.StopSampling(ForwardingPath::kIn); });
    table.Plain("1 a frame on the bare path, beside " + NameOf(capture), cost.bare, "ns");
    table.AtMost("1 added to a frame that is not sampled, " + NameOf(capture), cost.added, BoundOf(capture),
                 "ns");
}

void MeasureEmpty(const Settings& settings, ForwardingPath& path, figures::Table& table)
{
    EmptyProgram program;
    const auto index = support::Network::Index(ForwardingPath::kIn);
    const auto cost = MeasurePathCost(
        settings, path, [&] { program.Attach(index); }, [&] { program.Detach(); });
    table.Plain("1 a frame on the bare path, beside an empty program", cost.bare, "ns");
    table.Plain("1 added to a frame by an empty program at the same hook", cost.added, "ns");
}

}  // namespace

void MeasurePath(const Settings& settings, ForwardingPath& path, figures::Table& table)
{
    for (const auto capture : {Capture::kEbpf, Capture::kPacketSockets}) {
        try {
            Measure(settings, path, table, capture);
        } catch (const std::exception& error) {
            table.Failed("1 added to a frame that is not sampled, " + NameOf(capture), error.what());
        }
    }
    try {
        MeasureEmpty(settings, path, table);
    } catch (const std::exception& error) {
        table.Failed("1 added to a frame by an empty program at the same hook", error.what());
    }
}

}  // namespace sampling
