// SPDX-License-Identifier: Apache-2.0
// Reading the first bytes of packets, as they are and cut off.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "net/resolver/packet_header.h"
#include "support/network.h"

namespace net {
namespace {

using support::Bytes;
using support::UdpFrame;

constexpr std::uint32_t kQ = 0x81000000;
constexpr std::uint32_t kAd = 0x88A80000;

struct Row {
    const char* name;
    std::vector<std::uint32_t> tags;  // in the bytes
    std::uint16_t etherType;          // as the source of the packet tells
    std::uint16_t vlan;
    FrameHead head;
};
void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

class PacketHeader : public testing::TestWithParam<Row> {};

TEST_P(PacketHeader, IsReadWithItsTags)
{
    const Row& row = GetParam();
    const Bytes frame = UdpFrame({.tags = row.tags});
    EXPECT_EQ(ReadFrame({1, row.etherType, row.vlan, frame}), row.head);
}

INSTANTIATE_TEST_SUITE_P(
    Tags, PacketHeader,
    testing::Values(Row{"none", {}, 0x0800, 0, {0, 0x0800, 14}},
                    Row{"one_in_the_bytes", {kQ | 5}, 0x0800, 5, {0, 0x0800, 18}},
                    Row{"one_with_a_priority", {kQ | 0x6000 | 5}, 0x0800, 5, {0, 0x0800, 18}},
                    Row{"one_taken_away", {}, 0x0800, 5, {0, 0x0800, 14}},
                    Row{"a_priority_alone", {kQ | 0x6000}, 0x0800, 0, {0, 0x0800, 18}},
                    Row{"two_in_the_bytes", {kAd | 5, kQ | 6}, 0x8100, 5, {6, 0x0800, 22, 0x8100}},
                    Row{"two_alike_in_the_bytes", {kQ | 5, kQ | 5}, 0x8100, 5, {5, 0x0800, 22, 0x8100}},
                    Row{"the_outer_taken_away", {kQ | 6}, 0x8100, 5, {6, 0x0800, 18, 0x8100}},
                    Row{"the_outer_of_two_alike_taken_away", {kQ | 5}, 0x8100, 5, {5, 0x0800, 18, 0x8100}},
                    Row{"three", {kAd | 5, kQ | 6, kQ | 7}, 0x8100, 5, {6, 0x8100, 22, 0x8100}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(PacketHeader, IsReadOfAnyLength)
{
    const Bytes whole = UdpFrame({.tags = {kAd | 5, kQ | 6}});
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        const auto head = ReadFrame({1, 0x8100, 5, cut});
        ASSERT_EQ(head.has_value(), size >= 14) << size;
        if (head) {
            EXPECT_LE(head->network, size);
        }
    }
}

TEST(PacketHeader, AddressesAreThereWholeOrNotAtAll)
{
    const Bytes four = UdpFrame({.source = "192.0.2.1", .destination = "198.51.100.2"});
    const Bytes six = UdpFrame({.source = "2001:db8::1", .destination = "2001:db8::2"});
    for (std::size_t size = 0; size <= 60; ++size) {
        EXPECT_EQ(ReadAddresses(0x0800, std::span(four).subspan(14, size)).has_value(), size >= 20) << size;
        EXPECT_EQ(ReadAddresses(0x86DD, std::span(six).subspan(14, size)).has_value(), size >= 40) << size;
    }
    const auto read = ReadAddresses(0x0800, std::span(four).subspan(14));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->source, (Address{4, {192, 0, 2, 1}}));
    EXPECT_EQ(read->destination, (Address{4, {198, 51, 100, 2}}));
    EXPECT_EQ(read->timeToLive, std::to_integer<std::uint8_t>(four[14 + 8]));
    EXPECT_EQ(read->size, four.size() - 14);
    EXPECT_FALSE(ReadAddresses(0x86DD, std::span(four).subspan(14))) << "version and type differ";
    EXPECT_FALSE(ReadAddresses(0x0806, std::span(four).subspan(14)));
}

// RFC 791, 3.1; RFC 8200, 3; RFC 2675, 3.
TEST(PacketHeader, TellsTheSizeOfThePacketAndWhetherARouterMayFragmentIt)
{
    Bytes four = UdpFrame({.source = "192.0.2.1", .destination = "198.51.100.2", .size = 314});
    const auto fragmentable = [&](std::uint8_t flags) {
        four[14 + 6] = std::byte{flags};
        return ReadAddresses(0x0800, std::span(four).subspan(14)).value().fragmentable;
    };
    EXPECT_TRUE(fragmentable(0x00));
    EXPECT_TRUE(fragmentable(0x20)) << "more fragments follow";
    EXPECT_FALSE(fragmentable(0x40));
    EXPECT_EQ(ReadAddresses(0x0800, std::span(four).subspan(14))->size, 300U);

    Bytes six = UdpFrame({.source = "2001:db8::1", .destination = "2001:db8::2", .size = 314});
    EXPECT_FALSE(ReadAddresses(0x86DD, std::span(six).subspan(14))->fragmentable);
    EXPECT_EQ(ReadAddresses(0x86DD, std::span(six).subspan(14))->size, 300U);
    six[14 + 4] = six[14 + 5] = std::byte{0};
    EXPECT_EQ(ReadAddresses(0x86DD, std::span(six).subspan(14))->size, 0U) << "a jumbogram";
}

}  // namespace
}  // namespace net
