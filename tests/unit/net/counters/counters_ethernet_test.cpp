// SPDX-License-Identifier: Apache-2.0
// The Ethernet counters: the kernel's message, made here byte by byte because virtual interfaces have no
// such counters; and that a driver without them is asked once only.

#include "net/counters/kernel_counters.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include <libmnl/libmnl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <linux/ethtool.h>
#include <linux/ethtool_netlink.h>
#include <linux/genetlink.h>

#include "support/network.h"

namespace net {
namespace {

/// A message that is being written by libmnl.
class Reply {
public:
    Reply()
    {
        m_message = mnl_nlmsg_put_header(m_bytes.data());
        m_message->nlmsg_type = 30;
        auto* header = static_cast<genlmsghdr*>(mnl_nlmsg_put_extra_header(m_message, sizeof(genlmsghdr)));
        header->cmd = ETHTOOL_MSG_STATS_GET_REPLY;
        nlattr* device = mnl_attr_nest_start(m_message, ETHTOOL_A_STATS_HEADER);
        mnl_attr_put_u32(m_message, ETHTOOL_A_HEADER_DEV_INDEX, 7);
        mnl_attr_put_strz(m_message, ETHTOOL_A_HEADER_DEV_NAME, "eth7");
        mnl_attr_nest_end(m_message, device);
    }

    struct Statistic {
        std::uint16_t type;
        std::uint64_t value;
    };
    Reply& Group(std::uint32_t group, const std::vector<Statistic>& statistics)
    {
        nlattr* nest = mnl_attr_nest_start(m_message, ETHTOOL_A_STATS_GRP);
        mnl_attr_put_u32(m_message, ETHTOOL_A_STATS_GRP_ID, group);
        mnl_attr_put_u32(m_message, ETHTOOL_A_STATS_GRP_SS_ID, 17);
        for (const auto& [type, value] : statistics) {
            nlattr* statistic = mnl_attr_nest_start(m_message, ETHTOOL_A_STATS_GRP_STAT);
            mnl_attr_put_u64(m_message, type, value);
            mnl_attr_nest_end(m_message, statistic);
        }
        mnl_attr_nest_end(m_message, nest);
        return *this;
    }
    Reply& Narrow(std::uint32_t group, std::uint16_t type)
    {
        nlattr* nest = mnl_attr_nest_start(m_message, ETHTOOL_A_STATS_GRP);
        mnl_attr_put_u32(m_message, ETHTOOL_A_STATS_GRP_ID, group);
        nlattr* statistic = mnl_attr_nest_start(m_message, ETHTOOL_A_STATS_GRP_STAT);
        mnl_attr_put_u32(m_message, type, 5);
        mnl_attr_nest_end(m_message, statistic);
        mnl_attr_nest_end(m_message, nest);
        return *this;
    }

    [[nodiscard]] const nlmsghdr& Message() const { return *m_message; }

private:
    alignas(nlmsghdr) std::array<char, 2048> m_bytes{};
    nlmsghdr* m_message = nullptr;
};

auto All(const EthernetCounters& counters)
{
    return std::array{counters.alignmentErrors,    counters.fcsErrors,           counters.singleCollisions,
                      counters.multipleCollisions, counters.sqeTestErrors,       counters.deferred,
                      counters.lateCollisions,     counters.excessiveCollisions, counters.macTransmitErrors,
                      counters.carrierSenseErrors, counters.frameTooLongs,       counters.macReceiveErrors,
                      counters.symbolErrors};
}

using Value = std::optional<std::uint64_t>;

TEST(EthernetStats, EachStatisticGoesToItsCounter)
{
    Reply reply;
    reply.Group(ETHTOOL_STATS_ETH_MAC, {{ETHTOOL_A_STATS_ETH_MAC_2_TX_PKT, 100},
                                        {ETHTOOL_A_STATS_ETH_MAC_3_SINGLE_COL, 3},
                                        {ETHTOOL_A_STATS_ETH_MAC_4_MULTI_COL, 4},
                                        {ETHTOOL_A_STATS_ETH_MAC_6_FCS_ERR, 1ULL << 40},
                                        {ETHTOOL_A_STATS_ETH_MAC_7_ALIGN_ERR, 7},
                                        {ETHTOOL_A_STATS_ETH_MAC_9_TX_DEFER, 9},
                                        {ETHTOOL_A_STATS_ETH_MAC_10_LATE_COL, 10},
                                        {ETHTOOL_A_STATS_ETH_MAC_11_XS_COL, 11},
                                        {ETHTOOL_A_STATS_ETH_MAC_12_TX_INT_ERR, 12},
                                        {ETHTOOL_A_STATS_ETH_MAC_13_CS_ERR, 13},
                                        {ETHTOOL_A_STATS_ETH_MAC_15_RX_INT_ERR, 15},
                                        {ETHTOOL_A_STATS_ETH_MAC_25_TOO_LONG_ERR, 25}});
    reply.Group(ETHTOOL_STATS_ETH_PHY, {{ETHTOOL_A_STATS_ETH_PHY_5_SYM_ERR, 5}});
    EXPECT_THAT(
        All(ReadEthernetStats(reply.Message())),
        testing::ElementsAre(Value(7), Value(1ULL << 40), Value(3), Value(4), Value(), Value(9), Value(10),
                             Value(11), Value(12), Value(13), Value(25), Value(15), Value(5)));
}

TEST(EthernetStats, WhatTheDriverDoesNotCountIsAbsent)
{
    Reply reply;
    reply.Group(ETHTOOL_STATS_ETH_PHY, {})
        .Group(ETHTOOL_STATS_ETH_MAC, {{ETHTOOL_A_STATS_ETH_MAC_6_FCS_ERR, 0}});
    const auto counters = ReadEthernetStats(reply.Message());
    EXPECT_EQ(counters.fcsErrors, 0U);
    EXPECT_TRUE(counters.Any());
    EXPECT_EQ(std::ranges::count(All(counters), Value()), 12);
}

TEST(EthernetStats, EmptyGroupsOtherGroupsAndOtherWidthsCountNothing)
{
    Reply reply;
    reply.Group(ETHTOOL_STATS_ETH_PHY, {})
        .Group(ETHTOOL_STATS_ETH_MAC, {{ETHTOOL_A_STATS_ETH_MAC_2_TX_PKT, 8}, {999, 8}})
        .Group(ETHTOOL_STATS_RMON, {{ETHTOOL_A_STATS_ETH_MAC_6_FCS_ERR, 8}})
        .Group(4711, {{ETHTOOL_A_STATS_ETH_PHY_5_SYM_ERR, 8}})
        .Narrow(ETHTOOL_STATS_ETH_MAC, ETHTOOL_A_STATS_ETH_MAC_6_FCS_ERR);
    EXPECT_FALSE(ReadEthernetStats(reply.Message()).Any());
}

TEST(EthernetStats, AMessageThatIsCutAnywhereGivesWhatIsWhole)
{
    Reply reply;
    reply.Group(ETHTOOL_STATS_ETH_MAC, {{ETHTOOL_A_STATS_ETH_MAC_6_FCS_ERR, 6}});
    const std::uint32_t whole = reply.Message().nlmsg_len;
    for (std::uint32_t size = NLMSG_HDRLEN; size < whole; ++size) {
        // A block of its own for each, so that a checker of memory sees what is read behind it.
        const auto bytes = std::make_unique<char[]>(size);
        std::memcpy(bytes.get(), &reply.Message(), size);
        auto* message = reinterpret_cast<nlmsghdr*>(bytes.get());
        message->nlmsg_len = size;
        EXPECT_FALSE(ReadEthernetStats(*message).Any()) << size;
    }
    EXPECT_EQ(ReadEthernetStats(reply.Message()).fcsErrors, 6U);
}

TEST(EthernetStatsRequest, NamesTheInterfaceAndBothGroups)
{
    NetlinkRequest request = MakeEthernetStatsRequest(30, 7);
    const nlmsghdr& message = request.Message();
    EXPECT_EQ(message.nlmsg_type, 30);
    ASSERT_NE(HeaderOf<genlmsghdr>(message), nullptr);
    EXPECT_EQ(HeaderOf<genlmsghdr>(message)->cmd, ETHTOOL_MSG_STATS_GET);
    const auto attributes = ReadAttributes<ETHTOOL_A_STATS_GROUPS + 1>(Payload(message, sizeof(genlmsghdr)));
    const auto device =
        ReadAttributes<ETHTOOL_A_HEADER_DEV_INDEX + 1>(attributes[ETHTOOL_A_STATS_HEADER].Bytes());
    EXPECT_EQ(device[ETHTOOL_A_HEADER_DEV_INDEX].U32(), 7U);
    const auto groups =
        ReadAttributes<ETHTOOL_A_BITSET_VALUE + 1>(attributes[ETHTOOL_A_STATS_GROUPS].Bytes());
    EXPECT_TRUE(groups[ETHTOOL_A_BITSET_NOMASK]);
    EXPECT_EQ(groups[ETHTOOL_A_BITSET_SIZE].U32(), 2U);
    EXPECT_EQ(groups[ETHTOOL_A_BITSET_VALUE].U32(), 3U);
}

class EthernetCountersTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto why = support::Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        m_network.emplace();
        support::Network::Veth("p1", "h1");
        m_index = support::Network::Index("p1");
    }
    std::optional<support::Network> m_network;
    std::uint32_t m_index = 0;
};

TEST_F(EthernetCountersTest, TheKernelTakesTheRequest)
{
    NetlinkSocket socket(NETLINK_GENERIC);
    NetlinkRequest request =
        MakeEthernetStatsRequest(FindGenericFamily(socket, ETHTOOL_GENL_NAME).id, m_index);
    int answers = 0;
    EXPECT_TRUE(socket.Request(request, [&answers](const nlmsghdr& message) {
        ++answers;
        EXPECT_FALSE(ReadEthernetStats(message).Any());
    }));
    EXPECT_EQ(answers, 1);
}

TEST_F(EthernetCountersTest, ADriverThatCountsNothingIsAskedOnceUntilItIsForgotten)
{
    EthernetCountersReader reader;
    EXPECT_FALSE(reader.Read(m_index));
    EXPECT_FALSE(reader.Read(m_index));
    EXPECT_FALSE(reader.Read(m_index));
    EXPECT_EQ(reader.Asked(), 1U);
    reader.Forget(m_index);
    EXPECT_FALSE(reader.Read(m_index));
    EXPECT_EQ(reader.Asked(), 2U);
}

TEST_F(EthernetCountersTest, AnInterfaceThatIsGoneIsNotRememberedForIt)
{
    EthernetCountersReader reader;
    EXPECT_FALSE(reader.Read(4711));
    EXPECT_FALSE(reader.Read(4711));
    EXPECT_EQ(reader.Asked(), 2U);
}

}  // namespace
}  // namespace net
