// SPDX-License-Identifier: Apache-2.0
#include "manager/sampling/flow_sample.h"

#include <net/ethernet.h>
#include <net/if_arp.h>

#include "manager/sampling/header_reader.h"
#include "net/resolver/packet_header.h"
#include "wire/frame.h"

namespace manager {
namespace {

constexpr std::uint16_t kVlanMask = 0x0FFF;
constexpr int kPriorityShift = 13;

wire::Port Single(std::uint32_t ifIndex) { return {wire::Port::Format::kSingle, ifIndex}; }

wire::DropReason ReasonOf(net::Discard reason)
{
    using Reason = wire::DropReason;
    switch (reason) {
    case net::Discard::kNoRoute:
        return Reason::kNetUnreachable;
    case net::Discard::kUnreachable:
        return Reason::kHostUnreachable;
    case net::Discard::kProhibited:
        return Reason::kCommunicationProhibited;
    case net::Discard::kBlackHole:
        return Reason::kBlackholeRoute;
    case net::Discard::kTimeToLive:
        return Reason::kTtlExceeded;
    case net::Discard::kReversePath:
        return Reason::kUcReversePathForwarding;
    case net::Discard::kSourceMulticast:
        return Reason::kSipIsMc;
    case net::Discard::kSourceLoopback:
        return Reason::kSipIsLoopbackAddress;
    case net::Discard::kSourceUnspecified:
        return Reason::kSipIsUnspecified;
    case net::Discard::kDestinationLoopback:
        return Reason::kDipIsLoopbackAddress;
    case net::Discard::kIngressVlan:
        return Reason::kIngressVlanFilter;
    case net::Discard::kEgressVlan:
        return Reason::kEgressVlanFilter;
    case net::Discard::kPortNotForwarding:
        return Reason::kIngressSpanningTreeFilter;
    case net::Discard::kNoPorts:
        return Reason::kPortListIsEmpty;
    case net::Discard::kSamePort:
        return Reason::kPortLoopbackFilter;
    case net::Discard::kUnicastInGroup:
        return Reason::kUcDipOverMcDmac;
    case net::Discard::kFragmentation:
        return Reason::kFragmentationNeeded;
    case net::Discard::kTooBig:
        return Reason::kPacketTooBig;
    case net::Discard::kReservedMac:
        return Reason::kDmacIsReserved;
    case net::Discard::kUnknown:
        break;
    }
    return Reason::kUnknown;
}

wire::Port OutputOf(const net::Destination& destination)
{
    using Kind = net::Destination::Kind;
    switch (destination.kind) {
    case Kind::kInterface:
        return Single(destination.ifIndex);
    case Kind::kLocal:
        return wire::kInternalPort;
    case Kind::kSeveral:
        return {wire::Port::Format::kMultiple, destination.interfaces};
    case Kind::kDiscarded:
        return wire::Discarded(ReasonOf(destination.reason));
    case Kind::kUnknown:
        break;
    }
    return Single(0);
}

wire::Port InputOf(const net::Origin& origin)
{
    using Kind = net::Destination::Kind;
    if (origin.kind == Kind::kLocal) return wire::kInternalPort;
    return Single(origin.kind == Kind::kInterface ? origin.ifIndex : 0);
}

wire::ExtendedRouter RouterOf(const net::Destination::Route& route)
{
    wire::ExtendedRouter router;
    router.nextHop.size = route.nextHop.size;
    router.nextHop.bytes = route.nextHop.bytes;
    router.sourceBits = route.sourceBits;
    router.destinationBits = route.destinationBits;
    return router;
}

/// `length` has neither FCS nor the tag that the kernel took away.
std::uint32_t FrameLength(std::uint32_t length, const wire::FlowSample& flow)
{
    if (flow.protocol != wire::HeaderProtocol::kEthernet) return length;
    return wire::FrameLength(length, flow.tagProtocol != 0);
}

}  // namespace

wire::HeaderProtocol HeaderProtocolOf(std::uint16_t hardwareType, std::uint16_t etherType)
{
    switch (hardwareType) {
    case ARPHRD_ETHER:
    case ARPHRD_LOOPBACK:
    case ARPHRD_IEEE802:
        return wire::HeaderProtocol::kEthernet;
    case ARPHRD_PPP:
        // The kernel hands over what is behind the PPP header.
    default:
        if (net::IsMplsType(etherType)) return wire::HeaderProtocol::kMpls;
        return etherType == ETHERTYPE_IPV6 ? wire::HeaderProtocol::kIpv6 : wire::HeaderProtocol::kIpv4;
    }
}

Tag OuterTag(const capture::Sample& sample)
{
    std::uint16_t control = sample.tagControl;
    std::uint16_t protocol = sample.tagProtocol;
    if (protocol == 0) {
        const HeaderReader reader(sample.header);
        const auto type = reader.Word(wire::kLinkAddresses);
        const auto behind = reader.Word(wire::kLinkAddresses + 2);
        if (!type || !behind || !net::IsVlanType(*type)) return {};
        control = *behind;
        protocol = *type;
    }
    return {static_cast<std::uint16_t>(control & kVlanMask),
            static_cast<std::uint8_t>(control >> kPriorityShift), protocol};
}

void DescribePacket(const capture::Sample& sample, std::uint16_t hardwareType, wire::FlowSample& flow)
{
    flow.rate = sample.rate;
    flow.protocol = HeaderProtocolOf(hardwareType, sample.etherType);
    const bool ethernet = flow.protocol == wire::HeaderProtocol::kEthernet;
    flow.stripped = ethernet ? wire::kFcs : 0;
    flow.header = sample.header;
    flow.tagProtocol = ethernet ? sample.tagProtocol : std::uint16_t{0};
    flow.tagControl = sample.tagControl;
    flow.frameLength = FrameLength(sample.length, flow);
}

void DescribeSegment(SegmentedHeader& header, std::uint32_t length, wire::FlowSample& flow)
{
    flow.header = header.Of(length);
    flow.frameLength = FrameLength(length, flow);
}

void DescribeEgress(std::uint32_t output, Tag tag, std::uint16_t untagged, const net::Origin& origin,
                    wire::FlowSample& flow)
{
    flow.input = InputOf(origin);
    flow.output = Single(output);
    flow.inputVlan = flow.outputVlan = tag.vlan != 0 ? tag.vlan : untagged;
    flow.inputPriority = flow.outputPriority = tag.priority;
    flow.router.reset();
    if (origin.route) flow.router = RouterOf(*origin.route);
}

void DescribeIngress(std::uint32_t input, Tag tag, const net::Destination& destination,
                     wire::FlowSample& flow)
{
    flow.input = Single(input);
    flow.output = OutputOf(destination);
    flow.inputVlan = tag.vlan != 0 ? tag.vlan : destination.inputVlan;
    flow.inputPriority = tag.priority;
    flow.outputVlan = destination.outputVlan;
    flow.outputPriority = tag.priority;
    flow.router.reset();
    if (destination.route) flow.router = RouterOf(*destination.route);
}

}  // namespace manager
