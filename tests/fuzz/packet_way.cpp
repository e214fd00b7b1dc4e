// SPDX-License-Identifier: Apache-2.0
// Any bytes as a packet's first, on a port of a bridge, on a router's port with VLAN devices, and on a
// device without link headers. The first four bytes of the input choose the device, the VLAN and the
// EtherType that the packet's source tells.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

#include "net/bridges/bridges.h"
#include "net/resolver/packet_header.h"
#include "net/resolver/resolver.h"
#include "net/routes/routes.h"

namespace {

class OneRoute final : public net::RouteQuestions {
public:
    std::optional<net::RouteAnswer> Ask(net::RouteFrom, const net::Address& destination,
                                        const net::Address& source) override
    {
        // Its addresses are whole, or it is not asked.
        if (destination.size != 4 && destination.size != 16) std::abort();
        if (source.size != 0 && source.size != destination.size) std::abort();
        net::RouteAnswer answer;
        answer.kind = net::Destination::Kind::kInterface;
        answer.ifIndex = 3;
        return answer;
    }
};

struct Machine {
    Machine()
    {
        Put(1, 1, {});
        Put(2, 1, {});
        Put(3, 1, {});
        Put(4, 65534, {});
        net::Placement vlan;
        vlan.vlanLower = 3;
        vlan.vlanId = 5;
        Put(5, 1, vlan);
        Put(10, 1, {});
        bridges.SetBridge(10, {.filtering = true, .multicastSnooping = true});
        net::PortState state;
        state.forwarding = true;
        for (const std::uint32_t port : {1U, 2U})
            bridges.PutPort(port, 10, state, {{1, 4094, false, true}}, 1);
        bridges.PutPort(10, 10, {}, {{5, 5, true, true}}, 1);
        bridges.PutAddress(10, 5, {2, 0, 0, 0, 0, 2}, {2, false}, 1);
        bridges.PutAddress(10, 5, {2, 0, 0, 0, 0, 9}, {10, true}, 1);
    }
    void Put(std::uint32_t index, std::uint16_t type, net::Placement placement)
    {
        placement.mtu = 68;  // the least of IPv4
        net::Link link;
        link.index = index;
        link.hardwareType = type;
        link.mac = {2, 0, 0, 0, 0, 9};
        resolver.PutDevice(link, placement);
    }
    net::Bridges bridges;
    OneRoute questions;
    net::Routes routes{questions};
    net::Resolver resolver{bridges, routes};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Machine machine;
    if (size < 4) return 0;
    net::Entering packet;
    packet.ifIndex = data[0] % 6U;
    packet.vlan = static_cast<std::uint16_t>(data[1] == 0xFF ? 0xFFFF : data[1]);
    packet.etherType = static_cast<std::uint16_t>(data[2] << 8 | data[3]);
    // A copy of its own size, so that a byte too far is seen.
    std::vector<std::byte> bytes(size - 4);
    if (!bytes.empty()) std::memcpy(bytes.data(), data + 4, bytes.size());
    packet.header = bytes;
    packet.length = static_cast<std::uint32_t>(bytes.size()) + data[0];
    if (const auto head = net::ReadFrame(packet); head && head->network > bytes.size()) std::abort();
    const net::Destination to = machine.resolver.Resolve(packet);
    if (to.route && to.kind != net::Destination::Kind::kInterface) std::abort();
    if (to.kind == net::Destination::Kind::kInterface && to.ifIndex == 0) std::abort();
    for (const std::optional<std::uint32_t> told : {std::optional<std::uint32_t>(), {0}, {1}, {3}, {5}}) {
        const net::Origin from = machine.resolver.Trace(packet, told);
        if (from.route && from.kind != net::Destination::Kind::kInterface) std::abort();
        if (from.kind == net::Destination::Kind::kInterface && from.ifIndex == 0) std::abort();
        if (told && from.ifIndex != *told) std::abort();
    }
    return 0;
}
