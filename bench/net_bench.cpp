// SPDX-License-Identifier: Apache-2.0
// What one look-up of a packet's way costs: on a bridge with 10,000 learned addresses, and over routes that
// are remembered; and of where a packet that leaves has come from. The tables are filled by hand; the kernel
// has no part in it.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

#include <benchmark/benchmark.h>

#include "net/bridges/bridges.h"
#include "net/resolver/resolver.h"
#include "net/routes/routes.h"

namespace {

constexpr std::uint32_t kBridge = 1000;
constexpr std::uint32_t kPorts = 48;
constexpr std::uint32_t kRouter = 2000;
constexpr std::uint32_t kAddresses = 10'000;
constexpr std::size_t kFrames = 16'384;

net::MacAddress Numbered(std::uint32_t number)
{
    net::MacAddress mac{2};
    for (std::size_t i = 0; i < 4; ++i) mac[5 - i] = static_cast<std::uint8_t>(number >> 8 * i);
    return mac;
}

/// 10.0.0.0/8 is beside the router's port, the rest beside the bridge.
class AnyRoute final : public net::RouteQuestions {
public:
    std::optional<net::RouteAnswer> Ask(net::RouteFrom, const net::Address& destination,
                                        const net::Address&) override
    {
        net::RouteAnswer answer;
        answer.kind = net::Destination::Kind::kInterface;
        answer.ifIndex = destination.bytes[0] == 10 ? kRouter : kBridge;
        return answer;
    }
};

/// 48 ports, addresses spread over them in a VLAN, and one router's port.
struct Machine {
    explicit Machine(bool filtering)
    {
        for (std::uint32_t port = 1; port <= kPorts; ++port) Put(port);
        Put(kBridge);
        Put(kRouter);
        bridges.SetBridge(kBridge, {.filtering = filtering});
        net::PortState state;
        state.forwarding = true;
        for (std::uint32_t port = 1; port <= kPorts; ++port)
            bridges.PutPort(port, kBridge, state, {{7, 7, true, true}}, 1);
        for (std::uint32_t i = 0; i < kAddresses; ++i)
            bridges.PutAddress(kBridge, filtering ? 7 : 0, Numbered(i), {2 + i % (kPorts - 1), false}, 1);
    }
    void Put(std::uint32_t index)
    {
        net::Link link;
        link.index = index;
        link.hardwareType = 1;
        link.mac = Numbered(0xFF000000 + index);
        resolver.PutDevice(link, {});
    }
    net::Bridges bridges;
    AnyRoute questions;
    net::Routes routes{questions};
    net::Resolver resolver{bridges, routes};
};

using Frame = std::array<std::byte, 128>;

/// To destinations in an order that nothing can foresee; `hosts` of them by their IPv4 address.
std::vector<Frame> Frames(bool routed, std::uint32_t hosts)
{
    std::vector<Frame> frames(kFrames);
    std::uint32_t random = 1;
    for (Frame& frame : frames) {
        random = random * 1664525 + 1013904223;
        const std::uint32_t host = (random >> 8) % hosts;
        const auto mac = Numbered(routed ? 0xFF000000 + kRouter : host);
        std::memcpy(frame.data(), mac.data(), mac.size());
        const std::uint8_t rest[] = {0x08, 0x00, 0x45};
        std::memcpy(&frame[12], rest, sizeof rest);
        const std::uint8_t addresses[] = {
            192, 0, 2, 1, 10, 0, static_cast<std::uint8_t>(host >> 8), static_cast<std::uint8_t>(host)};
        std::memcpy(&frame[26], addresses, sizeof addresses);
    }
    return frames;
}

void Run(benchmark::State& state, Machine& machine, std::uint32_t ifIndex, const std::vector<Frame>& frames)
{
    std::size_t i = 0;
    benchmark::IterationCount found = 0;
    for (auto _ : state) {
        const auto to = machine.resolver.Resolve({ifIndex, 0x0800, 0, frames[i++ % kFrames]});
        found += to.kind == net::Destination::Kind::kInterface ? 1 : 0;
    }
    if (found != state.iterations()) state.SkipWithError("a packet's way was not found");
}

void BridgeTenThousand(benchmark::State& state)
{
    Machine machine(state.range(0) != 0);
    Run(state, machine, 1, Frames(false, kAddresses));
}
BENCHMARK(BridgeTenThousand)->ArgName("filtering")->Arg(0)->Arg(1);

void BridgeSixtyFour(benchmark::State& state)
{
    Machine machine(false);
    Run(state, machine, 1, Frames(false, 64));
}
BENCHMARK(BridgeSixtyFour);

void RouteRemembered(benchmark::State& state)
{
    Machine machine(false);
    Run(state, machine, kRouter, Frames(true, 200));
}
BENCHMARK(RouteRemembered);

/// `told`: the kernel has said by which interface they had entered.
void TraceAll(benchmark::State& state, std::uint32_t ifIndex, std::uint32_t from,
              const std::vector<Frame>& frames, bool told, bool routed)
{
    Machine machine(false);
    const auto enteredBy = told ? std::optional(from) : std::nullopt;
    std::size_t i = 0;
    benchmark::IterationCount found = 0;
    for (auto _ : state) {
        const auto origin = machine.resolver.Trace({ifIndex, 0x0800, 0, frames[i++ % kFrames]}, enteredBy);
        found += origin.ifIndex != 0 && origin.route.has_value() == routed ? 1 : 0;
    }
    if (found != state.iterations()) state.SkipWithError("a packet's origin was not found");
}

/// The frames with their link addresses exchanged: as if they came from where they went.
std::vector<Frame> Exchanged(std::vector<Frame> frames)
{
    for (Frame& frame : frames) std::swap_ranges(frame.begin(), frame.begin() + 6, frame.begin() + 6);
    return frames;
}

void LeavingBridged(benchmark::State& state)
{
    TraceAll(state, 1, 2, Exchanged(Frames(false, kAddresses)), state.range(0) != 0, false);
}
BENCHMARK(LeavingBridged)->ArgName("told")->Arg(0)->Arg(1);

void LeavingRouted(benchmark::State& state)
{
    TraceAll(state, kRouter, kBridge, Exchanged(Frames(true, 200)), state.range(0) != 0, true);
}
BENCHMARK(LeavingRouted)->ArgName("told")->Arg(0)->Arg(1);

}  // namespace

BENCHMARK_MAIN();
