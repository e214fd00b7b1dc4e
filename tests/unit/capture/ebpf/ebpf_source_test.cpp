// SPDX-License-Identifier: Apache-2.0
// The eBPF source on a cable of the test's own: what it counts, samples and says of a packet. Under change:
// ebpf_change_test.cpp.

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "capture/ebpf_world.h"

namespace {

using capture::Counts;
using support::Bytes;
using support::Network;

class EbpfSourceTest : public EbpfWorld {
protected:
    // A datagram from this machine out of "left", as a program sends it.
    void SendDatagram(std::size_t size, std::uint32_t mark = 0, int segment = 0)
    {
        if (!std::exchange(m_reachable, true))
            Network::Ip(
                "address replace 198.51.100.1/24 dev left\n"
                "neighbour replace 198.51.100.2 lladdr 02:00:00:00:00:02 dev left nud permanent\n");
        const int file = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ASSERT_EQ(::setsockopt(file, SOL_SOCKET, SO_MARK, &mark, sizeof(mark)), 0);
        ASSERT_EQ(::setsockopt(file, IPPROTO_UDP, UDP_SEGMENT, &segment, sizeof(segment)), 0);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(9);
        ::inet_pton(AF_INET, "198.51.100.2", &to.sin_addr);
        const Bytes payload(size);
        EXPECT_EQ(::sendto(file, payload.data(), size, 0, reinterpret_cast<sockaddr*>(&to), sizeof(to)),
                  static_cast<ssize_t>(size));
        ::close(file);
    }

private:
    bool m_reachable = false;
};

TEST_F(EbpfSourceTest, NamesItsKind) { EXPECT_EQ(source->Kind(), "ebpf-tcx"); }

TEST_F(EbpfSourceTest, HandsOverEveryPacketAtRateOne)
{
    Add(right, {.rate = 1, .headerSize = 128});
    Cross(1000);
    source->Drain();
    ASSERT_EQ(sink.samples.size(), 1000U);
    EXPECT_EQ(sink.drained, 1);
    EXPECT_LE(sink.batches, 6) << "in batches";
    const auto sent = Frames(1000);
    for (std::size_t i = 0; i < 1000; ++i) {
        const auto& sample = sink.samples[i];
        ASSERT_EQ(sample.ifIndex, right);
        ASSERT_FALSE(sample.egress);
        ASSERT_EQ(sample.origin, 0U);
        ASSERT_EQ(sample.rate, 1U);
        ASSERT_EQ(sample.count, 1);
        ASSERT_EQ(sample.segments, 1);
        ASSERT_EQ(sample.segmentSize, 0);
        ASSERT_EQ(sample.length, 200U);
        ASSERT_EQ(sample.etherType, 0x0800);
        ASSERT_EQ(sample.tagProtocol, 0);
        ASSERT_EQ(sample.drops, 0U);
        ASSERT_EQ(sample.pool, i + 1);
        ASSERT_EQ(sink.headers[i], Bytes(sent[i].begin(), sent[i].begin() + 128));
    }
    EXPECT_EQ(source->Read(right).pool, 1000U);
    EXPECT_EQ(source->Read(right).drops, 0U);
}

struct SizeRow {
    std::string name;
    std::uint16_t wanted;
    std::size_t frame;
    std::size_t captured;
};
void PrintTo(const SizeRow& row, std::ostream* out) { *out << row.name; }

class HeaderSize : public EbpfWorld, public testing::WithParamInterface<SizeRow> {};

TEST_P(HeaderSize, IsWhatWasAskedForButNeverLessThanTheLeastNorMoreThanThePacket)
{
    const auto& row = GetParam();
    Add(right, {.rate = 1, .headerSize = row.wanted});
    const auto frame = support::EthernetFrame(1, 2, 0x88b5, row.frame);
    Cross({frame});
    source->Drain();
    ASSERT_EQ(sink.samples.size(), 1U);
    EXPECT_EQ(sink.samples[0].length, row.frame);
    EXPECT_EQ(sink.samples[0].etherType, 0x88b5);
    EXPECT_EQ(sink.headers[0], Bytes(frame.begin(), frame.begin() + static_cast<long>(row.captured)));
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, HeaderSize,
    testing::Values(SizeRow{"short_frame", 128, 14, 14}, SizeRow{"little_more", 128, 15, 15},
                    SizeRow{"smallest_class_full", 128, 64, 64}, SizeRow{"second_class", 128, 65, 65},
                    SizeRow{"least", 16, 200, 96}, SizeRow{"usual", 128, 1514, 128},
                    SizeRow{"odd", 129, 1514, 129}, SizeRow{"third_class_full", 256, 1514, 256},
                    SizeRow{"fourth_class", 257, 1514, 257}, SizeRow{"most", 512, 1514, 512},
                    SizeRow{"beyond_most", 9000, 1514, 512}, SizeRow{"all_of_it", 512, 400, 400}),
    [](const auto& row) { return row.param.name; });

TEST_F(EbpfSourceTest, TellsTheTagThatTheKernelTook)
{
    Add(right, {.rate = 1, .headerSize = 128});
    const std::vector<Bytes> frames{support::UdpFrame({.tags = {0x81006005}, .size = 100}),
                                    support::UdpFrame({.tags = {0x88a80007, 0x81000009}, .size = 100})};
    Cross(frames);
    source->Drain();
    ASSERT_EQ(sink.samples.size(), 2U);
    EXPECT_EQ(sink.samples[0].tagProtocol, 0x8100);
    EXPECT_EQ(sink.samples[0].tagControl, 0x6005);
    EXPECT_EQ(sink.samples[0].etherType, 0x0800);
    EXPECT_EQ(sink.samples[0].length, 96U);
    EXPECT_EQ(sink.samples[1].tagProtocol, 0x88a8);
    EXPECT_EQ(sink.samples[1].tagControl, 0x0007);
    EXPECT_EQ(sink.samples[1].etherType, 0x8100) << "the inner tag is still in the packet";
    EXPECT_EQ(sink.samples[1].length, 96U);
    EXPECT_EQ(sink.headers[1].at(15), std::byte{9});
}

TEST_F(EbpfSourceTest, CountsASegmentedPacketAsTheFramesThatItIs)
{
    Add(left, {.rate = 1, .headerSize = 128, .ingress = false, .egress = true});
    Add(right, {.rate = 1, .headerSize = 128});
    SendDatagram(10'500, 0, 1000);
    AwaitPool(left, 11);
    AwaitPool(right, 11);
    source->Drain();
    ASSERT_EQ(sink.samples.size(), 2U);
    for (const auto& sample : sink.samples) {
        EXPECT_EQ(sample.segments, 11);
        EXPECT_EQ(sample.count, 11);
        EXPECT_EQ(sample.segmentSize, 1000);
        EXPECT_EQ(sample.length, 10'542U);
        EXPECT_EQ(sample.pool, 11U);
    }
}

// What a virtual machine hands over: a large TCP packet whose segments are not counted.
TEST_F(EbpfSourceTest, CountsSegmentsThatNobodyHasCounted)
{
    struct Row {
        const char* name;
        std::size_t payload;
        std::uint16_t frames;
    };
    Add(left, {.rate = 1, .headerSize = 128, .ingress = false, .egress = true});
    Add(right, {.rate = 1, .headerSize = 128});
    for (const Row& row : {Row{"just_full", 5000, 5}, Row{"one_more", 5001, 6}, Row{"one_less", 4999, 5}}) {
        constexpr std::size_t kTcpHeader = 32;  // with options
        Bytes frame = support::UdpFrame({.size = 14 + 20 + kTcpHeader + row.payload});
        frame[23] = std::byte{6};              // TCP, so
        frame[24] = frame[25] = std::byte{0};  // another checksum
        frame[34 + 12] = std::byte{kTcpHeader / 4 << 4};
        frame[34 + 13] = std::byte{0x10};  // ACK
        // struct virtio_net_hdr, whose header no C++ compiler takes: checksum to be made, TCP over IPv4.
        const std::uint16_t head[5] = {1 | 1 << 8, 14 + 20 + kTcpHeader, 1000, 34, 16};
        Bytes message(sizeof(head));
        std::memcpy(message.data(), head, sizeof(head));
        message.insert(message.end(), frame.begin(), frame.end());
        const int file = ::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
        const int on = 1;
        ASSERT_EQ(::setsockopt(file, SOL_PACKET, PACKET_VNET_HDR, &on, sizeof(on)), 0);
        sockaddr_ll to{};
        to.sll_family = AF_PACKET;
        to.sll_protocol = htons(ETH_P_IP);
        to.sll_ifindex = static_cast<int>(left);
        ASSERT_EQ(
            ::sendto(file, message.data(), message.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to)),
            static_cast<ssize_t>(message.size()))
            << std::strerror(errno);
        ::close(file);

        const auto before = sink.samples.size();
        EXPECT_TRUE(support::Becomes([&] {
            source->Drain();
            return sink.samples.size() >= before + 2;
        }));
        ASSERT_EQ(sink.samples.size(), before + 2) << row.name;
        EXPECT_TRUE(sink.samples[before].egress);
        EXPECT_EQ(sink.samples[before].segments, row.frames) << row.name;
        EXPECT_EQ(sink.samples[before + 1].segments, row.frames) << row.name << ", by the kernel's count";
    }
}

TEST_F(EbpfSourceTest, SamplesFramesOfSegmentedPacketsWithTheRatesProbability)
{
    Add(right, {.rate = 4, .headerSize = 128});
    for (int i = 0; i < 2000; ++i) SendDatagram(40'000, 0, 1000);
    AwaitPool(right, 80'000);
    source->Drain();
    // 80,000 frames at 1/4: mean 20,000, standard deviation 122.5; six of them: 2e-9.
    EXPECT_NEAR(static_cast<double>(sink.Frames()), 20'000, 6 * 122.5);
    for (const auto& sample : sink.samples) ASSERT_LE(sample.count, 40);
}

TEST_F(EbpfSourceTest, TellsTheDirectionAndWhereAPacketCameFrom)
{
    Network::Veth("out", "far");
    Network::MakeBridge("bridge0", {"right", "out"});
    const auto out = Network::Index("out");
    Add(out, {.rate = 1, .headerSize = 128, .ingress = true, .egress = true});
    Cross(Frames(3), out);
    support::Injector("far").Send(Frames(2));
    AwaitPool(out, 5);
    source->Drain();
    ASSERT_EQ(sink.samples.size(), 5U);
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(sink.samples[i].egress, i < 3);
        EXPECT_EQ(sink.samples[i].origin, i < 3 ? right : 0);
        EXPECT_EQ(sink.samples[i].pool, i + 1) << "both directions count together";
    }
}

TEST_F(EbpfSourceTest, NeitherCountsNorSamplesPacketsWithTheOwnMark)
{
    Start({.ownMark = 77});
    Add(left, {.rate = 1, .headerSize = 128, .ingress = false, .egress = true});
    SendDatagram(100, 77);
    SendDatagram(101, 78);
    SendDatagram(102, 77);
    SendDatagram(103);
    AwaitPool(left, 2);
    source->Drain();
    ASSERT_EQ(sink.samples.size(), 2U);
    EXPECT_EQ(sink.samples[0].length, 143U);
    EXPECT_EQ(sink.samples[1].length, 145U);
}

TEST_F(EbpfSourceTest, CountsWhatFindsNoRoomAndLosesNoCount)
{
    Start({.bufferSize = 65536});
    Add(right, {.rate = 1, .headerSize = 128});
    Cross(5000);
    const Counts full = source->Read(right);
    EXPECT_EQ(full.pool, 5000U);
    EXPECT_GT(full.drops, 0U);
    source->Drain();
    EXPECT_EQ(sink.samples.size() + full.drops, 5000U) << "handed over or counted as lost";
    EXPECT_EQ(sink.samples.back().drops, 0U) << "all of these came before the first loss";
    Cross(1);
    source->Drain();
    EXPECT_EQ(sink.samples.back().pool, 5001U);
    EXPECT_EQ(sink.samples.back().drops, full.drops);
}

TEST_F(EbpfSourceTest, KeepsTheBytesOfRecordsThatGoOverTheEndOfTheRing)
{
    Start({.bufferSize = 4096});
    Add(right, {.rate = 1, .headerSize = 200});
    std::size_t all = 0;
    for (const std::size_t size : {60U, 100U, 200U, 77U, 150U, 64U, 199U}) {
        for (int round = 0; round < 20; ++round, all += 5) {
            Cross(Frames(5, size));
            source->Drain();
            ASSERT_EQ(sink.samples.size(), all + 5);
            for (std::size_t i = 0; i < 5; ++i) {
                ASSERT_EQ(sink.headers[all + i], Frames(5, size)[i]) << "size " << size;
            }
        }
    }
}

TEST_F(EbpfSourceTest, ReadsFewAndManyInterfacesAlike)
{
    std::string lines;
    for (int i = 0; i < 200; ++i) lines += "link add d" + std::to_string(i) + " type bridge\n";
    Network::Ip(lines);
    Add(right, {.rate = 5, .headerSize = 128});
    Cross(123);
    auto few = source->ReadAll();
    ASSERT_EQ(few.size(), 1U);
    EXPECT_EQ(few[0].ifIndex, right);
    EXPECT_EQ(few[0].counts.pool, 123U);
    for (int i = 0; i < 200; ++i)
        Add(Network::Index("d" + std::to_string(i)), {.rate = 5, .ingress = true, .egress = true});
    const auto many = source->ReadAll();
    EXPECT_EQ(many.size(), 201U);
    for (const auto& one : many) EXPECT_EQ(one.counts.pool, one.ifIndex == right ? 123U : 0U) << one.ifIndex;
}

}  // namespace
