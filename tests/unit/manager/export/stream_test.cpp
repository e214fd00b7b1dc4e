// SPDX-License-Identifier: Apache-2.0
// Every sample that is put arrives once and in order, in datagrams that are whole, full, numbered without gap
// and never larger than the collector's size.

#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/export/world.h"

namespace exporter_test {
namespace {

constexpr std::size_t kHeader = 28;

struct Shape {
    std::string name;
    std::uint16_t datagramSize;
    std::vector<std::size_t> sizes;  // of the samples, over and over
    std::size_t samples;
    std::size_t flushEvery;  // samples
};

const std::vector<Shape> kShapes{
    {"EqualSamples", 1400, {220}, 5000, 300},
    {"EqualSamplesOneLongRow", 1400, {220}, 5000, 5000},
    {"EqualSamplesFlushedOneByOne", 1400, {220}, 100, 1},
    {"TwoSizes", 1400, {220, 220, 220, 144}, 5000, 300},
    {"ManySizes", 1400, {220, 100, 64, 512, 148, 12, 300, 88, 1372, 16}, 5000, 777},
    {"SmallestDatagrams", 200, {172}, 1000, 150},
    {"SmallestDatagramsSmallSamples", 200, {12, 60, 40}, 1000, 150},
    {"LargeDatagrams", 9000, {220}, 5000, 2000},
    {"LargestDatagrams", 65507, {1000}, 1000, 300},
    {"OneSampleFillsADatagram", 1400, {1372}, 500, 200},
};

using Merge = Collector::Merge;
class ExporterShapes : public ExporterTest, public testing::WithParamInterface<std::tuple<Shape, Merge>> {};

/// What each datagram should be, by filling greedily.
std::vector<std::size_t> ExpectedSizes(const Shape& shape)
{
    std::vector<std::size_t> sizes;
    std::size_t open = 0;
    for (std::size_t n = 0; n < shape.samples; ++n) {
        const std::size_t size = shape.sizes[n % shape.sizes.size()];
        if (open > 0 && open + size > shape.datagramSize) sizes.push_back(std::exchange(open, 0));
        open += open == 0 ? kHeader + size : size;
        if ((n + 1) % shape.flushEvery == 0) sizes.push_back(std::exchange(open, 0));
    }
    if (open > 0) sizes.push_back(open);
    return sizes;
}

TEST_P(ExporterShapes, ArriveWholeInOrderAndNumbered)
{
    const auto& [shape, merge] = GetParam();
    Collector collector("127.0.0.2", 6343, merge);
    Export().SetAgentAddress(Address("192.0.2.7"));
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, shape.datagramSize));
    for (std::size_t n = 0; n < shape.samples; ++n) {
        Put(stream, 1, shape.sizes[n % shape.sizes.size()], n % 3 == 0 ? Kind::kCounters : Kind::kFlow);
        if ((n + 1) % shape.flushEvery == 0) Export().Flush();
    }
    Export().Flush();

    const std::vector<std::size_t> expected = ExpectedSizes(shape);
    const std::vector<Received> received = collector.Take(expected.size());
    std::vector<std::size_t> sizes;
    std::uint64_t bytes = 0;
    for (const Received& datagram : received) {
        sizes.push_back(datagram.size);
        bytes += datagram.size;
        EXPECT_EQ(datagram.agent, "192.0.2.7");
        EXPECT_EQ(datagram.subAgent, 0U);
        EXPECT_EQ(datagram.uptime, 1000U);
    }
    EXPECT_EQ(sizes, expected);
    EXPECT_EQ(Sequences(received), FromTo(1, static_cast<std::uint32_t>(expected.size())));
    EXPECT_EQ(Samples(received), m_put);
    const StreamStatus& status = stream.Status();
    EXPECT_EQ(status.datagrams, received.size());
    EXPECT_EQ(status.bytes, bytes);
    EXPECT_EQ(status.counterSamples, (shape.samples + 2) / 3);
    EXPECT_EQ(status.flowSamples, shape.samples - (shape.samples + 2) / 3);
    EXPECT_EQ(status.lostDatagrams + status.lostSamples + status.errors, 0U);
    EXPECT_TRUE(status.sending);
    EXPECT_EQ(status.lastDatagram, m_time);
}

INSTANTIATE_TEST_SUITE_P(All, ExporterShapes,
                         testing::Combine(testing::ValuesIn(kShapes),
                                          testing::Values(Merge::kOff, Merge::kOn)),
                         [](const auto& test) {
                             return std::get<0>(test.param).name +
                                    (std::get<1>(test.param) == Merge::kOn ? "Merged" : "");
                         });

TEST_F(ExporterTest, WaitsForFlushWithADatagramThatIsNotFull)
{
    Collector collector("127.0.0.2", 6343);
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    Put(stream, 3, 100);
    EXPECT_THAT(collector.TakeAll(), testing::IsEmpty());
    EXPECT_FALSE(stream.Status().sending);
    Export().Flush();
    EXPECT_EQ(Samples(collector.Take(1)), m_put);
    Export().Flush();
    EXPECT_THAT(collector.TakeAll(), testing::IsEmpty());
    EXPECT_EQ(stream.Status().datagrams, 1U);
}

TEST_F(ExporterTest, SendsWhatIsFullWithoutAFlush)
{
    Collector collector("127.0.0.2", 6343);
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    Put(stream, 600, 220);
    // A buffer of 64 kB has 46 datagrams of 28 + 6 * 220 bytes, and more have been closed than that.
    EXPECT_GE(collector.Take(46).size(), 46U);
}

TEST_F(ExporterTest, TellsTheRoomOfADatagramAndTakesASampleOfThatSize)
{
    Collector collector("127.0.0.2", 6343);
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    ASSERT_EQ(stream.Room(), 1400 - kHeader);
    Put(stream, 1, stream.Room());
    Export().Flush();
    const auto received = collector.Take(1);
    ASSERT_EQ(received.size(), 1U);
    EXPECT_EQ(received[0].size, 1400U);
}

TEST_F(ExporterTest, CountsASampleThatNoDatagramCarriesAndGoesOn)
{
    Collector collector("127.0.0.2", 6343);
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 200));
    Put(stream, 1, 100);
    stream.Put(Bytes(stream.Room() + 4), Kind::kFlow);
    stream.Put(Bytes(100'000), Kind::kCounters);
    stream.Put({}, Kind::kFlow);
    Put(stream, 1, 60);
    Export().Flush();
    EXPECT_EQ(Samples(collector.Take(1)), m_put);
    EXPECT_EQ(stream.Status().lostSamples, 3U);
    EXPECT_EQ(stream.Status().lostDatagrams, 0U);
}

TEST_F(ExporterTest, TakesSettingsThatNoDatagramCanHave)
{
    Stream& tiny = Export().Set("tiny", Settings("127.0.0.2", 6343, 0));
    EXPECT_EQ(tiny.Room(), 200 - kHeader);
    Stream& huge = Export().Set("huge", Settings("127.0.0.2", 6343, 65535));
    EXPECT_EQ(huge.Room(), 65507 - kHeader);
}

TEST_F(ExporterTest, WritesTheUptimeAtWhichTheDatagramWasClosed)
{
    Collector collector("127.0.0.2", 6343);
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 200));
    Put(stream, 1, 172);
    Advance(milliseconds(70));
    Put(stream, 1, 172);
    Advance(milliseconds(30));
    Export().Flush();
    const auto received = collector.Take(2);
    ASSERT_EQ(received.size(), 2U);
    EXPECT_EQ(received[0].uptime, 1070U);
    EXPECT_EQ(received[1].uptime, 1100U);
}

}  // namespace
}  // namespace exporter_test
