// SPDX-License-Identifier: Apache-2.0
// Reading of blocks: as the kernel writes them, and with contents that it never writes.

#include "capture/packet_socket/blocks.h"

#include <gmock/gmock.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>

#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <string>

namespace {

using namespace capture;

constexpr std::size_t kBlock = 4096;
constexpr std::size_t kBlocks = 3;
constexpr std::size_t kFirst = 48;  // of the packets in a block
constexpr std::size_t kRingHeaders = TPACKET_ALIGN(sizeof(tpacket3_hdr)) + sizeof(sockaddr_ll);
constexpr std::size_t kMac = 82;  // from a packet's header to its bytes, with what stands before them
constexpr std::size_t kSegmentHeader = 10;

// Memory like a ring, and the kernel's side of it.
class Ring : public testing::Test {
protected:
    tpacket_hdr_v1& Head(std::size_t block)
    {
        return reinterpret_cast<tpacket_block_desc*>(m_memory.data() + block * kBlock)->hdr.bh1;
    }

    // A packet behind the last of the block. Returns its header.
    tpacket3_hdr& Add(std::size_t block, std::size_t snap, std::uint32_t length,
                      unsigned char type = PACKET_HOST)
    {
        tpacket_hdr_v1& head = Head(block);
        if (head.num_pkts == 0) {
            head.offset_to_first_pkt = kFirst;
            m_end = kFirst;
        }
        std::byte* at = m_memory.data() + block * kBlock + m_end;
        auto& packet = *reinterpret_cast<tpacket3_hdr*>(at);
        packet.tp_next_offset = static_cast<std::uint32_t>(TPACKET_ALIGN(kMac + snap));
        packet.tp_mac = kMac;
        packet.tp_snaplen = static_cast<std::uint32_t>(snap);
        packet.tp_len = length;
        packet.tp_status = TP_STATUS_USER;
        auto& address = *reinterpret_cast<sockaddr_ll*>(at + TPACKET_ALIGN(sizeof(tpacket3_hdr)));
        address.sll_pkttype = type;
        address.sll_protocol = htons(ETH_P_IP);
        std::memset(at + kMac, static_cast<int>(head.num_pkts), snap);
        m_end += packet.tp_next_offset;
        ++head.num_pkts;
        return packet;
    }

    void Give(std::size_t block) { Head(block).block_status = TP_STATUS_USER; }

    std::vector<Sample> Take()
    {
        std::vector<Sample> samples;
        m_blocks.Take(samples);
        return samples;
    }

    alignas(16) std::array<std::byte, kBlock * kBlocks> m_memory{};
    std::size_t m_end = kFirst;
    RingArea m_area{m_memory.data(), kBlock, kBlocks};
    RingBlocks m_blocks{m_area, true};
};

TEST_F(Ring, WaitsWithSoManyBlocksAsWereGivenInARow)
{
    EXPECT_EQ(m_blocks.Waiting(), 0U);
    Give(1);
    EXPECT_EQ(m_blocks.Waiting(), 0U) << "the first one is still being filled";
    Give(0);
    EXPECT_EQ(m_blocks.Waiting(), 2U);
    Give(2);
    EXPECT_EQ(m_blocks.Waiting(), 3U);
    m_blocks.Release();
    EXPECT_EQ(Head(0).block_status, static_cast<std::uint32_t>(TP_STATUS_KERNEL));
    EXPECT_EQ(m_blocks.Waiting(), 2U);
    Give(0);
    EXPECT_EQ(m_blocks.Waiting(), 3U) << "around the end";
}

TEST_F(Ring, HasNothingBeforeItIsMapped)
{
    const RingArea none{nullptr, kBlock, kBlocks};
    EXPECT_EQ(RingBlocks(none, true).Waiting(), 0U);
}

TEST_F(Ring, HandsOverEachPacketOfABlock)
{
    Add(0, 60, 60);
    Add(0, 96, 1514, PACKET_OUTGOING);
    Add(0, 128, 9000, PACKET_BROADCAST);
    const std::vector<Sample> samples = Take();
    ASSERT_EQ(samples.size(), 3U);
    EXPECT_EQ(samples[0].length, 60U);
    EXPECT_EQ(samples[1].length, 1514U);
    EXPECT_EQ(samples[2].length, 9000U);
    EXPECT_EQ(samples[1].header.size(), 96U);
    EXPECT_EQ(samples[2].header.front(), std::byte{2});
    EXPECT_EQ(samples[2].header.back(), std::byte{2});
    EXPECT_EQ(samples[0].etherType, ETH_P_IP);
}

TEST_F(Ring, DoesNotKnowHowALeavingPacketCame)
{
    Add(0, 60, 60);
    Add(0, 60, 60, PACKET_OUTGOING);
    const std::vector<Sample> samples = Take();
    ASSERT_EQ(samples.size(), 2U);
    EXPECT_FALSE(samples[0].egress);
    EXPECT_TRUE(samples[1].egress);
    EXPECT_EQ(samples[1].origin, kOriginUnknown);
}

TEST_F(Ring, TellsTagsAsTheKernelDoes)
{
    tpacket3_hdr& old = Add(0, 60, 60);
    old.tp_status |= TP_STATUS_VLAN_VALID;
    old.hv1.tp_vlan_tci = 0xe064;
    tpacket3_hdr& service = Add(0, 60, 60);
    service.tp_status |= TP_STATUS_VLAN_VALID | TP_STATUS_VLAN_TPID_VALID;
    service.hv1.tp_vlan_tci = 7;
    service.hv1.tp_vlan_tpid = 0x88a8;
    tpacket3_hdr& none = Add(0, 60, 60);
    none.hv1.tp_vlan_tci = 9;  // means nothing
    const std::vector<Sample> samples = Take();
    ASSERT_EQ(samples.size(), 3U);
    EXPECT_EQ(samples[0].tagProtocol, 0x8100);
    EXPECT_EQ(samples[0].tagControl, 0xe064);
    EXPECT_EQ(samples[1].tagProtocol, 0x88a8);
    EXPECT_EQ(samples[1].tagControl, 7);
    EXPECT_EQ(samples[2].tagProtocol, 0);
    EXPECT_EQ(samples[2].tagControl, 0);
}

TEST_F(Ring, TakesOnlySoManyOfAnUnfinishedBlockAsThereAre)
{
    for (int i = 0; i < 5; ++i) Add(0, 60, 60);
    std::vector<Sample> samples;
    m_blocks.TakeUnfinished(samples, 3);
    EXPECT_EQ(samples.size(), 3U);
    m_blocks.TakeUnfinished(samples, 0);
    EXPECT_EQ(samples.size(), 3U);
}

TEST_F(Ring, LeavesOutAPacketThatNobodyFinishes)
{
    Add(0, 60, 60);
    Add(0, 60, 60).tp_status = 0;
    Add(0, 60, 60);
    std::vector<Sample> samples;
    m_blocks.TakeUnfinished(samples, 3);
    EXPECT_EQ(samples.size(), 2U);
}

// ---- segments ----

struct SegmentRow {
    std::string name;
    std::uint8_t flags, type;
    std::uint16_t segmentSize, checksumStart;
    std::uint8_t dataOffset;  // of the TCP header, in its upper four bits
    std::uint32_t length;
    int segments, size;  // expected
};

TEST_F(Ring, CountsTheSegmentsOfAPacket)
{
    constexpr int kTcp = 34 + 20;
    for (const SegmentRow& row :
         {SegmentRow{"none", 0, 0, 0, 0, 0x50, 1514, 1, 0},
          {"TCP, even", 1, 1, 1000, 34, 0x50, kTcp + 3000, 3, 1000},
          {"TCP, one byte more", 1, 1, 1000, 34, 0x50, kTcp + 3001, 4, 1000},
          {"TCP, one byte less", 1, 1, 1000, 34, 0x50, kTcp + 2999, 3, 1000},
          {"TCP with options", 1, 1, 1000, 34, 0x80, kTcp + 12 + 3000, 3, 1000},
          {"TCP, marked for congestion", 1, 0x81, 1000, 34, 0x50, kTcp + 2000, 2, 1000},
          {"TCP over IPv6", 1, 4, 1000, 54, 0x50, 54 + 20 + 5000, 5, 1000},
          {"UDP", 1, 5, 1000, 34, 0, 42 + 2500, 3, 1000},
          {"one segment", 1, 1, 1000, 34, 0x50, kTcp + 10, 1, 1000},
          {"as many as there can be", 1, 1, 1, 34, 0x50, 1U << 20U, 65535, 1},
          {"no segment size", 1, 1, 0, 34, 0x50, 5000, 1, 0},
          {"no checksum to be made", 0, 1, 1000, 34, 0x50, 5000, 1, 0},
          {"transport header beyond what was kept", 1, 1, 1000, 90, 0x50, 5000, 1, 0},
          {"transport header far beyond", 1, 1, 1000, 65535, 0x50, 5000, 1, 0},
          {"UDP header beyond the packet", 1, 5, 1000, 65535, 0, 5000, 1, 0},
          {"nothing but headers", 1, 1, 1000, 34, 0x50, kTcp, 1, 0}}) {
        SCOPED_TRACE(row.name);
        m_memory.fill(std::byte{0});
        tpacket3_hdr& packet = Add(0, 96, row.length);
        std::byte* data = reinterpret_cast<std::byte*>(&packet) + kMac;
        const auto transport = std::size_t{row.checksumStart};
        if (transport + 12 < 96) data[transport + 12] = std::byte{row.dataOffset};
        std::byte* before = data - kSegmentHeader;
        before[0] = std::byte{row.flags};
        before[1] = std::byte{row.type};
        std::memcpy(before + 4, &row.segmentSize, 2);
        std::memcpy(before + 6, &row.checksumStart, 2);
        const std::vector<Sample> samples = Take();
        ASSERT_EQ(samples.size(), 1U);
        EXPECT_EQ(samples[0].segments, row.segments);
        EXPECT_EQ(samples[0].segmentSize, row.size);
        EXPECT_EQ(samples[0].count, 1);
        // Where the kernel does not tell segments, what stands there is none of its words.
        std::vector<Sample> others;
        RingBlocks(m_area, false).Take(others);
        EXPECT_EQ(others.at(0).segments, 1);
    }
}

// ---- what the kernel never writes ----

struct OddRow {
    std::string name;
    std::function<void(tpacket_hdr_v1& head, tpacket3_hdr& second)> spoil;
    std::size_t left;  // samples of the three
};

TEST_F(Ring, LeavesOutWhatDoesNotLieInItsBlock)
{
    constexpr auto kHuge = std::numeric_limits<std::uint32_t>::max();
    const std::vector<OddRow> rows{
        {"nothing odd", [](auto&, auto&) {}, 3},
        {"more packets than are there", [](auto& head, auto&) { head.num_pkts = kHuge; }, 3},
        {"no packets", [](auto& head, auto&) { head.num_pkts = 0; }, 0},
        {"first packet beyond the block", [](auto& head, auto&) { head.offset_to_first_pkt = kBlock; }, 0},
        {"first packet far beyond", [](auto& head, auto&) { head.offset_to_first_pkt = kHuge; }, 0},
        {"first packet at the very end",
         [](auto& head, auto&) { head.offset_to_first_pkt = kBlock - kRingHeaders + 1; }, 0},
        {"first packet not aligned", [](auto& head, auto&) { head.offset_to_first_pkt = kFirst + 1; }, 0},
        {"bytes beyond the block", [](auto&, auto& packet) { packet.tp_snaplen = kBlock; }, 2},
        {"bytes far beyond", [](auto&, auto& packet) { packet.tp_snaplen = kHuge; }, 2},
        {"bytes that begin beyond", [](auto&, auto& packet) { packet.tp_mac = 65535; }, 2},
        {"bytes within the header", [](auto&, auto& packet) { packet.tp_mac = 0; }, 2},
        {"no room for what stands before them", [](auto&, auto& packet) { packet.tp_mac = kRingHeaders; }, 2},
        {"next packet beyond", [](auto&, auto& packet) { packet.tp_next_offset = kHuge; }, 2},
        {"next packet not aligned", [](auto&, auto& packet) { packet.tp_next_offset += 2; }, 2},
        {"no next packet", [](auto&, auto& packet) { packet.tp_next_offset = 0; }, 2},
        {"given up by the kernel", [](auto&, auto& packet) { packet.tp_status = 0; }, 2},
    };
    for (const OddRow& row : rows) {
        SCOPED_TRACE(row.name);
        m_memory.fill(std::byte{0});
        Add(0, 96, 96);
        tpacket3_hdr& second = Add(0, 96, 96);
        Add(0, 96, 96).tp_next_offset = 0;
        row.spoil(Head(0), second);
        EXPECT_EQ(Take().size(), row.left);
        std::vector<Sample> unfinished;
        m_blocks.TakeUnfinished(unfinished, 10);
        EXPECT_EQ(unfinished.size(), row.left);
    }
}

TEST_F(Ring, KeepsToTheMostThatCanBeAskedFor)
{
    Add(0, 2000, 2000);
    EXPECT_EQ(Take().at(0).header.size(), kMaxHeader);
}

TEST_F(Ring, StaysWithinTheBlockWhateverItHolds)
{
    std::mt19937_64 random(20240229);
    for (int round = 0; round < 2000; ++round) {
        // Half of the blocks are real ones with some bytes of anything, half are nothing but that.
        m_memory.fill(std::byte{0});
        for (int packet = 0; round % 2 == 0 && packet < 6; ++packet) Add(0, 96, 1000);
        const std::size_t spoiled = round % 2 == 0 ? 20 : kBlock;
        for (std::size_t i = 0; i < spoiled; ++i) {
            const std::size_t at = round % 2 == 0 ? random() % 1500 : i;
            m_memory.at(at) = static_cast<std::byte>(random() & random());
        }
        if (round % 2 != 0) Head(0).offset_to_first_pkt = kFirst;
        for (const Sample& sample : Take()) {
            ASSERT_LE(sample.header.size(), kMaxHeader);
            ASSERT_GE(sample.header.data(), m_memory.data());
            ASSERT_LE(sample.header.data() + sample.header.size(), m_memory.data() + kBlock);
            ASSERT_GE(sample.segments, 1);
        }
    }
}

}  // namespace
