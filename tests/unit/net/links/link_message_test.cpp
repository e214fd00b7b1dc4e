// SPDX-License-Identifier: Apache-2.0
// Link messages made by hand: what a kernel rarely says, or this machine's kernel does not.

#include "net/links/link_message.h"

#include <gtest/gtest.h>

#include <linux/if_link.h>
#include <linux/rtnetlink.h>

namespace net {
namespace {

/// What the kernel tells of a VLAN device; `foreign` where the device below it is in another namespace.
NetlinkRequest VlanDevice(std::uint32_t lower, std::uint16_t vlan, bool foreign)
{
    NetlinkRequest message(RTM_NEWLINK, 0);
    ifinfomsg header{};
    header.ifi_index = 9;
    message.AddHeader(header);
    message.AddText(IFLA_IFNAME, "v0.5");
    message.AddU32(IFLA_LINK, lower);
    if (foreign) message.AddU32(IFLA_LINK_NETNSID, 0);
    const std::size_t info = message.BeginNest(IFLA_LINKINFO);
    message.AddText(IFLA_INFO_KIND, "vlan");
    const std::size_t data = message.BeginNest(IFLA_INFO_DATA);
    message.AddBytes(IFLA_VLAN_ID, {reinterpret_cast<const std::uint8_t*>(&vlan), sizeof vlan});
    message.EndNest(data);
    message.EndNest(info);
    return message;
}

/// What the kernel tells of a link with a master of that kind.
NetlinkRequest Member(const char* kind, std::uint32_t master)
{
    NetlinkRequest message(RTM_NEWLINK, 0);
    ifinfomsg header{};
    header.ifi_index = 9;
    message.AddHeader(header);
    message.AddText(IFLA_IFNAME, "eth9");
    message.AddU32(IFLA_MASTER, master);
    const std::size_t info = message.BeginNest(IFLA_LINKINFO);
    message.AddText(IFLA_INFO_SLAVE_KIND, kind);
    message.EndNest(info);
    return message;
}

TEST(LinkMessage, TheMasterIsABridgeAnAggregateAVrfOrUnknown)
{
    const auto read = [](const char* kind) { return ReadLink(Member(kind, 4).Message()).value(); };
    EXPECT_EQ(read("bond").link.aggregate, 4U);
    EXPECT_EQ(read("team").link.aggregate, 4U);
    EXPECT_EQ(read("bond").link.master, 0U);
    EXPECT_FALSE(read("bond").placement.foreignMaster);
    EXPECT_EQ(read("bridge").link.master, 4U);
    EXPECT_EQ(read("bridge").link.aggregate, 0U);
    EXPECT_EQ(read("vrf").placement.vrf, 4U);
    EXPECT_EQ(read("hsr").link.aggregate, 0U);
    EXPECT_TRUE(read("hsr").placement.foreignMaster);
}

TEST(LinkMessage, AVlanDeviceStandsOnAnother)
{
    NetlinkRequest message = VlanDevice(4, 5, false);
    const auto read = ReadLink(message.Message());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->link.name, "v0.5");
    EXPECT_EQ(read->placement.vlanLower, 4U);
    EXPECT_EQ(read->placement.vlanId, 5U);
}

TEST(LinkMessage, AnIndexOfAnotherNamespaceIsNoDeviceOfThisOne)
{
    NetlinkRequest message = VlanDevice(4, 5, true);
    const auto read = ReadLink(message.Message());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->placement.vlanLower, 0U);
    EXPECT_EQ(read->placement.vlanId, 5U);
}

}  // namespace
}  // namespace net
