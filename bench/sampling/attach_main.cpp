// SPDX-License-Identifier: Apache-2.0
// Measures how sampling begins and ends at many interfaces: how long each call takes in the loop, and how
// long it is until all are sampled, or none is. The interfaces are the ends of virtual cables without
// traffic, in a network namespace of the program's own. Needs root.
//
//   attach_figures [ebpf-tcx|ebpf-clsact|packet-socket] [expedite] [COUNT]...     tcx, 100 and 1000 by
//   default

#include <chrono>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <boost/asio/io_context.hpp>

#include "base/timers.h"
#include "capture/packet_source.h"
#include "support/network.h"

namespace {

using Clock = std::chrono::steady_clock;

double Milliseconds(Clock::duration time) { return std::chrono::duration<double, std::milli>(time).count(); }

class NoSink final : public capture::SampleSink {
public:
    void OnSamples(std::span<const capture::Sample>) noexcept override {}
    void OnDrained() noexcept override {}
    void OnRefused(std::uint32_t ifIndex, const capture::Unavailable& reason) noexcept override
    {
        std::cerr << ifIndex << ": " << reason.what() << "\n";
    }
};

struct Wanted {
    std::string kind = "ebpf-tcx";
    bool expedite = false;
    std::vector<std::size_t> counts;
};

std::unique_ptr<capture::PacketSource> Make(const Wanted& wanted, boost::asio::io_context& loop,
                                            base::Timers& timers, capture::SampleSink& sink)
{
    capture::SourceOptions options;
    options.expediteRcu = wanted.expedite;
    if (wanted.kind == "packet-socket") return capture::MakeRingSource(loop, timers, sink, options);
    return capture::MakeEbpfSource(
        loop, timers, sink, options,
        wanted.kind == "ebpf-clsact" ? capture::EbpfHook::kClsact : capture::EbpfHook::kTcx);
}

std::vector<std::uint32_t> MakeCables(std::size_t count)
{
    std::string lines;
    for (std::size_t i = 0; i < count; i += 2)
        lines += fmt::format("link add name n{0} type veth peer name f{0}\n", i);
    support::Network::Ip(lines);
    std::vector<std::uint32_t> all;
    for (std::size_t i = 0; i < count; i += 2)
        for (const char* end : {"n", "f"}) all.push_back(support::Network::Index(end + std::to_string(i)));
    return all;
}

void Measure(const Wanted& wanted, std::size_t count)
{
    const std::vector<std::uint32_t> all = MakeCables(count);
    boost::asio::io_context loop;
    const auto timers = base::MakeTimers(loop);
    NoSink sink;
    auto source = Make(wanted, loop, *timers, sink);
    const auto each = [&](const char* what, const auto& call) {
        Clock::duration longest{};
        const auto begin = Clock::now();
        for (const std::uint32_t ifIndex : all) {
            const auto before = Clock::now();
            call(ifIndex);
            longest = std::max(longest, Clock::now() - before);
            loop.poll();
        }
        fmt::print("{} {}{}: {} in the loop: longest {:.3f} ms, all {:.1f} ms\n", count, wanted.kind,
                   wanted.expedite ? " expedited" : "", what, Milliseconds(longest),
                   Milliseconds(Clock::now() - begin));
        return begin;
    };
    const auto begin =
        each("add", [&](std::uint32_t ifIndex) { source->Add(ifIndex, {.rate = 1000, .headerSize = 128}); });
    Clock::duration longestTurn{};
    for (const std::uint32_t ifIndex : all)
        while (!source->Sampled(ifIndex)) {
            const auto before = Clock::now();
            if (loop.poll_one() > 0) longestTurn = std::max(longestTurn, Clock::now() - before);
        }
    fmt::print("  until all are sampled: {:.1f} ms; longest turn of the loop meanwhile {:.3f} ms\n",
               Milliseconds(Clock::now() - begin), Milliseconds(longestTurn));
    const auto end = each("remove", [&](std::uint32_t ifIndex) { source->Remove(ifIndex); });
    source.reset();
    fmt::print("  until all are detached: {:.1f} ms\n", Milliseconds(Clock::now() - end));
    support::Network::Ip("link set lo up");
}

}  // namespace

int main(int argc, char** argv)
{
    Wanted wanted;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "expedite")
            wanted.expedite = true;
        else if (const std::size_t count = std::strtoul(argv[i], nullptr, 10); count > 0)
            wanted.counts.push_back(count);
        else
            wanted.kind = word;
    }
    if (wanted.counts.empty()) wanted.counts = {100, 1000};
    try {
        for (const std::size_t count : wanted.counts) {
            const support::Network network;
            Measure(wanted, count);
        }
    } catch (const std::exception& error) {
        std::cerr << "attach_figures: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
