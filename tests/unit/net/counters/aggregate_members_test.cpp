// SPDX-License-Identifier: Apache-2.0
// The members of bonds and teams: the kernel's messages, made here attribute by attribute as linux/if_link.h
// and linux/if_bonding.h have them, cut anywhere; and live bonds that run LACP with each other, where the
// kernel has bonds. Which counter is which: sflow.org, sflow_lag.txt, and IEEE8023-LAG-MIB.

#include "net/counters/aggregate_members.h"

#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <linux/if_bonding.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include "support/network.h"
#include "support/poll.h"

namespace net {
namespace {

using support::Network;

constexpr MacAddress kOwn{2, 0, 0, 0, 0, 1};
constexpr MacAddress kConfigured{2, 0, 0, 0, 0, 2};
constexpr MacAddress kPartner{2, 0, 0, 0, 0, 3};

template <typename Number>
void AddNumber(NetlinkRequest& message, std::uint16_t type, Number number)
{
    message.AddBytes(type, {reinterpret_cast<const std::uint8_t*>(&number), sizeof number});
}

NetlinkRequest LinkHead(std::uint32_t ifIndex)
{
    NetlinkRequest message(RTM_NEWLINK, 0);
    ifinfomsg header{};
    header.ifi_index = static_cast<int>(ifIndex);
    message.AddHeader(header);
    message.AddText(IFLA_IFNAME, "eth7");
    message.AddBytes(IFLA_ADDRESS, kOwn);
    return message;
}

/// A bond as the kernel describes one of that mode; the configured system and the active aggregator are there
/// where it runs LACP.
NetlinkRequest BondLink(std::uint8_t mode, std::optional<MacAddress> configured)
{
    NetlinkRequest message = LinkHead(4);
    const std::size_t info = message.BeginNest(IFLA_LINKINFO);
    message.AddText(IFLA_INFO_KIND, "bond");
    const std::size_t data = message.BeginNest(IFLA_INFO_DATA);
    message.AddU8(IFLA_BOND_MODE, mode);
    message.AddU32(IFLA_BOND_MIIMON, 100);
    if (configured) message.AddBytes(IFLA_BOND_AD_ACTOR_SYSTEM, *configured);
    const std::size_t active = message.BeginNest(IFLA_BOND_AD_INFO);
    AddNumber<std::uint16_t>(message, IFLA_BOND_AD_INFO_AGGREGATOR, 2);
    AddNumber<std::uint16_t>(message, IFLA_BOND_AD_INFO_NUM_PORTS, 2);
    AddNumber<std::uint16_t>(message, IFLA_BOND_AD_INFO_ACTOR_KEY, 15);
    AddNumber<std::uint16_t>(message, IFLA_BOND_AD_INFO_PARTNER_KEY, 16);
    message.AddBytes(IFLA_BOND_AD_INFO_PARTNER_MAC, kPartner);
    message.EndNest(active);
    message.EndNest(data);
    message.EndNest(info);
    return message;
}

/// A member of link 4.
NetlinkRequest MemberMessage(const char* kind)
{
    NetlinkRequest message = LinkHead(7);
    message.AddU32(IFLA_MASTER, 4);
    const std::size_t info = message.BeginNest(IFLA_LINKINFO);
    message.AddText(IFLA_INFO_SLAVE_KIND, kind);
    const std::size_t data = message.BeginNest(IFLA_INFO_SLAVE_DATA);
    message.AddU8(IFLA_BOND_SLAVE_STATE, BOND_STATE_ACTIVE);
    message.AddU8(IFLA_BOND_SLAVE_MII_STATUS, BOND_LINK_UP);
    message.AddU32(IFLA_BOND_SLAVE_LINK_FAILURE_COUNT, 0);
    message.AddBytes(IFLA_BOND_SLAVE_PERM_HWADDR, kOwn);
    AddNumber<std::uint16_t>(message, IFLA_BOND_SLAVE_AD_AGGREGATOR_ID, 2);
    message.AddU8(IFLA_BOND_SLAVE_AD_ACTOR_OPER_PORT_STATE, 0x3D);
    AddNumber<std::uint16_t>(message, IFLA_BOND_SLAVE_AD_PARTNER_OPER_PORT_STATE, 0x3F);
    message.EndNest(data);
    message.EndNest(info);
    return message;
}

struct Statistic {
    std::uint16_t type;
    std::uint64_t value;
};

NetlinkRequest CountsMessage(const std::vector<Statistic>& statistics,
                             std::uint16_t attribute = IFLA_STATS_LINK_XSTATS_SLAVE,
                             std::uint16_t kind = LINK_XSTATS_TYPE_BOND)
{
    NetlinkRequest message(RTM_NEWSTATS, 0);
    if_stats_msg header{};
    header.ifindex = 7;
    header.filter_mask = IFLA_STATS_FILTER_BIT(IFLA_STATS_LINK_XSTATS_SLAVE);
    message.AddHeader(header);
    const std::size_t slave = message.BeginNest(attribute);
    const std::size_t bond = message.BeginNest(kind);
    const std::size_t lacp = message.BeginNest(BOND_XSTATS_3AD);
    for (const auto& [type, value] : statistics) AddNumber(message, type, value);
    message.EndNest(lacp);
    message.EndNest(bond);
    message.EndNest(slave);
    return message;
}

AggregateMember Counts(NetlinkRequest message)
{
    AggregateMember member;
    ReadLacpCounts(message.Message(), member);
    return member;
}

TEST(AggregateMemberMessage, AMemberOfABondHasItsAggregatorAndBothStates)
{
    EXPECT_EQ(ReadMemberLink(MemberMessage("bond").Message()), (MemberLink{4, 2, 0x3D, 0x3F}));
}

TEST(AggregateMemberMessage, OfATeamsMemberOnlyTheTeamIsKnown)
{
    EXPECT_EQ(ReadMemberLink(MemberMessage("team").Message()), (MemberLink{4, 0, 0, 0}));
}

TEST(AggregateMemberMessage, PortsOfOtherMastersAndLinksWithoutOneAreNoMembers)
{
    EXPECT_EQ(ReadMemberLink(MemberMessage("bridge").Message()), std::nullopt);
    EXPECT_EQ(ReadMemberLink(LinkHead(7).Message()), std::nullopt);
    EXPECT_EQ(ReadMemberLink(BondLink(BOND_MODE_8023AD, {}).Message()), std::nullopt);
    EXPECT_EQ(ReadMemberLink(CountsMessage({}).Message()), std::nullopt);
}

TEST(AggregateMemberMessage, ABondsSystemIsTheConfiguredOneOrItsOwnAddress)
{
    const auto read = [](std::optional<MacAddress> configured) {
        return ReadAggregateLink(BondLink(BOND_MODE_8023AD, configured).Message());
    };
    EXPECT_EQ(read(kConfigured), (AggregateLink{kConfigured, true, 2, kPartner}));
    EXPECT_EQ(read(MacAddress{}), (AggregateLink{kOwn, true, 2, kPartner})) << "none is configured";
    EXPECT_EQ(read(std::nullopt), (AggregateLink{kOwn, true, 2, kPartner})) << "the kernel does not tell";
}

TEST(AggregateMemberMessage, ABondOfAnotherModeAndATeamRunNoLacp)
{
    EXPECT_EQ(ReadAggregateLink(BondLink(BOND_MODE_ACTIVEBACKUP, kConfigured).Message()),
              (AggregateLink{kOwn, false, 0, {}}));
    NetlinkRequest team = LinkHead(4);
    const std::size_t info = team.BeginNest(IFLA_LINKINFO);
    team.AddText(IFLA_INFO_KIND, "team");
    team.EndNest(info);
    EXPECT_EQ(ReadAggregateLink(team.Message()), (AggregateLink{kOwn, false, 0, {}}));
    EXPECT_EQ(ReadAggregateLink(LinkHead(4).Message()), std::nullopt);
    EXPECT_EQ(ReadAggregateLink(MemberMessage("bond").Message()), std::nullopt);
}

TEST(AggregateMemberMessage, EachStatisticGoesToItsCount)
{
    const AggregateMember expected{.lacpdusIn = 1ULL << 40,
                                   .markersIn = 2,
                                   .markerResponsesIn = 3,
                                   .unknownIn = 44,
                                   .illegalIn = 5,
                                   .lacpdusOut = 6,
                                   .markersOut = 7,
                                   .markerResponsesOut = 8};
    EXPECT_EQ(Counts(CountsMessage({{BOND_3AD_STAT_LACPDU_RX, 1ULL << 40},
                                    {BOND_3AD_STAT_LACPDU_TX, 6},
                                    {BOND_3AD_STAT_LACPDU_UNKNOWN_RX, 4},
                                    {BOND_3AD_STAT_LACPDU_ILLEGAL_RX, 5},
                                    {BOND_3AD_STAT_MARKER_RX, 2},
                                    {BOND_3AD_STAT_MARKER_TX, 7},
                                    {BOND_3AD_STAT_MARKER_RESP_RX, 3},
                                    {BOND_3AD_STAT_MARKER_RESP_TX, 8},
                                    {BOND_3AD_STAT_MARKER_UNKNOWN_RX, 40}})),
              expected);
}

TEST(AggregateMemberMessage, WhatIsNotToldIsAbsent)
{
    EXPECT_EQ(Counts(CountsMessage({{BOND_3AD_STAT_LACPDU_RX, 0}})), (AggregateMember{.lacpdusIn = 0}));
    EXPECT_EQ(Counts(CountsMessage({{999, 1}})), AggregateMember{});
    EXPECT_EQ(Counts(CountsMessage({{BOND_3AD_STAT_LACPDU_RX, 1}}, IFLA_STATS_LINK_XSTATS)),
              AggregateMember{})
        << "those of the bond as a whole";
    EXPECT_EQ(Counts(CountsMessage({{BOND_3AD_STAT_LACPDU_RX, 1}}, IFLA_STATS_LINK_XSTATS_SLAVE,
                                   LINK_XSTATS_TYPE_BRIDGE)),
              AggregateMember{});
    EXPECT_EQ(Counts(MemberMessage("bond")), AggregateMember{});
}

/// Calls the function with each beginning of the message, in memory of exactly that size, so that a checker
/// sees what is read behind it.
template <typename Function>
void ForEachBeginning(NetlinkRequest request, Function function)
{
    const nlmsghdr& whole = request.Message();
    for (std::uint32_t size = NLMSG_HDRLEN; size < whole.nlmsg_len; ++size) {
        const auto bytes = std::make_unique<char[]>(size);
        std::memcpy(bytes.get(), &whole, size);
        auto* message = reinterpret_cast<nlmsghdr*>(bytes.get());
        message->nlmsg_len = size;
        function(*message);
    }
}

TEST(AggregateMemberMessage, AMessageThatIsCutAnywhereSaysNothingWrong)
{
    ForEachBeginning(MemberMessage("bond"),
                     [](const nlmsghdr& cut) { EXPECT_EQ(ReadMemberLink(cut), std::nullopt); });
    ForEachBeginning(BondLink(BOND_MODE_8023AD, kConfigured),
                     [](const nlmsghdr& cut) { EXPECT_EQ(ReadAggregateLink(cut), std::nullopt); });
    ForEachBeginning(CountsMessage({{BOND_3AD_STAT_LACPDU_RX, 1}}), [](const nlmsghdr& cut) {
        AggregateMember member;
        ReadLacpCounts(cut, member);
        EXPECT_EQ(member, AggregateMember{});
    });
}

TEST(AggregateMemberMade, ThePartnerIsThatOfTheActiveAggregatorOnly)
{
    const AggregateLink bond{kOwn, true, 2, kPartner};
    EXPECT_EQ(MakeMember({4, 2, 0x3D, 0x3F}, bond), (AggregateMember{.aggregate = 4,
                                                                     .actorSystem = kOwn,
                                                                     .partnerSystem = kPartner,
                                                                     .actorState = 0x3D,
                                                                     .partnerState = 0x3F}));
    EXPECT_EQ(MakeMember({4, 1, 0x45, 0x02}, bond), (AggregateMember{.aggregate = 4,
                                                                     .actorSystem = kOwn,
                                                                     .partnerSystem = {},
                                                                     .actorState = 0x45,
                                                                     .partnerState = 2}));
    EXPECT_EQ(MakeMember({4, 0, 0, 0}, {kOwn, true, 0, kPartner}).partnerSystem, MacAddress{});
}

TEST(AggregateMemberMade, WithoutLacpOnlyTheAggregateIsKnown)
{
    EXPECT_EQ(MakeMember({4, 2, 0x3D, 0x3F}, {kOwn, false, 0, {}}),
              (AggregateMember{.aggregate = 4, .actorSystem = kOwn}));
}

/// Answers with what is told of links 4 (a bond or team) and 7 and 8 (members), and keeps what was asked.
struct Kernel {
    explicit Kernel(std::uint8_t mode) : bondMode(mode) {}

    void operator()(NetlinkRequest& request, const NetlinkSocket::OnMessage& answer)
    {
        const nlmsghdr& message = request.Message();
        if (message.nlmsg_type == RTM_GETSTATS) {
            const auto* header = HeaderOf<if_stats_msg>(message);
            ASSERT_NE(header, nullptr);
            EXPECT_EQ(header->filter_mask, IFLA_STATS_FILTER_BIT(IFLA_STATS_LINK_XSTATS_SLAVE));
            EXPECT_EQ(message.nlmsg_flags & NLM_F_DUMP, 0);
            asked.push_back("counts " + std::to_string(header->ifindex));
            if (!counts) throw std::system_error(EOPNOTSUPP, std::system_category());
            answer(CountsMessage({{BOND_3AD_STAT_LACPDU_RX, header->ifindex}}).Message());
            return;
        }
        ASSERT_EQ(message.nlmsg_type, RTM_GETLINK);
        const auto* header = HeaderOf<ifinfomsg>(message);
        ASSERT_NE(header, nullptr);
        EXPECT_EQ(message.nlmsg_flags & NLM_F_DUMP, 0);
        const auto attributes = ReadAttributes<IFLA_EXT_MASK + 1>(Payload(message, sizeof *header));
        EXPECT_EQ(attributes[IFLA_EXT_MASK].U32(), RTEXT_FILTER_SKIP_STATS);
        asked.push_back("link " + std::to_string(header->ifi_index));
        if (header->ifi_index == gone) throw std::system_error(ENODEV, std::system_category());
        if (header->ifi_index == 4)
            answer(BondLink(bondMode, kConfigured).Message());
        else
            answer(MemberMessage("bond").Message());
    }
    std::uint8_t bondMode;
    bool counts = true;
    int gone = 0;
    std::vector<std::string> asked;
};

using testing::ElementsAre;

TEST(AggregateMembersAsked, EachMemberAndOnceTheirBond)
{
    Kernel kernel(BOND_MODE_8023AD);
    AggregateMembers members(std::ref(kernel));
    const AggregateMember expected{.aggregate = 4,
                                   .actorSystem = kConfigured,
                                   .partnerSystem = kPartner,
                                   .actorState = 0x3D,
                                   .partnerState = 0x3F,
                                   .lacpdusIn = 7};
    EXPECT_EQ(members.Read(7), expected);
    EXPECT_EQ(members.Read(8).value_or(AggregateMember{}).lacpdusIn, 8U);
    EXPECT_THAT(kernel.asked, ElementsAre("link 7", "link 4", "counts 7", "link 8", "counts 8"));
    kernel.asked.clear();
    members.Refresh();
    EXPECT_EQ(members.Read(7), expected);
    EXPECT_THAT(kernel.asked, ElementsAre("link 7", "link 4", "counts 7"));
}

TEST(AggregateMembersAsked, WithoutLacpForNoCounts)
{
    Kernel kernel(BOND_MODE_XOR);
    AggregateMembers members(std::ref(kernel));
    EXPECT_EQ(members.Read(7), (AggregateMember{.aggregate = 4, .actorSystem = kOwn}));
    EXPECT_THAT(kernel.asked, ElementsAre("link 7", "link 4"));
}

TEST(AggregateMembersAsked, AKernelWithoutTheCountsLeavesThemOut)
{
    Kernel kernel(BOND_MODE_8023AD);
    kernel.counts = false;
    const auto member = AggregateMembers(std::ref(kernel)).Read(7);
    ASSERT_TRUE(member);
    EXPECT_EQ(member->actorState, 0x3D);
    EXPECT_EQ(member->lacpdusIn, std::nullopt);
}

TEST(AggregateMembersAsked, AMemberOrABondThatHasGoneMeanwhileIsNone)
{
    Kernel kernel(BOND_MODE_8023AD);
    AggregateMembers members(std::ref(kernel));
    kernel.gone = 7;
    EXPECT_EQ(members.Read(7), std::nullopt);
    kernel.gone = 4;
    EXPECT_EQ(members.Read(7), std::nullopt);
    EXPECT_EQ(members.Read(8), std::nullopt);
    EXPECT_THAT(kernel.asked, ElementsAre("link 7", "link 7", "link 4", "link 8")) << "it is remembered";
}

class AggregateMembersTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        m_network.emplace();
        Network::Veth("m1", "n1");
        Network::Veth("m2", "n2");
    }

    /// Two members each, over the two cables. Skips where the kernel has no bonds.
    void MakeBonds(const std::string& options)
    {
        try {
            Network::Ip("link add one type bond " + options + "\nlink add two type bond " + options);
        } catch (const std::runtime_error& error) {
            GTEST_SKIP() << "this kernel has no bonds: " << error.what();
        }
        for (const auto& [member, bond] :
             {std::pair{"m1", "one"}, {"m2", "one"}, {"n1", "two"}, {"n2", "two"}})
            Network::Ip(std::string("link set ") + member + " down\nlink set " + member + " master " + bond);
        Network::Ip("link set one up\nlink set two up");
    }

    std::optional<Network> m_network;
};

MacAddress AddressOf(const std::string& device)
{
    NetlinkSocket socket(NETLINK_ROUTE);
    NetlinkRequest request(RTM_GETLINK, 0);
    ifinfomsg header{};
    header.ifi_index = static_cast<int>(Network::Index(device));
    request.AddHeader(header);
    std::optional<AggregateLink> link;
    socket.Request(request, [&link](const nlmsghdr& message) { link = ReadAggregateLink(message); });
    return link.value().system;
}

TEST_F(AggregateMembersTest, AnInterfaceThatIsNoMemberOrIsGoneIsNone)
{
    AggregateMembers members;
    EXPECT_EQ(members.Read(Network::Index("m1")), std::nullopt);
    EXPECT_EQ(members.Read(4711), std::nullopt);
    Network::MakeBridge("br0", {"m1"});
    EXPECT_EQ(members.Read(Network::Index("m1")), std::nullopt);
}

// The kernel answers the question about counts for a bridge's port, too, and with a bridge's counts.
TEST_F(AggregateMembersTest, TheKernelTakesTheQuestionAboutCountsAndABridgesAreNotTakenForABonds)
{
    Network::MakeBridge("br0", {"m1"});
    const auto port = Network::Index("m1");
    NetlinkSocket socket(NETLINK_ROUTE);
    Kernel links(BOND_MODE_8023AD);
    int answers = 0;
    AggregateMembers members([&](NetlinkRequest& request, const NetlinkSocket::OnMessage& answer) {
        if (request.Message().nlmsg_type != RTM_GETSTATS) return links(request, answer);
        socket.Request(request, [&](const nlmsghdr& message) {
            ++answers;
            const auto attributes =
                ReadAttributes<IFLA_STATS_LINK_XSTATS_SLAVE + 1>(Payload(message, sizeof(if_stats_msg)));
            EXPECT_TRUE(attributes[IFLA_STATS_LINK_XSTATS_SLAVE]);
            answer(message);
        });
    });
    const auto member = members.Read(port);
    EXPECT_EQ(answers, 1);
    ASSERT_TRUE(member);
    EXPECT_EQ(member->lacpdusIn, std::nullopt);
    EXPECT_EQ(member->unknownIn, std::nullopt);
}

TEST_F(AggregateMembersTest, BondsThatRunLacpWithEachOtherAreEachOthersPartner)
{
    MakeBonds("mode 802.3ad lacp_rate fast miimon 50");
    if (IsSkipped()) return;
    constexpr std::uint8_t kCollectingAndDistributing = 0x30;
    AggregateMembers members;
    AggregateMember member;
    const bool runs = support::Becomes([&] {
        members.Refresh();
        member = members.Read(Network::Index("m1")).value_or(AggregateMember{});
        return member.partnerSystem == AddressOf("two") &&
               (member.actorState & kCollectingAndDistributing) == kCollectingAndDistributing &&
               (member.partnerState & kCollectingAndDistributing) == kCollectingAndDistributing;
    });
    EXPECT_TRUE(runs);
    EXPECT_EQ(member.aggregate, Network::Index("one"));
    EXPECT_EQ(member.actorSystem, AddressOf("one"));
    EXPECT_GT(member.lacpdusIn, 0U);
    EXPECT_GT(member.lacpdusOut, 0U);
    EXPECT_EQ(member.illegalIn, 0U);
    EXPECT_TRUE(member.markersIn && member.markerResponsesIn && member.unknownIn && member.markersOut &&
                member.markerResponsesOut);

    Network::Ip("link set m1 nomaster");
    EXPECT_EQ(members.Read(Network::Index("m1")), std::nullopt);
}

TEST_F(AggregateMembersTest, ABondWithoutLacpTellsItsMembersTheAggregateOnly)
{
    MakeBonds("mode balance-xor miimon 50");
    if (IsSkipped()) return;
    AggregateMembers members;
    EXPECT_EQ(members.Read(Network::Index("m2")),
              (AggregateMember{.aggregate = Network::Index("one"), .actorSystem = AddressOf("one")}));
}

}  // namespace
}  // namespace net
