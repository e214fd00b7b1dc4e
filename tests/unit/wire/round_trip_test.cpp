// SPDX-License-Identifier: Apache-2.0
// Random samples in random room, encoded and decoded again: every value comes back, what does not fit is
// cut where it should be, and all of it fits together in one datagram.

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <random>
#include <span>
#include <variant>

#include "expected_sample.h"
#include "sample_source.h"
#include "support/hex.h"
#include "wire/discard.h"
#include "wire/encode.h"

namespace {

constexpr int kRounds = 20'000;

class RoundTripTest : public testing::Test {
protected:
    RoundTripTest() : m_source([this] { return static_cast<std::uint32_t>(m_random()); }) {}

    /// The sample in exactly so much room, decoded; nothing if nothing was written.
    template <typename Decoded, typename Sample>
    static std::optional<Decoded> Decode(const Sample& sample, wire::Encoding encoding, std::size_t room)
    {
        Bytes buffer(room);
        const std::size_t size = wire::Encode(sample, encoding, buffer);
        if (size == 0) return {};
        return std::get<Decoded>(support::DecodeSample(std::span(buffer).first(size)));
    }

    std::mt19937 m_random{20261121};
    SampleSource<std::function<std::uint32_t()>> m_source;
};

TEST_F(RoundTripTest, FlowSamplesComeBack)
{
    int cut = 0;
    int refused = 0;
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(round);
        const wire::FlowSample sample = m_source.Flow();
        const wire::Encoding encoding = m_source.Encoding();
        const std::size_t room = m_source.Below(wire::kMaxFlowSample + 1);
        const auto expected = Expected(sample, encoding, room);
        ASSERT_EQ(Decode<support::DecodedFlow>(sample, encoding, room), expected);
        refused += expected ? 0 : 1;
        cut += expected && expected != Expected(sample, encoding, wire::kMaxFlowSample) ? 1 : 0;
    }
    EXPECT_GT(cut, kRounds / 20);
    EXPECT_GT(refused, kRounds / 20);
}

TEST_F(RoundTripTest, CountersSamplesComeBack)
{
    int cut = 0;
    int refused = 0;
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(round);
        const wire::CountersSample sample = m_source.Counters();
        const wire::Encoding encoding = m_source.Encoding();
        const std::size_t room = m_source.Below(wire::kMaxCountersSample + 1);
        const auto expected = Expected(sample, encoding, room);
        ASSERT_EQ(Decode<support::DecodedCounters>(sample, encoding, room), expected);
        refused += expected ? 0 : 1;
        cut += expected && expected != Expected(sample, encoding, wire::kMaxCountersSample) ? 1 : 0;
    }
    EXPECT_GT(cut, kRounds / 20);
    EXPECT_GT(refused, kRounds / 20);
}

TEST_F(RoundTripTest, DiscardedPacketsComeBack)
{
    int cut = 0;
    int refused = 0;
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(round);
        const wire::DiscardSample sample = m_source.Discard();
        const std::size_t room = m_source.Below(wire::kMaxDiscardSample + 1);
        Bytes buffer(room);
        const std::size_t size = wire::Encode(sample, buffer);
        const auto expected = Expected(sample, room);
        refused += expected ? 0 : 1;
        cut += expected && expected != Expected(sample, wire::kMaxDiscardSample) ? 1 : 0;
        ASSERT_EQ(size != 0, expected.has_value());
        if (expected) {
            const auto decoded = support::DecodeSample(std::span(buffer).first(size));
            ASSERT_EQ(std::get<support::DecodedDiscard>(decoded), *expected);
        }
    }
    EXPECT_GT(cut, kRounds / 20);
    EXPECT_GT(refused, kRounds / 100);
}

TEST_F(RoundTripTest, AFlowSampleFitsInTheLeastRoomAndUsesIt)
{
    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(round);
        const wire::FlowSample sample = m_source.Flow();
        const wire::Encoding encoding = m_source.Encoding();
        const auto flow = Decode<support::DecodedFlow>(sample, encoding, wire::kMinSampleRoom);
        ASSERT_TRUE(flow);
        ASSERT_EQ(flow, Expected(sample, encoding, wire::kMinSampleRoom));
    }
}

TEST_F(RoundTripTest, SamplesOfOneEncodingMakeADatagram)
{
    for (const auto encoding : {wire::Encoding::kCompact, wire::Encoding::kExpanded}) {
        support::Datagram expected{"198.51.100.7", 0x01020304, 0xfffffff0, 0x7fffffff, {}};
        Bytes bytes(20000);
        std::size_t size = wire::kDatagramHeaderSize;
        for (int i = 0; i < 9; ++i) {
            const wire::FlowSample flow = m_source.Flow();
            size += wire::Encode(flow, encoding, std::span(bytes).subspan(size));
            expected.samples.emplace_back(*Expected(flow, encoding, wire::kMaxFlowSample));
            const wire::CountersSample counters = m_source.Counters();
            size += wire::Encode(counters, encoding, std::span(bytes).subspan(size));
            expected.samples.emplace_back(*Expected(counters, encoding, wire::kMaxCountersSample));
        }
        const wire::DiscardSample discard = m_source.Discard();
        size += wire::Encode(discard, std::span(bytes).subspan(size));
        expected.samples.emplace_back(*Expected(discard, wire::kMaxDiscardSample));
        wire::Encode(
            wire::DatagramHeader{::inet_addr("198.51.100.7"), 0x01020304, 0xfffffff0, 0x7fffffff, 19}, bytes);
        EXPECT_EQ(support::DecodeDatagram(std::span(bytes).first(size)), expected);
    }
}

}  // namespace
