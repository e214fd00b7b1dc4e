// SPDX-License-Identifier: Apache-2.0
// What a sampled packet looks like: bytes, lengths, tags, directions, and what is neither counted nor
// sampled.

#include <gmock/gmock.h>

#include <algorithm>

#include "capture/source_suite.h"

namespace source_suite {

namespace {

using capture::Settings;
using support::Bytes;
using support::EthernetFrame;
using support::FrameOptions;
using support::UdpFrame;

constexpr std::size_t kTag = 4;
constexpr std::size_t kAddresses = 12;

struct FrameRow {
    std::string name;
    Bytes frame;
};

std::vector<FrameRow> Frames()
{
    std::vector<FrameRow> rows;
    for (const std::size_t size :
         {14U, 15U, 32U, 59U, 60U, 64U, 95U, 96U, 97U, 128U, 511U, 512U, 513U, 1514U, 4000U, 9000U})
        rows.push_back({"any of " + std::to_string(size), EthernetFrame(1, 2, 0x88b5, size)});
    rows.push_back({"IPv4", UdpFrame({.size = 300})});
    rows.push_back({"IPv6", UdpFrame({.source = "2001:db8::1", .destination = "2001:db8::2", .size = 300})});
    rows.push_back({"ARP", EthernetFrame(1, 255, 0x0806, 42)});
    rows.push_back({"LLC", EthernetFrame(1, 2, 0x0026, 60)});
    rows.push_back({"jumbo", UdpFrame({.size = 9000})});
    return rows;
}

struct TagRow {
    std::string name;
    std::vector<std::uint32_t> tags;
    std::uint16_t etherType;  // behind the tag that the kernel takes
};

struct DirectionRow {
    std::string name;
    bool ingress, egress;
};

}  // namespace

TEST_P(SourceSuite, HandsOverEachFrameWithItsBytesAndLength)
{
    const std::uint32_t port = Cable("near", "far");
    support::Network::Ip("link set near mtu 9000\nlink set far mtu 9000");
    Make();
    if (IsSkipped()) return;
    Add(port, {.rate = 1, .headerSize = capture::kMaxHeader});
    support::Injector injector("far");
    std::uint64_t count = 0;
    for (const FrameRow& row : Frames()) {
        SCOPED_TRACE(row.name);
        injector.Send(row.frame);
        ++count;
        ASSERT_TRUE(Becomes([&] { return m_record.all.size() >= count; }));
        ASSERT_EQ(m_record.all.size(), count);
        const SampledFrame& sampled = m_record.all.back();
        EXPECT_EQ(sampled.sample.length, row.frame.size());
        Bytes beginning = row.frame;
        beginning.resize(std::min(beginning.size(), capture::kMaxHeader));
        EXPECT_EQ(sampled.header, beginning);
        EXPECT_EQ(sampled.sample.ifIndex, port);
        EXPECT_FALSE(sampled.sample.egress);
        EXPECT_EQ(sampled.sample.rate, 1U);
        EXPECT_EQ(sampled.sample.count, 1);
        EXPECT_EQ(sampled.sample.segments, 1);
        EXPECT_EQ(sampled.sample.segmentSize, 0);
        EXPECT_EQ(sampled.sample.tagProtocol, 0);
        EXPECT_EQ(sampled.sample.pool, count);
        EXPECT_EQ(sampled.sample.drops, 0U);
    }
}

TEST_P(SourceSuite, KeepsSoManyBytesAsAreWanted)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    struct Row {
        std::uint16_t wanted;
        std::size_t least;
    };
    Add(port, {.rate = 1, .headerSize = 16});
    support::Injector injector("far");
    const Bytes frame = EthernetFrame(1, 2, 0x88b5, 1000);
    std::size_t count = 0;
    for (const Row row : {Row{16, 96}, {96, 96}, {97, 97}, {128, 128}, {512, 512}, {64, 96}}) {
        SCOPED_TRACE(row.wanted);
        Change(port, {.rate = 1, .headerSize = row.wanted});
        injector.Send(frame);
        ++count;
        ASSERT_TRUE(Becomes([&] { return m_record.all.size() == count; }));
        const Bytes& header = m_record.all.back().header;
        ASSERT_GE(header.size(), row.least);
        EXPECT_LE(header.size(), capture::kMaxHeader);
        EXPECT_TRUE(std::equal(header.begin(), header.end(), frame.begin()));
        EXPECT_EQ(m_record.all.back().sample.length, frame.size());
    }
}

TEST_P(SourceSuite, TellsTheTagThatTheKernelTook)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    Add(port, {.rate = 1, .headerSize = 256});
    support::Injector injector("far");
    std::size_t count = 0;
    for (const TagRow& row : {TagRow{"none", {}, 0x0800},
                              {"VLAN", {0x81006064}, 0x0800},
                              {"VLAN 0 with a priority", {0x8100e000}, 0x0800},
                              {"service tag", {0x88a80fff}, 0x0800},
                              {"QinQ", {0x88a8a0c8, 0x8100000a}, 0x8100},
                              {"two of one kind", {0x81000001, 0x81000002}, 0x8100}}) {
        SCOPED_TRACE(row.name);
        const Bytes frame = UdpFrame({.tags = row.tags, .size = 150});
        injector.Send(frame);
        ++count;
        ASSERT_TRUE(Becomes([&] { return m_record.all.size() == count; }));
        const SampledFrame& sampled = m_record.all.back();
        EXPECT_EQ(sampled.sample.etherType, row.etherType);
        const std::uint32_t outer = row.tags.empty() ? 0 : row.tags.front();
        EXPECT_EQ(sampled.sample.tagProtocol, outer >> 16U);
        EXPECT_EQ(sampled.sample.tagControl, outer & 0xffffU);
        Bytes left = frame;
        if (!row.tags.empty()) left.erase(left.begin() + kAddresses, left.begin() + kAddresses + kTag);
        EXPECT_EQ(sampled.sample.length, left.size());
        EXPECT_EQ(sampled.header, left);
    }
}

TEST_P(SourceSuite, SamplesTheDirectionsThatAreWanted)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    constexpr std::uint64_t kEntering = 30;
    constexpr std::uint64_t kLeaving = 20;
    std::uint64_t pool = 0;
    Add(port, {.rate = 1, .headerSize = 128, .ingress = true, .egress = false});
    for (const DirectionRow& row : {DirectionRow{"ingress", true, false},
                                    {"egress", false, true},
                                    {"both", true, true},
                                    {"ingress again", true, false},
                                    {"neither", false, false},
                                    {"both again", true, true}}) {
        SCOPED_TRACE(row.name);
        Change(port, {.rate = 1, .headerSize = 128, .ingress = row.ingress, .egress = row.egress});
        m_record.all.clear();
        SendNumbered("far", 0, kEntering);
        SendNumbered("near", 1000, kLeaving);
        pool += (row.ingress ? kEntering : 0) + (row.egress ? kLeaving : 0);
        EXPECT_TRUE(Settles(port, pool));
        std::vector<std::uint64_t> expected;
        for (std::uint64_t i = 0; row.ingress && i < kEntering; ++i) expected.push_back(i);
        for (std::uint64_t i = 0; row.egress && i < kLeaving; ++i) expected.push_back(1000 + i);
        EXPECT_EQ(m_record.Numbers(port), expected);
        for (const SampledFrame& sampled : m_record.all)
            EXPECT_EQ(sampled.sample.egress, NumberOf(sampled.header) >= 1000);
    }
}

TEST_P(SourceSuite, NeitherCountsNorSamplesWhatIsItsOwn)
{
    const std::uint32_t port = Cable("near", "far");
    Make();
    if (IsSkipped()) return;
    Add(port, {.rate = 1, .headerSize = 128, .ingress = true, .egress = true});
    const MarkedSender leavesOurs("near", kOwnMark);
    const MarkedSender leavesTheirs("near", kOwnMark + 1);
    const MarkedSender entersOurs("far", kOwnMark);
    const MarkedSender entersTheirs("far", 0);
    for (std::uint64_t i = 0; i < 10; ++i) {
        leavesOurs.Send(UdpFrame({.number = 1}));
        leavesTheirs.Send(UdpFrame({.number = 2}));
        entersOurs.Send(UdpFrame({.number = 3}));
        entersTheirs.Send(UdpFrame({.number = 4}));
    }
    EXPECT_TRUE(Settles(port, 20));
    const std::vector<std::uint64_t> numbers = m_record.Numbers(port);
    EXPECT_EQ(std::ranges::count(numbers, 2U), 10);
    EXPECT_EQ(std::ranges::count(numbers, 4U), 10);
    EXPECT_EQ(numbers.size(), 20U);
}

}  // namespace source_suite
