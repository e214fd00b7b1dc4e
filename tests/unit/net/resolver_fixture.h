// SPDX-License-Identifier: Apache-2.0
// A resolver over tables that a test fills: a bridge with four ports, a port beside it, and one route.

#ifndef TESTS_UNIT_NET_RESOLVER_FIXTURE_H
#define TESTS_UNIT_NET_RESOLVER_FIXTURE_H

#include <cstdint>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "net/bridges/bridges.h"
#include "net/destinations.h"
#include "net/resolver/resolver.h"
#include "support/network.h"

namespace net {

inline MacAddress NumberedMac(std::uint8_t number) { return {2, 0, 0, 0, 0, number}; }

/// Answers with the route that the test gives, and records from where it was asked for.
class NoQuestions final : public RouteQuestions {
public:
    std::optional<RouteAnswer> Ask(RouteFrom from, const Address& destination, const Address&) override
    {
        asked.push_back(from.ifIndex);
        vrfs.push_back(from.vrf);
        RouteAnswer answer;
        answer.kind = from.ifIndex == 0 ? Destination::Kind::kInterface : kind;
        answer.reason = reason;
        answer.ifIndex = out;
        answer.bits = destination.bytes[0] == 198 ? 24 : 16;
        return answer;
    }
    Destination::Kind kind = Destination::Kind::kInterface;
    std::uint32_t out = kRouter;
    Discard reason = Discard::kUnknown;
    std::vector<std::uint32_t> asked, vrfs;
};

class ResolverTest : public testing::Test {
protected:
    ResolverTest()
    {
        PutLink(kBridge, 0x10);
        PutLink(kRouter, 0x20);
        for (const std::uint32_t port : {1U, 2U, 3U, 4U})
            PutLink(port, static_cast<std::uint8_t>(0x30 + port));
        bridges.SetBridge(kBridge, {});
        for (const std::uint32_t port : {1U, 2U, 3U, 4U}) PutPort(port, {.forwarding = true}, {});
        bridges.PutAddress(kBridge, 0, NumberedMac(2), {2, false}, 1);
        bridges.PutAddress(kBridge, 0, NumberedMac(0x10), {kBridge, true}, 1);
    }

    void PutLink(std::uint32_t index, std::uint8_t mac, Placement placement = {}, std::uint16_t type = 1,
                 bool promiscuous = false)
    {
        Link link;
        link.index = index;
        link.mac = NumberedMac(mac);
        link.hardwareType = type;
        link.promiscuous = promiscuous;
        resolver.PutDevice(link, placement);
    }
    void PutMember(std::uint32_t index, std::uint8_t mac, std::uint32_t aggregate)
    {
        Link link;
        link.index = index;
        link.mac = NumberedMac(mac);
        link.hardwareType = 1;
        link.aggregate = aggregate;
        resolver.PutDevice(link, {});
    }
    void PutPort(std::uint32_t port, PortState state, const std::vector<VlanRange>& vlans)
    {
        bridges.PutPort(port, kBridge, state, vlans, 1);
    }
    /// VLAN 7 untagged on ports 1 and 2, tagged on 3; the bridge itself is in 7 with a tag. Port 4 is
    /// in 8 alone.
    void Filter()
    {
        bridges.SetBridge(kBridge, {.filtering = true});
        PutPort(1, {.forwarding = true}, {{7, 7, true, true}});
        PutPort(2, {.forwarding = true}, {{7, 7, true, true}});
        PutPort(3, {.forwarding = true}, {{5, 9, false, false}});
        PutPort(4, {.forwarding = true}, {{8, 8, true, true}});
        bridges.PutPort(kBridge, kBridge, {}, {{7, 7, false, false}}, 1);
        for (const std::uint16_t vlan : {std::uint16_t{7}, std::uint16_t{8}}) {
            bridges.PutAddress(kBridge, vlan, NumberedMac(2), {2, false}, 1);
            bridges.PutAddress(kBridge, vlan, NumberedMac(0x10), {kBridge, true}, 1);
        }
    }

    Destination To(std::uint32_t from, const support::FrameOptions& options, std::uint16_t vlan = 0)
    {
        return ToFrame(from, support::UdpFrame(options), 0x0800, vlan);
    }
    Destination ToFrame(std::uint32_t from, const support::Bytes& frame, std::uint16_t etherType,
                        std::uint16_t vlan, std::uint16_t protocol = 0x8100)
    {
        return resolver.Resolve({from, etherType, vlan, frame, protocol});
    }
    Destination ToMac(std::uint32_t from, const MacAddress& mac, std::uint16_t vlan = 0)
    {
        support::Bytes frame = support::UdpFrame({});
        for (std::size_t i = 0; i < mac.size(); ++i) frame[i] = std::byte{mac[i]};
        return ToFrame(from, frame, 0x0800, vlan);
    }

    Bridges bridges;
    NoQuestions questions;
    Routes routes{questions};
    Resolver resolver{bridges, routes};
};

}  // namespace net

#endif
