// SPDX-License-Identifier: Apache-2.0
// Measures the source of drops by itself: what a packet that is dropped and not told costs the CPU that drops
// it, what one costs that is told, and whether a million in a second are counted exactly. The packets are
// those that the bare forwarding path's host B drops, all of them. Needs root and two CPUs.
//
//   drop_figures

#include <cmath>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include <boost/asio/io_context.hpp>

#include "base/timers.h"
#include "capture/drop_source.h"
#include "figures/table.h"
#include "sampling/figures.h"
#include "sampling/forwarding_path.h"
#include "support/poll.h"

namespace {

using sampling::ForwardingPath;

constexpr double kMostPerDrop = 150;         // nanoseconds
constexpr double kDropsASecond = 1'000'000;  // that must be counted
constexpr std::chrono::seconds kStorm{3};

class CountingSink final : public capture::DropSink {
public:
    void OnDrops(std::span<const capture::Drop> drops) noexcept override { told += drops.size(); }
    void OnDrained() noexcept override {}

    std::uint64_t told = 0;
};

struct Measured {
    capture::DropSource& Make(const capture::DropSettings& settings)
    {
        source = capture::MakeDropSource(loop, *timers, sink, {});
        source->Change(settings);
        return *source;
    }

    boost::asio::io_context loop;
    std::unique_ptr<base::Timers> timers = base::MakeTimers(loop);
    CountingSink sink;
    std::unique_ptr<capture::DropSource> source;
};

void MeasureCost(ForwardingPath& path, const std::string& what, const capture::DropSettings& settings,
                 std::optional<double> bound, figures::Table& table)
{
    Measured measured;
    const auto cost = MeasurePathCost(
        sampling::Settings{}, path, [&] { measured.Make(settings); }, [&] { measured.source.reset(); });
    const std::string figure = "added to a dropped frame, " + what;
    table.Plain("bare path", cost.bare, "ns");
    if (bound)
        table.AtMost(figure, cost.added, *bound, "ns");
    else
        table.Plain(figure, cost.added, "ns");
}

std::uint64_t DropsAt(capture::DropSource& source, std::uint32_t ifIndex)
{
    const auto drops = source.Read(ifIndex);
    return drops ? drops->counts.drops : 0;
}

// Drops at the end of a cable, without a bridge before it: the most that one core can have dropped.
void MeasureStorm(figures::Table& table)
{
    support::Network::Veth("storm", "shore");
    const auto shore = support::Network::Index("shore");
    Measured measured;
    auto& source = measured.Make({.limit = 100, .everyInterface = true});
    support::Traffic traffic("storm", support::UdpFlows(64, {.from = 1, .to = 0x99, .size = 100}));
    const auto sent = traffic.SendFor(kStorm);
    (void)support::Becomes([&] { return DropsAt(source, shore) >= sent.frames; });
    source.Drain();
    const auto drops = source.Read(shore);
    if (!drops) return table.Failed("a storm of drops", "none was counted");
    std::uint64_t named = 0;
    for (const auto& count : drops->reasons) named += count.drops;
    const auto off = [&](std::uint64_t counted, std::uint64_t wanted) {
        return std::abs(static_cast<double>(counted) - static_cast<double>(wanted));
    };
    // Sending and dropping together, by the CPU time of the thread that does both.
    table.AtLeast("drops in a second of one CPU's", static_cast<double>(sent.frames) / sent.cpuSeconds,
                  kDropsASecond, "");
    table.Plain("drops a second", static_cast<double>(sent.frames) / sent.seconds, "");
    table.AtMost("drops counted too many or too few", off(drops->counts.drops, sent.frames), 0, "");
    table.AtMost("of these by reason", off(named, sent.frames), 0, "");
    table.AtMost("told and not told too many or too few",
                 off(measured.sink.told + drops->counts.untold, sent.frames), 0, "");
    table.AtMost("missed by the program, on the whole machine",
                 static_cast<double>(source.ReadUncounted().missed), 0, "");
}

}  // namespace

int main()
{
    figures::Table table;
    try {
        ForwardingPath path;
        support::Pin(0, sampling::kForwardingCore);
        MeasureCost(path, "counted, over the limit", {.limit = 1, .everyInterface = true}, kMostPerDrop,
                    table);
        MeasureCost(path, "counted, with a limit of 0", {.limit = 0, .everyInterface = true}, kMostPerDrop,
                    table);
        MeasureCost(path, "at an interface that is not counted", {.limit = 1}, kMostPerDrop, table);
        MeasureStorm(table);
    } catch (const std::exception& error) {
        table.Failed("drops", error.what());
    }
    table.Print();
    return 0;
}
