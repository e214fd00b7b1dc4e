// SPDX-License-Identifier: Apache-2.0
// The kernel's bridge messages, written by the test: so also what the kernel at hand does not send.

#include <cstdint>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>

#include "net/bridges/bridge_message.h"

namespace net {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

NetlinkRequest PortHead(int ifIndex)
{
    NetlinkRequest message(RTM_NEWLINK, 0);
    ifinfomsg header{};
    header.ifi_family = AF_BRIDGE;
    header.ifi_index = ifIndex;
    message.AddHeader(header);
    return message;
}

void AddVlan(NetlinkRequest& message, std::uint16_t type, std::uint16_t vlan, int flags)
{
    const bridge_vlan_info info{static_cast<std::uint16_t>(flags), vlan};
    message.AddBytes(type, {reinterpret_cast<const std::uint8_t*>(&info), sizeof info});
}

TEST(BridgeMessage, APortHasItsStateAndVlans)
{
    NetlinkRequest message = PortHead(5);
    message.AddU32(IFLA_MASTER, 9);
    const auto port = message.BeginNest(IFLA_PROTINFO);
    message.AddU8(IFLA_BRPORT_STATE, BR_STATE_FORWARDING);
    message.AddU8(IFLA_BRPORT_UNICAST_FLOOD, 0);
    message.AddU8(IFLA_BRPORT_ISOLATED, 1);
    message.EndNest(port);
    const auto vlans = message.BeginNest(IFLA_AF_SPEC);
    AddVlan(message, IFLA_BRIDGE_VLAN_INFO, 1, BRIDGE_VLAN_INFO_PVID | BRIDGE_VLAN_INFO_UNTAGGED);
    AddVlan(message, IFLA_BRIDGE_VLAN_INFO, 100, BRIDGE_VLAN_INFO_RANGE_BEGIN);
    AddVlan(message, IFLA_BRIDGE_VLAN_INFO, 199, BRIDGE_VLAN_INFO_RANGE_END);
    AddVlan(message, IFLA_BRIDGE_VLAN_INFO, 0xFFFF, 0);
    message.EndNest(vlans);
    const auto read = ReadPort(message.Message());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->ifIndex, 5U);
    EXPECT_EQ(read->bridge, 9U);
    EXPECT_EQ(read->state,
              (PortState{.forwarding = true, .floodsUnicast = false, .isolated = true, .hairpin = false}));
    EXPECT_THAT(read->vlans, ElementsAre(VlanRange{1, 1, true, true}, VlanRange{100, 199, false, false},
                                         VlanRange{4095, 4095, false, false}));
}

TEST(BridgeMessage, ABridgeIsItsOwnPort)
{
    NetlinkRequest message = PortHead(9);
    message.AddU32(IFLA_MASTER, 9);
    const auto read = ReadPort(message.Message());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->bridge, 9U);
    EXPECT_THAT(read->vlans, IsEmpty());
}

TEST(BridgeMessage, ADeviceThatSpeaksForItselfIsNoPort)
{
    NetlinkRequest message = PortHead(5);
    EXPECT_FALSE(ReadPort(message.Message()));
    message.AddU32(IFLA_MASTER, 9);
    EXPECT_FALSE(ReadPort(message.Message()));
}

TEST(BridgeMessage, VlansComeAndGoByThemselves)
{
    for (const bool removed : {false, true}) {
        NetlinkRequest message(removed ? RTM_DELVLAN : RTM_NEWVLAN, 0);
        br_vlan_msg header{};
        header.family = AF_BRIDGE;
        header.ifindex = 5;
        message.AddHeader(header);
        const auto one = message.BeginNest(BRIDGE_VLANDB_ENTRY);
        AddVlan(message, BRIDGE_VLANDB_ENTRY_INFO, 7, BRIDGE_VLAN_INFO_PVID);
        message.EndNest(one);
        const auto more = message.BeginNest(BRIDGE_VLANDB_ENTRY);
        AddVlan(message, BRIDGE_VLANDB_ENTRY_INFO, 10, BRIDGE_VLAN_INFO_UNTAGGED);
        const std::uint16_t last = 20;
        message.AddBytes(BRIDGE_VLANDB_ENTRY_RANGE,
                         {reinterpret_cast<const std::uint8_t*>(&last), sizeof last});
        message.EndNest(more);
        const auto read = ReadVlans(message.Message());
        ASSERT_TRUE(read);
        EXPECT_EQ(read->ifIndex, 5U);
        EXPECT_EQ(read->removed, removed);
        EXPECT_THAT(read->vlans, ElementsAre(VlanRange{7, 7, true, false}, VlanRange{10, 20, false, true}));
    }
}

struct AddressRow {
    const char* name;
    std::uint8_t family = AF_BRIDGE;
    std::uint16_t state = NUD_REACHABLE;
    std::uint8_t flags = 0;
    std::uint32_t master = 9;
    std::size_t size = 6;
    bool taken = true;
    bool local = false;
};
void PrintTo(const AddressRow& row, std::ostream* out) { *out << row.name; }

class BridgeAddressMessage : public testing::TestWithParam<AddressRow> {};

TEST_P(BridgeAddressMessage, IsTakenFromABridgeOnly)
{
    const AddressRow& row = GetParam();
    NetlinkRequest message(RTM_NEWNEIGH, 0);
    ndmsg header{};
    header.ndm_family = row.family;
    header.ndm_ifindex = 5;
    header.ndm_state = row.state;
    header.ndm_flags = row.flags;
    message.AddHeader(header);
    const std::uint8_t mac[16] = {2, 0, 0, 0, 0, 7};
    message.AddBytes(NDA_LLADDR, {mac, row.size});
    if (row.master != 0) message.AddU32(NDA_MASTER, row.master);
    const std::uint16_t vlan = 12;
    message.AddBytes(NDA_VLAN, {reinterpret_cast<const std::uint8_t*>(&vlan), sizeof vlan});
    const auto read = ReadAddress(message.Message());
    ASSERT_EQ(read.has_value(), row.taken);
    if (!read) return;
    EXPECT_EQ(read->bridge, 9U);
    EXPECT_EQ(read->vlan, 12);
    EXPECT_EQ(read->mac, (MacAddress{2, 0, 0, 0, 0, 7}));
    EXPECT_EQ(read->address.port, 5U);
    EXPECT_EQ(read->address.local, row.local);
    EXPECT_FALSE(read->removed);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, BridgeAddressMessage,
    testing::Values(AddressRow{.name = "learned"}, AddressRow{.name = "fixed", .state = NUD_NOARP},
                    AddressRow{.name = "local", .state = NUD_PERMANENT, .local = true},
                    AddressRow{.name = "of_a_device_itself", .flags = NTF_SELF, .taken = false},
                    AddressRow{.name = "of_no_bridge", .master = 0, .taken = false},
                    AddressRow{.name = "not_ethernet", .size = 16, .taken = false},
                    AddressRow{.name = "of_ip", .family = AF_INET, .taken = false}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace net
