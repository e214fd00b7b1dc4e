// SPDX-License-Identifier: Apache-2.0
// Figure 2: the manager's time per sample, whether one is lost, and the forwarding rate when every packet
// is sampled.

#include <exception>
#include <string>
#include <vector>

#include "figures/measure.h"
#include "sampling/collector.h"
#include "sampling/figures.h"
#include "sampling/measured_manager.h"

namespace sampling {
namespace {

struct Load {
    const char* name;
    std::uint32_t rate;    // one packet of so many
    std::uint64_t frames;  // a second; 0: as many as can be
    double bound;          // microseconds per sample
    int seconds;           // how much longer than others it runs, to have samples enough
};

constexpr Load kLoads[] = {{"1:1, full rate", 1, 0, 0.25, 1},
                           {"1:10, full rate", 10, 0, 0.25, 1},
                           {"1:100, full rate", 100, 0, 0.7, 1},
                           {"1:1000, 100,000 frames/s", 1000, 100'000, 10, 3}};

constexpr double kMinForwarding = 0.92;  // of the rate without sampling, when all is sampled

struct Outcome {
    std::vector<double> microseconds;  // per sample
    double lost = 0;
};

// Samples that a run should have given and has not, as far as that can be said: all frames at 1:1, and by
// the sequences and drops always.
double LostIn(const Load& load, const support::Sent& sent, const Received& before, const Received& after)
{
    const auto told = static_cast<double>(after.Lost() - before.Lost());
    if (load.rate != 1) return told;
    const auto missing =
        static_cast<double>(sent.frames) - static_cast<double>(after.flowSamples - before.flowSamples);
    return std::max(told, std::abs(missing));
}

Outcome Measure(const Settings& settings, ForwardingPath& path, const Load& load, Capture capture)
{
    Collector collector;
    MeasuredManager manager(capture, collector.Port());
    manager.Sample(ForwardingPath::kIn, load.rate);
    path.Forward(settings.run / 5, load.frames);
    Outcome outcome;
    for (std::size_t run = 0; run < settings.runs; ++run) {
        const auto before = collector.Settled();
        const double cpu = manager.CpuSeconds();
        const auto sent = path.Forward(settings.run * load.seconds, load.frames);
        const auto after = collector.Settled();
        const double spent = manager.CpuSeconds() - cpu;
        const auto samples = after.flowSamples - before.flowSamples;
        if (samples == 0) throw std::runtime_error("no sample arrived");
        outcome.microseconds.push_back(spent * 1e6 / static_cast<double>(samples));
        outcome.lost += LostIn(load, sent, before, after);
    }
    return outcome;
}

void MeasureLoads(const Settings& settings, ForwardingPath& path, figures::Table& table, Capture capture)
{
    for (const auto& load : kLoads) {
        const auto where = std::string(load.name) + ", " + NameOf(capture);
        try {
            const auto outcome = Measure(settings, path, load, capture);
            table.AtMost("2 manager per sample at " + where, figures::Median(outcome.microseconds),
                         load.bound, "us");
            table.AtMost("2 samples lost at " + where, outcome.lost, 0, "");
        } catch (const std::exception& error) {
            table.Failed("2 manager per sample at " + where, error.what());
        }
    }
}

void MeasureForwarding(const Settings& settings, ForwardingPath& path, figures::Table& table)
{
    Collector collector;
    MeasuredManager manager(Capture::kEbpf, collector.Port());
    const auto cost = MeasurePathCost(
        settings, path, [&] { manager.Sample(ForwardingPath::kIn, 1); },
        [&] { manager.StopSampling(ForwardingPath::kIn); });
    table.Plain("2 frames forwarded without sampling", 1e3 / cost.bare, "M/s");
    table.Plain("2 frames forwarded, all sampled, eBPF", 1e3 / cost.sampled, "M/s");
    table.AtLeast("2 ratio of the two", cost.bare / (cost.bare + cost.added), kMinForwarding, "");
}

}  // namespace

void MeasureSamples(const Settings& settings, ForwardingPath& path, figures::Table& table)
{
    MeasureForwarding(settings, path, table);
    for (const auto capture : {Capture::kEbpf, Capture::kPacketSockets})
        MeasureLoads(settings, path, table, capture);
}

}  // namespace sampling
