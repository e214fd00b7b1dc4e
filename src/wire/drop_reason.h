// SPDX-License-Identifier: Apache-2.0
// Why a packet was dropped, in sFlow's numbers (sflow.org, "sFlow Dropped Packet Notification Structures":
// drop_reason): of a notification, and of a sampled packet's output. The numbers below 256 are the codes of
// ICMP's message "destination unreachable" (RFC 792, RFC 1812).

#ifndef WIRE_DROP_REASON_H
#define WIRE_DROP_REASON_H

#include <cstdint>

namespace wire {

enum class DropReason : std::uint32_t {
    kNetUnreachable = 0,
    kHostUnreachable = 1,
    kProtocolUnreachable = 2,
    kPortUnreachable = 3,
    kFragmentationNeeded = 4,
    kSourceRouteFailed = 5,
    kDestinationNetUnknown = 6,
    kDestinationHostUnknown = 7,
    kSourceHostIsolated = 8,
    kDestinationNetProhibited = 9,
    kDestinationHostProhibited = 10,
    kDestinationNetTosUnreachable = 11,
    kDestinationHostTosUnreachable = 12,
    kCommunicationProhibited = 13,
    kHostPrecedenceViolation = 14,
    kPrecedenceCutoff = 15,
    kUnknown = 256,
    kTtlExceeded = 257,
    kAcl = 258,
    kNoBufferSpace = 259,
    kRed = 260,
    kTrafficShaping = 261,
    kPacketTooBig = 262,
    kSrcMacIsMulticast = 263,
    kVlanTagMismatch = 264,
    kIngressVlanFilter = 265,
    kIngressSpanningTreeFilter = 266,
    kPortListIsEmpty = 267,
    kPortLoopbackFilter = 268,
    kBlackholeRoute = 269,
    kNonIp = 270,
    kUcDipOverMcDmac = 271,
    kDipIsLoopbackAddress = 272,
    kSipIsMc = 273,
    kSipIsLoopbackAddress = 274,
    kIpHeaderCorrupted = 275,
    kIpv4SipIsLimitedBc = 276,
    kIpv6McDipReservedScope = 277,
    kIpv6McDipInterfaceLocalScope = 278,
    kUnresolvedNeigh = 279,
    kMcReversePathForwarding = 280,
    kNonRoutablePacket = 281,
    kDecapError = 282,
    kOverlaySmacIsMc = 283,
    kUnknownL2 = 284,
    kUnknownL3 = 285,
    kUnknownL3Exception = 286,
    kUnknownBuffer = 287,
    kUnknownTunnel = 288,
    kUnknownL4 = 289,
    kSipIsUnspecified = 290,
    kMlagPortIsolation = 291,
    kBlackholeArpNeigh = 292,
    kSrcMacIsDmac = 293,
    kDmacIsReserved = 294,
    kSipIsClassE = 295,
    kMcDmacMismatch = 296,
    kSipIsDip = 297,
    kDipIsLocalNetwork = 298,
    kDipIsLinkLocal = 299,
    kOverlaySmacIsDmac = 300,
    kEgressVlanFilter = 301,
    kUcReversePathForwarding = 302,
    kSplitHorizon = 303,
};

}  // namespace wire

#endif
