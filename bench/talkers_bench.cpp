// SPDX-License-Identifier: Apache-2.0
// What a look into an interface costs each of its samples: the flow told from the header, and counted.

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "manager/sampling/talker_table.h"

namespace {

using Header = std::array<std::byte, 128>;

/// A TCP segment of flow number `flow`, in IPv4 behind a VLAN tag.
Header HeaderOf(std::uint32_t flow)
{
    Header header{};
    const auto put = [&header](std::size_t at, std::uint32_t value, int bytes) {
        for (int i = 0; i < bytes; ++i)
            header[at + static_cast<std::size_t>(i)] = static_cast<std::byte>(value >> (8 * (bytes - 1 - i)));
    };
    put(12, 0x8100'000A, 4);
    put(16, 0x0800, 2);
    put(18, 0x45, 1);
    put(27, 6, 1);
    put(30, 0x0A00'0000 + flow, 4);
    put(34, 0xC000'0201, 4);
    put(38, 8080, 2);
    put(40, 443, 2);
    return header;
}

/// Samples of so many flows, in a random order; those beyond the table's bound make it put out what carries
/// least.
void CountSample(benchmark::State& state)
{
    std::mt19937 random(1);
    std::vector<Header> headers;
    for (std::int64_t i = 0; i < state.range(0); ++i) headers.push_back(HeaderOf(random() & 0xFFFFFF));
    manager::TalkerTable table({});
    capture::Sample sample;
    sample.rate = 1000;
    sample.length = 1000;
    std::size_t at = 0;
    for (auto _ : state) {
        sample.header = headers[at];
        if (++at == headers.size()) at = 0;
        table.Count(sample, wire::HeaderProtocol::kEthernet);
    }
}
BENCHMARK(CountSample)->Arg(1)->Arg(100)->Arg(1000)->Arg(4000)->Arg(100'000);

}  // namespace

BENCHMARK_MAIN();
