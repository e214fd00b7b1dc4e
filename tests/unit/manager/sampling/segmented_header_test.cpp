// SPDX-License-Identifier: Apache-2.0
// What a packet of several segments is on the wire: its frames' lengths, and the header of one of them.

#include "manager/sampling/segmented_header.h"

#include <net/ethernet.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace manager {

void PrintTo(const SegmentLengths& lengths, std::ostream* out)
{
    *out << "{" << lengths.each << ", " << lengths.last << "}";
}

namespace {

using Bytes = std::vector<std::byte>;

/// Link addresses, then these bytes.
Bytes Link(std::initializer_list<int> behindAddresses)
{
    Bytes bytes(12, std::byte{2});
    for (const int byte : behindAddresses) bytes.push_back(static_cast<std::byte>(byte));
    return bytes;
}

Bytes operator+(Bytes first, const Bytes& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

void Put16(Bytes& bytes, std::size_t at, std::uint32_t value)
{
    bytes[at] = static_cast<std::byte>(value >> 8);
    bytes[at + 1] = static_cast<std::byte>(value & 0xFF);
}

std::uint32_t Get16(std::span<const std::byte> bytes, std::size_t at)
{
    return std::to_integer<std::uint32_t>(bytes[at]) << 8 | std::to_integer<std::uint32_t>(bytes[at + 1]);
}

/// The sum of RFC 1071 over a header with its checksum: all ones if the checksum is right.
std::uint32_t Sum(std::span<const std::byte> header)
{
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i + 1 < header.size(); i += 2) sum += Get16(header, i);
    while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
    return sum;
}

Bytes Ipv4(int protocol, std::uint32_t total, std::size_t words = 5)
{
    Bytes bytes(words * 4, std::byte{0x11});
    bytes[0] = static_cast<std::byte>(0x40 | words);
    bytes[9] = static_cast<std::byte>(protocol);
    Put16(bytes, 2, total);
    Put16(bytes, 6, 0x4000);
    Put16(bytes, 10, 0);
    Put16(bytes, 10, ~Sum(bytes) & 0xFFFF);
    return bytes;
}

Bytes Ipv6(int next, std::uint32_t payload)
{
    Bytes bytes(40, std::byte{0x22});
    bytes[0] = std::byte{0x60};
    Put16(bytes, 4, payload);
    bytes[6] = static_cast<std::byte>(next);
    return bytes;
}

Bytes Tcp(std::size_t words = 5)
{
    Bytes bytes(words * 4, std::byte{0x33});
    bytes[12] = static_cast<std::byte>(words << 4);
    return bytes;
}

Bytes Udp(std::uint32_t port, std::uint32_t length)
{
    Bytes bytes(8, std::byte{0x44});
    Put16(bytes, 2, port);
    Put16(bytes, 4, length);
    return bytes;
}

capture::Sample SampleOf(const Bytes& header, std::size_t length, int segments, int size)
{
    capture::Sample sample;
    sample.header = header;
    sample.length = static_cast<std::uint32_t>(length);
    sample.segments = static_cast<std::uint16_t>(segments);
    sample.segmentSize = static_cast<std::uint16_t>(size);
    sample.etherType = ETHERTYPE_IP;
    return sample;
}

const Bytes kIp4 = Link({8, 0});
const Bytes kIp6 = Link({0x86, 0xDD});

struct LengthCase {
    const char* name;
    Bytes header;
    std::uint32_t length;
    int segments, size;
    SegmentLengths lengths;
};
void PrintTo(const LengthCase& row, std::ostream* out) { *out << row.name; }

class SegmentLengthsTest : public testing::TestWithParam<LengthCase> {};

// sFlow v5, sampled_header: frame_length is the length of the packet on the network.
TEST_P(SegmentLengthsTest, AreThoseOnTheWire)
{
    const LengthCase& row = GetParam();
    SegmentedHeader header(SampleOf(row.header, row.length, row.segments, row.size), true);
    EXPECT_EQ(header.Lengths(), row.lengths);
    EXPECT_LE(header.Of(row.lengths.each).size(), row.header.size());
}

INSTANTIATE_TEST_SUITE_P(
    , SegmentLengthsTest,
    testing::Values(
        LengthCase{"ThreeOfTcp", kIp4 + Ipv4(6, 0) + Tcp(), 54 + 1448 * 2 + 100, 3, 1448, {54 + 1448, 154}},
        LengthCase{
            "TcpWithOptions", kIp4 + Ipv4(6, 0, 6) + Tcp(8), 14 + 24 + 32 + 2000, 2, 1000, {1070, 1070}},
        LengthCase{
            "BehindATag", Link({0x81, 0, 0, 5, 8, 0}) + Ipv4(6, 0) + Tcp(), 58 + 1500, 2, 1000, {1058, 558}},
        LengthCase{"BehindTwoTags",
                   Link({0x88, 0xA8, 0, 5, 0x81, 0, 0, 6, 8, 0}) + Ipv4(6, 0) + Tcp(),
                   62 + 1500,
                   2,
                   1000,
                   {1062, 562}},
        LengthCase{"TcpOverIpv6", kIp6 + Ipv6(6, 0) + Tcp(), 74 + 2500, 3, 1000, {1074, 574}},
        LengthCase{"Udp", kIp6 + Ipv6(17, 0) + Udp(5000, 0), 62 + 2500, 3, 1000, {1062, 562}},
        LengthCase{"NoTransportThatWeKnow", kIp6 + Ipv6(50, 0), 3000, 3, 1000, {1000, 1000}},
        LengthCase{"TruncatedHeader", Link({8, 0, 0x45}), 3000, 3, 900, {1000, 1000}},
        LengthCase{"NoHeader", {}, 3000, 3, 900, {1000, 1000}},
        LengthCase{"SegmentsThatCantBe", kIp4 + Ipv4(6, 0) + Tcp(), 1000, 10, 1448, {100, 100}},
        LengthCase{"NoSegmentSize", kIp4 + Ipv4(6, 0) + Tcp(), 1000, 2, 0, {500, 500}},
        LengthCase{"NotTheVersionItSays", kIp4 + Ipv6(6, 0) + Tcp(), 3000, 3, 900, {1000, 1000}}),
    [](const auto& row) { return row.param.name; });

// RFC 791, 3.1: total length, header checksum.
TEST(SegmentedHeaderTest, Ipv4SaysTheLengthOfOneFrame)
{
    const Bytes whole = kIp4 + Ipv4(6, 20 + 20 + 1448 * 42) + Tcp();
    SegmentedHeader header(SampleOf(whole, 54 + 1448 * 42, 42, 1448), true);
    ASSERT_EQ(header.Lengths(), (SegmentLengths{1502, 1502}));
    const auto one = header.Of(1502);
    ASSERT_EQ(one.size(), whole.size());
    EXPECT_EQ(Get16(one, 14 + 2), 1488U);
    EXPECT_EQ(Sum(one.subspan(14, 20)), 0xFFFFU) << "the checksum agrees";
    EXPECT_EQ(Bytes(one.begin() + 34, one.end()), Tcp()) << "the rest stays";
    const auto last = header.Of(154);
    EXPECT_EQ(Get16(last, 14 + 2), 140U);
    EXPECT_EQ(Sum(last.subspan(14, 20)), 0xFFFFU);
    EXPECT_EQ(Get16(whole, 14 + 2), 20U + 20 + 1448 * 42) << "the sample's own bytes are not touched";
}

TEST(SegmentedHeaderTest, AWrongChecksumStaysWrong)
{
    Bytes whole = kIp4 + Ipv4(6, 4000) + Tcp();
    whole[14 + 11] ^= std::byte{1};
    SegmentedHeader header(SampleOf(whole, 4014, 3, 1448), true);
    EXPECT_NE(Sum(header.Of(header.Lengths().each).subspan(14, 20)), 0xFFFFU);
}

// RFC 8200, 3: payload length. RFC 768: length.
TEST(SegmentedHeaderTest, Ipv6AndUdpSayTheLengthOfOneFrame)
{
    const Bytes whole = kIp6 + Ipv6(17, 8 + 2500) + Udp(5000, 8 + 2500);
    SegmentedHeader header(SampleOf(whole, 62 + 2500, 3, 1000), true);
    const auto one = header.Of(1062);
    EXPECT_EQ(Get16(one, 14 + 4), 1008U);
    EXPECT_EQ(Get16(one, 54 + 4), 1008U);
    const auto last = header.Of(562);
    EXPECT_EQ(Get16(last, 14 + 4), 508U);
    EXPECT_EQ(Get16(last, 54 + 4), 508U);
}

TEST(SegmentedHeaderTest, ALengthThatOnlyABigPacketHasIsThatOfAFrame)
{
    // BIG TCP over IPv4: the total length does not fit and is 0.
    const Bytes whole = kIp4 + Ipv4(6, 0) + Tcp();
    SegmentedHeader header(SampleOf(whole, 54 + 1448 * 100, 100, 1448), true);
    const auto one = header.Of(header.Lengths().each);
    EXPECT_EQ(Get16(one, 14 + 2), 1488U);
    EXPECT_EQ(Sum(one.subspan(14, 20)), 0xFFFFU);
}

// RFC 2675, 2: the jumbo payload option, with a payload length of 0.
TEST(SegmentedHeaderTest, TheJumboOptionThatTheKernelAddsIsNotOnTheWire)
{
    const Bytes jumbo{std::byte{6}, std::byte{0}, std::byte{0xC2}, std::byte{4},
                      std::byte{0}, std::byte{2}, std::byte{0x35}, std::byte{0}};
    const Bytes whole = kIp6 + Ipv6(0, 0) + jumbo + Tcp();
    SegmentedHeader header(SampleOf(whole, 14 + 40 + 8 + 20 + 1428 * 100, 100, 1428), true);
    ASSERT_EQ(header.Lengths(), (SegmentLengths{1502, 1502}));
    const auto one = header.Of(1502);
    ASSERT_EQ(one.size(), whole.size() - 8);
    EXPECT_EQ(Get16(one, 14 + 4), 1448U);
    EXPECT_EQ(one[14 + 6], std::byte{6}) << "TCP follows";
    EXPECT_EQ(Bytes(one.begin() + 54, one.end()), Tcp());
}

// RFC 7348 (VXLAN), RFC 8926 (Geneve), RFC 2784 and 2890 (GRE).
TEST(SegmentedHeaderTest, EveryHeaderOfATunnelSaysTheLengthOfOneFrame)
{
    const Bytes inner = Ipv4(6, 40 + 3000) + Tcp();
    const Bytes vxlan{std::byte{8}, {}, {}, {}, {}, {}, std::byte{5}, {}};
    const Bytes geneve{std::byte{1}, {}, std::byte{0x65}, std::byte{0x58}, {}, {}, std::byte{5}, {}, {},
                       {},           {}, std::byte{1}};
    for (const auto& [port, tunnel] : {std::pair{4789, vxlan}, {8472, vxlan}, {6081, geneve}}) {
        const Bytes before = kIp4 + Ipv4(17, 0) + Udp(static_cast<std::uint32_t>(port), 0) + tunnel + kIp4;
        const Bytes whole = before + inner;
        SegmentedHeader header(SampleOf(whole, whole.size() + 3000, 3, 1000), true);
        const std::size_t frame = whole.size() + 1000;
        ASSERT_EQ(header.Lengths().each, frame) << port;
        const auto one = header.Of(header.Lengths().each);
        EXPECT_EQ(Get16(one, 14 + 2), frame - 14) << port;
        EXPECT_EQ(Get16(one, 34 + 4), frame - 34) << port;
        EXPECT_EQ(Get16(one, before.size() + 2), 1040U) << port;
        EXPECT_EQ(Sum(one.subspan(before.size(), 20)), 0xFFFFU) << port;
    }
    const Bytes gre{std::byte{0x20}, {}, std::byte{8}, {}, {}, {}, {}, std::byte{7}};  // with a key
    const Bytes whole = kIp4 + Ipv4(47, 0) + gre + inner;
    SegmentedHeader header(SampleOf(whole, whole.size() + 3000, 3, 1000), true);
    EXPECT_EQ(header.Lengths().each, whole.size() + 1000);
    EXPECT_EQ(Get16(header.Of(header.Lengths().each), 14 + 20 + 8 + 2), 1040U);
}

TEST(SegmentedHeaderTest, WhatOnlyHasATunnelsPortIsUdp)
{
    const Bytes whole = kIp4 + Ipv4(17, 0) + Udp(4789, 0) + Bytes(60, std::byte{8});
    SegmentedHeader header(SampleOf(whole, 42 + 3000, 3, 1000), true);
    EXPECT_EQ(header.Lengths(), (SegmentLengths{1042, 1042}));
    EXPECT_EQ(Get16(header.Of(1042), 34 + 4), 1008U);
}

// sFlow v5, enum header_protocol: 11, the packet begins with IPv4.
TEST(SegmentedHeaderTest, WithoutALinkHeaderItBeginsWithIp)
{
    const Bytes whole = Ipv4(6, 40 + 3000) + Tcp();
    SegmentedHeader header(SampleOf(whole, 40 + 3000, 3, 1000), false);
    EXPECT_EQ(header.Lengths(), (SegmentLengths{1040, 1040}));
    EXPECT_EQ(Get16(header.Of(1040), 2), 1040U);
}

TEST(SegmentedHeaderTest, NoHeaderLeadsBeyondItsEnd)
{
    Bytes deep = kIp4;
    for (int i = 0; i < 20; ++i) deep = deep + Ipv4(4, 0);  // IP in IP in IP ...
    for (const Bytes& whole : {deep, kIp4 + Ipv4(17, 0) + Udp(6081, 0) + Bytes(20, std::byte{0x3F})}) {
        for (std::size_t size = 0; size <= whole.size(); ++size) {
            const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            SegmentedHeader header(SampleOf(cut, 3000, 3, 900), true);
            EXPECT_EQ(header.Of(header.Lengths().each).size(), size);
        }
    }
}

}  // namespace
}  // namespace manager
