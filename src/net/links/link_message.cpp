// SPDX-License-Identifier: Apache-2.0
#include "net/links/link_message.h"

#include <arpa/inet.h>

#include <algorithm>

#include <net/if.h>
#include <net/if_arp.h>
#include <sys/socket.h>

#include <linux/if_link.h>
#include <linux/rtnetlink.h>

namespace net {
namespace {

// IF_OPER_* of RFC 2863 as linux/if.h has them; that header conflicts with net/if.h.
constexpr std::uint8_t kOperUnknown = 0;
constexpr std::uint8_t kOperUp = 6;

void ReadKind(Attribute linkInfo, LinkMessage& read, std::uint32_t lower)
{
    const auto info = ReadAttributes<IFLA_INFO_SLAVE_KIND + 1>(linkInfo.Bytes());
    const auto kind = info[IFLA_INFO_KIND].Text();
    read.link.kind = kind;
    if (kind == "bridge") {
        const auto bridge = ReadAttributes<IFLA_BR_MCAST_SNOOPING + 1>(info[IFLA_INFO_DATA].Bytes());
        read.link.vlanFiltering = bridge[IFLA_BR_VLAN_FILTERING].U8() != 0;
        read.placement.spanningTree = bridge[IFLA_BR_STP_STATE].U32() != 0;
        read.placement.multicastSnooping = bridge[IFLA_BR_MCAST_SNOOPING].U8() != 0;
    } else if (kind == "vlan") {
        const auto vlan = ReadAttributes<IFLA_VLAN_PROTOCOL + 1>(info[IFLA_INFO_DATA].Bytes());
        read.placement.vlanLower = lower;
        read.placement.vlanId = vlan[IFLA_VLAN_ID].U16();
        // Kernels before 3.10 have no other.
        const auto protocol = vlan[IFLA_VLAN_PROTOCOL];
        read.placement.vlanProtocol = protocol ? ntohs(protocol.U16()) : std::uint16_t{0x8100};
    } else if (kind == "macvlan") {
        read.placement.macvlanLower = lower;
    }
}

void ReadMaster(Attribute linkInfo, LinkMessage& read, std::uint32_t master)
{
    if (master == 0) return;
    const auto info = ReadAttributes<IFLA_INFO_SLAVE_KIND + 1>(linkInfo.Bytes());
    const auto kind = info[IFLA_INFO_SLAVE_KIND].Text();
    if (kind == "bridge") {
        read.link.master = master;
    } else if (kind == "bond" || kind == "team") {
        read.link.aggregate = master;
    } else if (kind == "vrf") {
        read.placement.vrf = master;
    } else {
        read.placement.foreignMaster = true;
    }
}

}  // namespace

std::uint32_t LinkIndex(const nlmsghdr& message, std::uint8_t family)
{
    if (message.nlmsg_type != RTM_NEWLINK && message.nlmsg_type != RTM_DELLINK) return 0;
    const auto* header = HeaderOf<ifinfomsg>(message);
    if (header == nullptr || header->ifi_family != family || header->ifi_index <= 0) return 0;
    return static_cast<std::uint32_t>(header->ifi_index);
}

std::optional<LinkMessage> ReadLink(const nlmsghdr& message)
{
    const std::uint32_t index = LinkIndex(message, AF_UNSPEC);
    if (index == 0 || message.nlmsg_type != RTM_NEWLINK) return std::nullopt;
    const auto& header = *HeaderOf<ifinfomsg>(message);
    const auto attributes = ReadAttributes<IFLA_PROP_LIST + 1>(Payload(message, sizeof header));
    // A wireless driver's event has only the name and that event.
    if (!attributes[IFLA_IFNAME] || attributes[IFLA_WIRELESS]) return std::nullopt;

    LinkMessage read;
    Link& link = read.link;
    link.index = index;
    link.name = attributes[IFLA_IFNAME].Text();
    link.alias = attributes[IFLA_IFALIAS].Text();
    ForEachAttribute(attributes[IFLA_PROP_LIST].Bytes(), [&link](Attribute property) {
        if (property.Type() == IFLA_ALT_IFNAME) link.altNames.emplace_back(property.Text());
    });
    link.hardwareType = header.ifi_type;
    link.up = (header.ifi_flags & IFF_UP) != 0;
    const std::uint8_t state = attributes[IFLA_OPERSTATE].U8();
    link.running =
        state == kOperUp || (state == kOperUnknown && link.up && attributes[IFLA_CARRIER].U8() != 0);
    link.promiscuous = attributes[IFLA_PROMISCUITY].U32() != 0 || (header.ifi_flags & IFF_PROMISC) != 0;
    link.loopback = (header.ifi_flags & IFF_LOOPBACK) != 0;
    const auto address = attributes[IFLA_ADDRESS].Bytes();
    if (address.size() == link.mac.size()) std::copy(address.begin(), address.end(), link.mac.begin());
    read.placement.mtu = attributes[IFLA_MTU].U32();
    // The index of a lower device in another namespace must not be taken for one of this namespace.
    ReadKind(attributes[IFLA_LINKINFO], read,
             attributes[IFLA_LINK_NETNSID] ? 0 : attributes[IFLA_LINK].U32());
    ReadMaster(attributes[IFLA_LINKINFO], read, attributes[IFLA_MASTER].U32());
    return read;
}

NetlinkRequest LinkDump()
{
    NetlinkRequest request(RTM_GETLINK, NLM_F_DUMP);
    request.AddHeader(ifinfomsg{});
    request.AddU32(IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
    return request;
}

}  // namespace net
