// SPDX-License-Identifier: Apache-2.0
// What it costs to encode one sample: the part of an exported sample's cost that is pure computation. The
// samples vary from one to the next, so that nothing is worked out before the loop.

#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include "wire/encode.h"

namespace {

constexpr std::size_t kHeaders = 64;  // together 32 KiB at most: they stay in the first cache

/// Arguments: bytes of the header, the encoding, whether a tag is put back, whether there is a router.
void EncodeFlowSample(benchmark::State& state)
{
    const auto headerSize = static_cast<std::size_t>(state.range(0));
    const auto encoding = static_cast<wire::Encoding>(state.range(1));
    std::array<std::array<std::byte, 512>, kHeaders> headers{};
    std::array<std::byte, wire::kMaxFlowSample> out{};

    wire::FlowSample sample;
    sample.rate = 1000;
    sample.source = 3;
    sample.input.value = 3;
    sample.output.value = 4;
    sample.stripped = 4;
    sample.maxHeader = headerSize;
    sample.tagProtocol = state.range(2) != 0 ? 0x8100 : 0;
    sample.tagControl = 10;
    if (state.range(3) != 0) {
        sample.router.emplace().nextHop.size = 4;
    }
    std::uint32_t n = 0;
    for (auto _ : state) {
        ++n;
        sample.sequence = n;
        sample.pool += 1000;
        sample.frameLength = 64 + n % 1024;
        sample.header = std::span(headers[n % kHeaders]).first(headerSize);
        benchmark::DoNotOptimize(sample);
        benchmark::DoNotOptimize(wire::Encode(sample, encoding, out));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(EncodeFlowSample)
    ->ArgNames({"header", "expanded", "tag", "router"})
    ->Args({128, 0, 0, 0})
    ->Args({128, 1, 0, 0})
    ->Args({128, 0, 1, 0})
    ->Args({128, 0, 0, 1})
    ->Args({64, 0, 0, 0})
    ->Args({512, 0, 0, 0});

/// Arguments: the encoding.
void EncodeCountersSample(benchmark::State& state)
{
    const auto encoding = static_cast<wire::Encoding>(state.range(0));
    std::array<std::byte, wire::kMaxCountersSample> out{};

    wire::CountersSample sample;
    sample.source = 3;
    sample.ethernet.emplace();
    sample.portName = "gigabit-ethernet-1/1/1";
    for (auto _ : state) {
        ++sample.sequence;
        sample.generic.inOctets += 1000;
        benchmark::DoNotOptimize(sample);
        benchmark::DoNotOptimize(wire::Encode(sample, encoding, out));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(EncodeCountersSample)->ArgName("expanded")->Arg(0)->Arg(1);

}  // namespace

BENCHMARK_MAIN();
