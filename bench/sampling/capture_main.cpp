// SPDX-License-Identifier: Apache-2.0
// Measures the sources of packets by themselves, on the bare forwarding path, without a manager: what
// they cost a packet, and what handing over a sampled one costs the process. For work on a source;
// the bounds are those of the whole manager (main.cpp).
//
//   capture_figures [ebpf|sockets]...     both by default

#include <exception>
#include <iostream>
#include <set>
#include <string>

#include <fmt/format.h>

#include "capture/packet_source.h"
#include "figures/measure.h"
#include "sampling/figures.h"
#include "sampling/measured_source.h"

namespace {

using sampling::ForwardingPath;
using sampling::MeasuredSource;

constexpr std::uint32_t kHardlyEver = 16'777'215;

void MeasurePath(const std::string& name, MeasuredSource& source, ForwardingPath& path, figures::Table& table)
{
    const sampling::Settings settings;
    const auto index = support::Network::Index(ForwardingPath::kIn);
    for (const std::uint32_t rate : {kHardlyEver, 1000U, 10U, 1U}) {
        const auto cost = MeasurePathCost(
            settings, path, [&] { source.Sample(index, rate); }, [&] { source.StopSampling(); });
        table.Plain(fmt::format("{}: bare path", name), cost.bare, "ns");
        table.Plain(fmt::format("{}: added to a frame at 1:{}", name, rate), cost.added, "ns");
    }
}

void MeasureSamples(const std::string& name, MeasuredSource& source, ForwardingPath& path,
                    figures::Table& table)
{
    const sampling::Settings settings;
    for (const std::uint32_t rate : {1U, 10U, 100U}) {
        source.Sample(support::Network::Index(ForwardingPath::kIn), rate);
        std::vector<double> times;
        std::uint64_t lost = 0, batches = 0;
        for (std::size_t run = 0; run < settings.runs; ++run) {
            const auto before = source.Read();
            path.Forward(settings.run);
            const auto after = source.Read();
            const auto samples = after.samples - before.samples;
            times.push_back((after.cpuSeconds - before.cpuSeconds) * 1e9 / static_cast<double>(samples));
            lost += after.drops - before.drops;
            batches += after.batches - before.batches;
        }
        source.StopSampling();
        table.Plain(fmt::format("{}: process per sample at 1:{}", name, rate), figures::Median(times), "ns");
        table.Plain(fmt::format("{}: batches a second at 1:{}", name, rate),
                    static_cast<double>(batches) / static_cast<double>(settings.runs), "");
        table.AtMost(fmt::format("{}: lost at 1:{}", name, rate), static_cast<double>(lost), 0, "");
    }
}

void Measure(const std::string& name, const MeasuredSource::Make& make, ForwardingPath& path,
             figures::Table& table)
{
    try {
        MeasuredSource source(make);
        MeasurePath(name, source, path, table);
        MeasureSamples(name, source, path, table);
    } catch (const std::exception& error) {
        table.Failed(name, error.what());
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const std::set<std::string> wanted(argv + 1, argv + argc);
    figures::Table table;
    try {
        ForwardingPath path;
        support::Pin(0, sampling::kForwardingCore);
        if (wanted.empty() || wanted.contains("ebpf"))
            Measure(
                "eBPF",
                [](auto& loop, auto& timers, auto& sink) {
                    return capture::MakeEbpfSource(loop, timers, sink, {});
                },
                path, table);
        if (wanted.empty() || wanted.contains("sockets"))
            Measure(
                "packet sockets",
                [](auto& loop, auto& timers, auto& sink) {
                    return capture::MakeRingSource(loop, timers, sink, {});
                },
                path, table);
    } catch (const std::exception& error) {
        table.Failed("the forwarding path", error.what());
    }
    table.Print();
    return 0;
}
