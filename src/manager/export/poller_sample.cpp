// SPDX-License-Identifier: Apache-2.0
#include "manager/export/poller_sample.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include <net/if_arp.h>

namespace manager {
namespace {

// IANAifType, as far as Linux has such interfaces (RFC 7224 and its registry).
constexpr std::uint32_t kOther = 1;
constexpr std::uint32_t kEthernet = 6;
constexpr std::uint32_t kPpp = 23;
constexpr std::uint32_t kLoopback = 24;
constexpr std::uint32_t kSlip = 28;
constexpr std::uint32_t kVirtual = 53;
constexpr std::uint32_t kWireless = 71;
constexpr std::uint32_t kTunnel = 131;
constexpr std::uint32_t kVlan = 135;
constexpr std::uint32_t kFirewire = 144;
constexpr std::uint32_t kAggregate = 161;
constexpr std::uint32_t kInfiniband = 199;
constexpr std::uint32_t kBridge = 209;

struct KindType {
    std::string_view kind;
    std::uint32_t type;
};
// A virtual Ethernet pair and a tap are Ethernet to what is connected with them.
constexpr std::array<KindType, 20> kKindTypes{{
    {"bond", kAggregate},     {"bridge", kBridge},  {"dummy", kVirtual},    {"geneve", kTunnel},
    {"gretap", kTunnel},      {"ifb", kVirtual},    {"ip6gretap", kTunnel}, {"ipvlan", kVirtual},
    {"l2tpeth", kTunnel},     {"macsec", kVirtual}, {"macvlan", kVirtual},  {"macvtap", kVirtual},
    {"netdevsim", kEthernet}, {"team", kAggregate}, {"vlan", kVlan},        {"vrf", kVirtual},
    {"vti", kTunnel},         {"vxlan", kTunnel},   {"wireguard", kTunnel}, {"xfrm", kTunnel},
}};

// Devices that count the multicasts they receive. Of the others each driver decides, and a driver that does
// not count them reports 0.
constexpr std::array<std::string_view, 5> kCountMulticast{"bond", "bridge", "macvlan", "team", "vlan"};

bool CountsMulticast(const net::Link& link, const net::LinkCounters& counters)
{
    return counters.multicast != 0 ||
           std::find(kCountMulticast.begin(), kCountMulticast.end(), link.kind) != kCountMulticast.end();
}

std::uint32_t Low(std::uint64_t count) { return static_cast<std::uint32_t>(count); }

std::uint32_t Low(const std::optional<std::uint64_t>& count)
{
    return count ? Low(*count) : wire::kNotCounted32;
}

std::uint32_t DirectionOf(net::Duplex duplex)
{
    if (duplex == net::Duplex::kFull) return 1;
    return duplex == net::Duplex::kHalf ? 2 : 0;
}

}  // namespace

std::uint32_t InterfaceType(const net::Link& link)
{
    const auto* known = std::find_if(kKindTypes.begin(), kKindTypes.end(),
                                     [&](const KindType& row) { return row.kind == link.kind; });
    if (known != kKindTypes.end()) return known->type;
    switch (link.hardwareType) {
    case ARPHRD_ETHER:
        return kEthernet;
    case ARPHRD_LOOPBACK:
        return kLoopback;
    case ARPHRD_PPP:
        return kPpp;
    case ARPHRD_SLIP:
    case ARPHRD_CSLIP:
        return kSlip;
    case ARPHRD_TUNNEL:
    case ARPHRD_TUNNEL6:
    case ARPHRD_SIT:
    case ARPHRD_IPGRE:
    case ARPHRD_NONE:
    case 823:  // ARPHRD_IP6GRE, which the C library's header lacks
        return kTunnel;
    case ARPHRD_IEEE80211:
        return kWireless;
    case ARPHRD_IEEE1394:
        return kFirewire;
    case ARPHRD_INFINIBAND:
        return kInfiniband;
    default:
        return kOther;
    }
}

wire::GenericCounters MakeGenericCounters(const net::Link& link, const net::LinkCounters& counters)
{
    wire::GenericCounters record;
    record.ifIndex = link.index;
    record.ifType = InterfaceType(link);
    record.speed = link.speed;
    record.direction = DirectionOf(link.duplex);
    record.adminUp = link.up;
    record.operUp = link.running;
    record.inOctets = counters.rxBytes;
    // The two are not read at one instant: there may be a multicast more than packets.
    record.inUnicast =
        Low(counters.rxPackets > counters.multicast ? counters.rxPackets - counters.multicast : 0);
    if (CountsMulticast(link, counters)) record.inMulticast = Low(counters.multicast);
    record.inDiscards = Low(counters.rxDropped + counters.rxMissed);
    record.inErrors = Low(counters.rxErrors);
    record.outOctets = counters.txBytes;
    record.outUnicast = Low(counters.txPackets);
    record.outDiscards = Low(counters.txDropped);
    record.outErrors = Low(counters.txErrors);
    record.promiscuous = link.promiscuous ? 1 : 2;
    return record;
}

wire::EthernetCounters MakeEthernetCounters(const net::EthernetCounters& counters)
{
    wire::EthernetCounters record;
    record.alignmentErrors = Low(counters.alignmentErrors);
    record.fcsErrors = Low(counters.fcsErrors);
    record.singleCollisions = Low(counters.singleCollisions);
    record.multipleCollisions = Low(counters.multipleCollisions);
    record.sqeTestErrors = Low(counters.sqeTestErrors);
    record.deferred = Low(counters.deferred);
    record.lateCollisions = Low(counters.lateCollisions);
    record.excessiveCollisions = Low(counters.excessiveCollisions);
    record.macTransmitErrors = Low(counters.macTransmitErrors);
    record.carrierSenseErrors = Low(counters.carrierSenseErrors);
    record.frameTooLongs = Low(counters.frameTooLongs);
    record.macReceiveErrors = Low(counters.macReceiveErrors);
    record.symbolErrors = Low(counters.symbolErrors);
    return record;
}

wire::LagCounters MakeLagCounters(const net::AggregateMember& member)
{
    wire::LagCounters record;
    record.actorSystem = member.actorSystem;
    record.partnerSystem = member.partnerSystem;
    record.aggregate = member.aggregate;
    record.actorState = member.actorState;
    record.partnerState = member.partnerState;
    record.lacpdusIn = Low(member.lacpdusIn);
    record.markersIn = Low(member.markersIn);
    record.markerResponsesIn = Low(member.markerResponsesIn);
    record.unknownIn = Low(member.unknownIn);
    record.illegalIn = Low(member.illegalIn);
    record.lacpdusOut = Low(member.lacpdusOut);
    record.markersOut = Low(member.markersOut);
    record.markerResponsesOut = Low(member.markerResponsesOut);
    return record;
}

}  // namespace manager
