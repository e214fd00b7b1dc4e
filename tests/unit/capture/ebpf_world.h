// SPDX-License-Identifier: Apache-2.0
// What the tests of the eBPF source stand on: a network of the test's own with one virtual cable from
// "left" to "right", a sink that keeps everything, and time that the test advances.

#ifndef TESTS_UNIT_CAPTURE_EBPF_WORLD_H
#define TESTS_UNIT_CAPTURE_EBPF_WORLD_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sched.h>
#include <boost/asio/io_context.hpp>

#include "capture/packet_source.h"
#include "support/manual_timers.h"
#include "support/network.h"
#include "support/poll.h"

/// Keeps all samples, with their bytes.
class KeepingSink final : public capture::SampleSink {
public:
    void OnSamples(std::span<const capture::Sample> batch) noexcept override
    {
        for (const auto& sample : batch) {
            samples.push_back(sample);
            headers.emplace_back(sample.header.begin(), sample.header.end());
            samples.back().header = {};
        }
        ++batches;
    }
    void OnDrained() noexcept override { ++drained; }
    void OnRefused(std::uint32_t, const capture::Unavailable& reason) noexcept override
    {
        ++refused;
        refusal = reason.what();
    }

    [[nodiscard]] std::uint64_t Frames() const
    {
        std::uint64_t frames = 0;
        for (const auto& sample : samples) frames += sample.count;
        return frames;
    }

    std::vector<capture::Sample> samples;
    std::vector<support::Bytes> headers;
    int batches = 0;
    int drained = 0;
    int refused = 0;
    std::string refusal;  // the last
};

class EbpfWorld : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto why = support::Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        // One CPU sends and samples: its pool is then the interface's, and samples come in the frames' order.
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<std::size_t>(std::max(0, ::sched_getcpu())), &one);
        ASSERT_EQ(::sched_setaffinity(0, sizeof(one), &one), 0);
        network.emplace();
        support::Network::Veth("left", "right");
        left = support::Network::Index("left");
        right = support::Network::Index("right");
        Start({});
    }

    /// A source of this kind, or a skipped test where the kernel or the privileges don't allow it.
    void Start(const capture::SourceOptions& options, capture::EbpfHook hook = capture::EbpfHook::kTcx)
    {
        source.reset();
        try {
            source = capture::MakeEbpfSource(loop, timers, sink, options, hook);
        } catch (const capture::Unavailable& reason) {
            GTEST_SKIP() << reason.what();
        }
    }

    /// Add and Change of the source; return when it samples as it was told.
    void Add(std::uint32_t interface, const capture::Settings& settings)
    {
        source->Add(interface, settings);
        AwaitSampled(interface);
    }
    void Change(std::uint32_t interface, const capture::Settings& settings)
    {
        source->Change(interface, settings);
        AwaitSampled(interface);
    }
    void AwaitSampled(std::uint32_t interface)
    {
        EXPECT_TRUE(Comes([&] { return source->Sampled(interface); }));
    }
    /// The same for what the kernel refuses; returns its reason, empty if it samples.
    std::string WhyNot(std::uint32_t interface, const capture::Settings& settings)
    {
        const int before = sink.refused;
        source->Change(interface, settings);
        EXPECT_TRUE(Comes([&] { return sink.refused > before || source->Sampled(interface); }));
        return sink.refused > before ? sink.refusal : "";
    }
    /// Runs the loop until the condition holds.
    template <typename Condition>
    [[nodiscard]] bool Comes(Condition condition)
    {
        return support::Becomes([&] {
            loop.restart();
            loop.poll();
            return condition();
        });
    }

    static std::vector<support::Bytes> Frames(std::size_t count, std::size_t size = 200)
    {
        std::vector<support::Bytes> frames;
        for (std::size_t i = 0; i < count; ++i)
            frames.push_back(support::UdpFrame({.size = size, .number = i}));
        return frames;
    }

    /// Waits until it has counted so many frames there, and no more.
    void AwaitPool(std::uint32_t interface, std::uint64_t pool)
    {
        EXPECT_TRUE(support::Becomes([&] { return source->Read(interface).pool >= pool; }));
        EXPECT_EQ(source->Read(interface).pool, pool);
    }

    /// Puts them on the cable at its left end, and waits until the kernel has counted them at the right.
    void Cross(const std::vector<support::Bytes>& frames, std::uint32_t counted = 0)
    {
        if (counted == 0) counted = right;
        const auto wanted = source->Read(counted).pool + frames.size();
        support::Injector("left").Send(frames);
        AwaitPool(counted, wanted);
    }
    void Cross(std::size_t count) { Cross(Frames(count)); }

    std::optional<support::Network> network;
    std::uint32_t left = 0;
    std::uint32_t right = 0;
    boost::asio::io_context loop;
    support::ManualTimers timers;
    KeepingSink sink;
    std::unique_ptr<capture::PacketSource> source;
};

#endif
