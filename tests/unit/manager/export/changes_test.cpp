// SPDX-License-Identifier: Apache-2.0
// What a change of the settings, of the agent address or of the encoding means for what waits and for the
// sequence.

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/export/world.h"
#include "support/sflow_decoder.h"
#include "wire/encode.h"

namespace exporter_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> Agents(const std::vector<Received>& received)
{
    std::vector<std::string> agents;
    for (const Received& datagram : received) agents.push_back(datagram.agent);
    return agents;
}

TEST_F(ExporterTest, FindsACollectorUntilItIsRemoved)
{
    EXPECT_EQ(Export().Find("c1"), nullptr);
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    EXPECT_EQ(Export().Find("c1"), &stream);
    Export().Set("c2", Settings("127.0.0.2", 6343, 1400));
    Export().Set("c1", Settings("127.0.0.3", 6343, 200));
    EXPECT_EQ(Export().Find("c1"), &stream);
    Export().Remove("c1");
    Export().Remove("c1");
    EXPECT_EQ(Export().Find("c1"), nullptr);
    EXPECT_NE(Export().Find("c2"), nullptr);
}

TEST_F(ExporterTest, SendsWhatWaitsWithTheOldAgentAddress)
{
    Collector collector("127.0.0.2", 6343);
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    SendOne(stream);
    Put(stream, 1, 100);
    Export().SetAgentAddress(Address("192.0.2.1"));
    SendOne(stream);
    Put(stream, 1, 100);
    Export().SetAgentAddress(Address("192.0.2.1"));
    Put(stream, 1, 100);
    Export().SetAgentAddress(Address("192.0.2.2"));
    SendOne(stream);
    const auto received = collector.Take(5);
    EXPECT_THAT(Agents(received), ElementsAre("0.0.0.0", "0.0.0.0", "192.0.2.1", "192.0.2.1", "192.0.2.2"));
    EXPECT_EQ(Sequences(received), FromTo(1, 5));
    EXPECT_EQ(Samples(received), m_put);
}

TEST_F(ExporterTest, SendsWhatWaitsToTheOldAddressAndGoesOnWithTheSequence)
{
    Collector old("127.0.0.2", 6343), moved("127.0.0.3", 6343), port("127.0.0.3", 6344);
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    SendOne(stream);
    Put(stream, 1, 100);
    Export().Set("c1", Settings("127.0.0.3", 6343, 1400));
    EXPECT_FALSE(stream.Status().sending);
    SendOne(stream);
    EXPECT_TRUE(stream.Status().sending);
    Put(stream, 1, 100);
    Export().Set("c1", Settings("127.0.0.3", 6344, 1400));
    SendOne(stream);
    EXPECT_THAT(Sequences(old.Take(2)), ElementsAre(1, 2));
    EXPECT_THAT(Sequences(moved.Take(2)), ElementsAre(3, 4));
    EXPECT_THAT(Sequences(port.Take(1)), ElementsAre(5));
    EXPECT_THAT(old.TakeAll(), IsEmpty());
    EXPECT_THAT(moved.TakeAll(), IsEmpty());
    EXPECT_EQ(stream.Status().datagrams, 5U);
}

TEST_F(ExporterTest, ChangesTheSizeOnTheSameSocket)
{
    Collector collector("127.0.0.2", 6343);
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    Put(stream, 5, 220);
    Export().Set("c1", Settings("127.0.0.2", 6343, 500));
    EXPECT_EQ(stream.Room(), 500U - 28);
    Put(stream, 4, 220);
    Export().Set("c1", Settings("127.0.0.2", 6343, 9000));
    Put(stream, 20, 220);
    Export().Flush();
    const auto received = collector.Take(4);
    ASSERT_EQ(received.size(), 4U);
    EXPECT_EQ(Sequences(received), FromTo(1, 4));
    EXPECT_EQ(Samples(received), m_put);
    EXPECT_EQ(received[0].samples.size(), 5U);
    EXPECT_EQ(received[1].samples.size(), 2U);
    EXPECT_EQ(received[2].samples.size(), 2U);
    EXPECT_EQ(received[3].samples.size(), 20U);
    for (const Received& datagram : received) EXPECT_EQ(datagram.origin.port, received[0].origin.port);
}

TEST_F(ExporterTest, DoesNothingForTheSameSettings)
{
    Collector collector("127.0.0.2", 6343);
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    SendOne(stream);
    const auto before = collector.Take(1);
    Put(stream, 1, 100);
    EXPECT_EQ(&Export().Set("c1", Settings("127.0.0.2", 6343, 1400)), &stream);
    EXPECT_TRUE(stream.Status().sending);
    EXPECT_THAT(collector.TakeAll(), IsEmpty());
    SendOne(stream);
    const auto after = collector.Take(1);
    ASSERT_EQ(before.size(), 1U);
    ASSERT_EQ(after.size(), 1U);
    EXPECT_EQ(after[0].samples.size(), 2U);
    EXPECT_EQ(after[0].sequence, 2U);
    EXPECT_EQ(after[0].origin.port, before[0].origin.port);
}

TEST_F(ExporterTest, SendsWhatWaitsBeforeACollectorIsRemoved)
{
    Collector one("127.0.0.2", 6343), other("127.0.0.3", 6343);
    Put(Export().Set("c1", Settings("127.0.0.2", 6343, 1400)), 9, 220);
    Stream& stays = Export().Set("c2", Settings("127.0.0.3", 6343, 1400));
    Put(stays, 1, 220);
    Export().Remove("c1");
    const auto received = one.Take(2);
    EXPECT_EQ(Sequences(received), FromTo(1, 2));
    EXPECT_EQ(Samples(received).size(), 9U);
    Export().Flush();
    EXPECT_EQ(Samples(other.Take(1)), Last(1));
    // Of that name again: a new stream.
    SendOne(Export().Set("c1", Settings("127.0.0.2", 6343, 1400)));
    EXPECT_THAT(Sequences(one.Take(1)), ElementsAre(1));
}

TEST_F(ExporterTest, SendsWhatWaitsBeforeItGoesItself)
{
    Collector collector("127.0.0.2", 6343);
    Put(Export().Set("c1", Settings("127.0.0.2", 6343, 1400)), 3, 220);
    m_exporter.reset();
    EXPECT_EQ(Samples(collector.Take(1)), m_put);
}

TEST_F(ExporterTest, BeginsAllSequencesAnewAfterWhatWaited)
{
    Collector one("127.0.0.2", 6343), other("127.0.0.3", 6343);
    Stream& first = Export().Set("c1", Settings("127.0.0.2", 6343, 1400));
    Stream& second = Export().Set("c2", Settings("127.0.0.3", 6343, 1400));
    SendOne(first);
    SendOne(second);
    SendOne(second);
    Put(first, 1, 100);
    Export().Restart(0);
    SendOne(first);
    SendOne(first);
    SendOne(second);
    EXPECT_THAT(Sequences(one.Take(4)), ElementsAre(1, 2, 1, 2));
    EXPECT_THAT(Sequences(other.Take(3)), ElementsAre(1, 2, 1));
}

TEST_F(ExporterTest, CarriesSamplesThatAStrictReaderUnderstands)
{
    // The suite's own samples are no sFlow; these are.
    RawCollector collector("127.0.0.2", 6343);
    Export().SetAgentAddress(Address("192.0.2.7"));
    Stream& stream = Export().Set("c1", Settings("127.0.0.2", 6343, 400));
    const Bytes frame(128, std::byte{0xAB});
    std::array<std::byte, wire::kMaxFlowSample> space{};
    constexpr std::uint32_t kSamples = 500;
    for (std::uint32_t n = 1; n <= kSamples; ++n) {
        wire::FlowSample sample;
        sample.sequence = n;
        sample.source = 7;
        sample.rate = 512;
        sample.frameLength = 1518;
        sample.stripped = 4;
        sample.header = std::span(frame).first(16 + n % 112);
        sample.maxHeader = 128;
        const std::size_t size =
            wire::Encode(sample, wire::Encoding::kCompact, std::span(space).first(stream.Room()));
        stream.Put(std::span(space).first(size), Kind::kFlow);
    }
    Export().Flush();
    std::uint32_t sequence = 0, samples = 0;
    while (samples < kSamples) {
        const std::vector<Bytes> one = collector.Read(5000);
        ASSERT_EQ(one.size(), 1U);
        const Bytes& bytes = one[0];
        ASSERT_LE(bytes.size(), 400U);
        const support::Datagram datagram = support::DecodeDatagram(bytes);
        EXPECT_EQ(datagram.sequence, ++sequence);
        EXPECT_EQ(datagram.agent, "192.0.2.7");
        EXPECT_EQ(datagram.uptime, 1000U);
        for (const support::DecodedFlow& flow : datagram.Flows()) EXPECT_EQ(flow.sequence, ++samples);
    }
    EXPECT_EQ(stream.Status().datagrams, sequence);
}

}  // namespace
}  // namespace exporter_test
