// SPDX-License-Identifier: Apache-2.0
#include "net/bridges/bridge_message.h"

#include <algorithm>
#include <cstring>

#include <sys/socket.h>

#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>

#include "net/links/link_message.h"

namespace net {
namespace {

constexpr std::uint16_t kVlanEnd = 4095;

VlanRange Range(std::uint16_t first, std::uint16_t last, std::uint16_t flags)
{
    return {std::min(first, kVlanEnd), std::min(last, kVlanEnd), (flags & BRIDGE_VLAN_INFO_PVID) != 0,
            (flags & BRIDGE_VLAN_INFO_UNTAGGED) != 0};
}

PortState ReadState(Attribute protocolInfo)
{
    const auto port = ReadAttributes<IFLA_BRPORT_ISOLATED + 1>(protocolInfo.Bytes());
    const auto unlessOff = [&port](std::size_t type) { return !port[type] || port[type].U8() != 0; };
    PortState state;
    state.forwarding = port[IFLA_BRPORT_STATE].U8() == BR_STATE_FORWARDING;
    state.floodsUnicast = unlessOff(IFLA_BRPORT_UNICAST_FLOOD);
    state.floodsMulticast = unlessOff(IFLA_BRPORT_MCAST_FLOOD);
    state.floodsBroadcast = unlessOff(IFLA_BRPORT_BCAST_FLOOD);
    state.isolated = port[IFLA_BRPORT_ISOLATED].U8() != 0;
    state.hairpin = port[IFLA_BRPORT_MODE].U8() != 0;
    return state;
}

// A range comes as two entries, the first and the last VLAN.
std::vector<VlanRange> ReadCompressed(Attribute familyInfo)
{
    std::vector<VlanRange> vlans;
    std::uint16_t first = 0;
    ForEachAttribute(familyInfo.Bytes(), [&](Attribute attribute) {
        const auto bytes = attribute.Bytes();
        bridge_vlan_info info{};
        if (attribute.Type() != IFLA_BRIDGE_VLAN_INFO || bytes.size() < sizeof info) return;
        std::memcpy(&info, bytes.data(), sizeof info);
        if ((info.flags & BRIDGE_VLAN_INFO_RANGE_BEGIN) != 0) {
            first = info.vid;
            return;
        }
        const bool ends = (info.flags & BRIDGE_VLAN_INFO_RANGE_END) != 0;
        vlans.push_back(Range(ends ? first : info.vid, info.vid, info.flags));
    });
    return vlans;
}

}  // namespace

std::optional<PortMessage> ReadPort(const nlmsghdr& message)
{
    PortMessage read;
    read.ifIndex = LinkIndex(message, AF_BRIDGE);
    if (read.ifIndex == 0 || message.nlmsg_type != RTM_NEWLINK) return std::nullopt;
    const auto attributes = ReadAttributes<IFLA_AF_SPEC + 1>(Payload(message, sizeof(ifinfomsg)));
    read.bridge = attributes[IFLA_MASTER].U32();
    // Devices with an embedded switch answer for themselves too, without these attributes.
    if (read.bridge == 0 || (read.bridge != read.ifIndex && !attributes[IFLA_PROTINFO])) return std::nullopt;
    read.state = ReadState(attributes[IFLA_PROTINFO]);
    read.vlans = ReadCompressed(attributes[IFLA_AF_SPEC]);
    return read;
}

std::optional<VlanMessage> ReadVlans(const nlmsghdr& message)
{
    if (message.nlmsg_type != RTM_NEWVLAN && message.nlmsg_type != RTM_DELVLAN) return std::nullopt;
    const auto* header = HeaderOf<br_vlan_msg>(message);
    if (header == nullptr || header->ifindex == 0) return std::nullopt;
    VlanMessage read;
    read.ifIndex = header->ifindex;
    read.removed = message.nlmsg_type == RTM_DELVLAN;
    ForEachAttribute(Payload(message, sizeof *header), [&read](Attribute entry) {
        if (entry.Type() != BRIDGE_VLANDB_ENTRY) return;
        const auto attributes = ReadAttributes<BRIDGE_VLANDB_ENTRY_RANGE + 1>(entry.Bytes());
        const auto bytes = attributes[BRIDGE_VLANDB_ENTRY_INFO].Bytes();
        bridge_vlan_info info{};
        if (bytes.size() < sizeof info) return;
        std::memcpy(&info, bytes.data(), sizeof info);
        const Attribute last = attributes[BRIDGE_VLANDB_ENTRY_RANGE];
        read.vlans.push_back(Range(info.vid, last ? last.U16() : info.vid, info.flags));
    });
    return read;
}

std::optional<AddressMessage> ReadAddress(const nlmsghdr& message)
{
    if (message.nlmsg_type != RTM_NEWNEIGH && message.nlmsg_type != RTM_DELNEIGH) return std::nullopt;
    const auto* header = HeaderOf<ndmsg>(message);
    if (header == nullptr || header->ndm_family != AF_BRIDGE || header->ndm_ifindex <= 0 ||
        (header->ndm_flags & NTF_SELF) != 0)
        return std::nullopt;
    const auto attributes = ReadAttributes<NDA_MASTER + 1>(Payload(message, sizeof *header));
    AddressMessage read;
    const auto mac = attributes[NDA_LLADDR].Bytes();
    if (mac.size() != read.mac.size() || !attributes[NDA_MASTER]) return std::nullopt;
    std::copy(mac.begin(), mac.end(), read.mac.begin());
    read.bridge = attributes[NDA_MASTER].U32();
    read.removed = message.nlmsg_type == RTM_DELNEIGH;
    read.vlan = attributes[NDA_VLAN].U16();
    read.address.port = static_cast<std::uint32_t>(header->ndm_ifindex);
    read.address.local = (header->ndm_state & NUD_PERMANENT) != 0;
    return read;
}

NetlinkRequest PortDump()
{
    NetlinkRequest request(RTM_GETLINK, NLM_F_DUMP);
    ifinfomsg header{};
    header.ifi_family = AF_BRIDGE;
    request.AddHeader(header);
    request.AddU32(IFLA_EXT_MASK, RTEXT_FILTER_BRVLAN_COMPRESSED);
    return request;
}

NetlinkRequest AddressDump()
{
    NetlinkRequest request(RTM_GETNEIGH, NLM_F_DUMP);
    ndmsg header{};
    header.ndm_family = AF_BRIDGE;
    request.AddHeader(header);
    return request;
}

}  // namespace net
