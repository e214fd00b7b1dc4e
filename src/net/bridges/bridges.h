// SPDX-License-Identifier: Apache-2.0
// The bridges of this machine as the kernel has them: ports, their VLANs, and the ports of learned addresses.
// A plain table: the monitor fills it, the resolver reads it.

#ifndef NET_BRIDGES_BRIDGES_H
#define NET_BRIDGES_BRIDGES_H

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "net/links/address_table.h"
#include "net/links/links.h"

namespace net {

inline constexpr std::size_t kVlans = 4096;

struct VlanRange {
    std::uint16_t first = 0, last = 0;  // both inclusive; below 4096
    bool pvid = false;                  // `last` is the VLAN of packets without a tag
    bool untagged = false;              // packets leave without a tag
    friend bool operator==(const VlanRange&, const VlanRange&) = default;
};

/// What a port lets through. `forwarding` is also off while its link is down.
struct PortState {
    bool forwarding = false;
    bool floodsUnicast = true, floodsMulticast = true, floodsBroadcast = true;
    bool isolated = false;  // passes nothing to other isolated ports
    bool hairpin = false;   // may send a packet back out of the port it entered by
    friend bool operator==(const PortState&, const PortState&) = default;
};

struct BridgeSettings {
    bool filtering = false;          // tells VLANs apart
    bool spanningTree = false;       // runs the spanning tree protocol
    bool multicastSnooping = false;  // IP multicast goes only to ports with members
    friend bool operator==(const BridgeSettings&, const BridgeSettings&) = default;
};

struct BridgeAddress {
    std::uint32_t port = 0;  // ifIndex of a port, or of the bridge itself
    bool local = false;      // an address of this machine
};

struct BridgePort;

/// A cached look-up of a port, valid until a port comes or goes: a look-up for each packet is too slow.
struct PortMemo {
    const BridgePort* port = nullptr;
    std::uint64_t generation = 0;
};

enum class Flood : std::uint8_t { kUnicast, kMulticast, kBroadcast };

struct Bridge;

struct BridgePort {
    struct Membership {
        std::bitset<kVlans> member, untagged;
    };
    Bridge* bridge = nullptr;
    std::uint32_t ifIndex = 0;
    std::uint16_t pvid = 0;
    PortState state;
    std::unique_ptr<Membership> vlans;  // null: in no VLAN
    std::uint32_t mark = 0;

    [[nodiscard]] bool In(std::uint16_t vlan) const { return vlans != nullptr && vlans->member[vlan]; }
    [[nodiscard]] bool Untagged(std::uint16_t vlan) const
    {
        return vlans != nullptr && vlans->untagged[vlan];
    }
};

class Bridges {
public:
    Bridges() = default;
    Bridges(const Bridges&) = delete;
    Bridges& operator=(const Bridges&) = delete;
    ~Bridges();

    /// Addresses beyond this number, over all bridges, are not kept (see Complete).
    void SetLimit(std::size_t addresses) { m_limit = addresses; }

    /// A port, or a bridge as its own port towards this machine; null if it is neither.
    [[nodiscard]] const BridgePort* FindPort(std::uint32_t ifIndex) const
    {
        const auto found = m_ports.find(ifIndex);
        return found == m_ports.end() ? nullptr : &found->second;
    }

    /// The same, with a memo that must always be used with this index.
    [[nodiscard]] const BridgePort* FindPort(std::uint32_t ifIndex, PortMemo& memo) const
    {
        if (memo.generation != m_generation) memo = {FindPort(ifIndex), m_generation};
        return memo.port;
    }

    /// The port of an address in a VLAN (0 if the bridge does not tell VLANs apart); null if not known.
    struct ForwardingEntry : BridgeAddress {
        mutable PortMemo memo;
    };
    [[nodiscard]] static const ForwardingEntry* FindAddress(const Bridge& bridge, std::uint16_t vlan,
                                                            const std::uint8_t* mac);
    /// Whether every address that the kernel has reported is kept.
    [[nodiscard]] bool Complete() const { return !m_overflowed; }
    /// Call before a dump of all addresses.
    void ExpectAll() { m_overflowed = false; }
    /// Whether some were not kept and half of the room is free again, so that a new dump is worth it.
    [[nodiscard]] bool HasRoomAgain() const { return m_overflowed && m_addresses < m_limit / 2; }
    [[nodiscard]] std::size_t AddressCount() const { return m_addresses; }

    struct Flooding {
        std::uint32_t ports = 0;
        std::uint32_t only = 0;  // ifIndex, if it is one port
        friend bool operator==(const Flooding&, const Flooding&) = default;
    };
    /// The ports to which a packet of this VLAN is flooded that entered by `from`, itself a port or the
    /// bridge.
    [[nodiscard]] Flooding FloodedTo(const BridgePort& from, std::uint16_t vlan, Flood kind) const;

    // ---- filled by the monitor ----

    /// Adds the bridge if it is new.
    void SetBridge(std::uint32_t ifIndex, const BridgeSettings& settings);
    /// Adds or replaces the port; `vlans` are all of its VLANs. `bridge` is `ifIndex` for the bridge itself.
    void PutPort(std::uint32_t ifIndex, std::uint32_t bridge, const PortState& state,
                 const std::vector<VlanRange>& vlans, std::uint32_t mark);
    /// No effect if the port is unknown; RemoveVlans and RemovePort likewise.
    void AddVlans(std::uint32_t ifIndex, const std::vector<VlanRange>& vlans);
    void RemoveVlans(std::uint32_t ifIndex, const std::vector<VlanRange>& vlans);
    void RemovePort(std::uint32_t ifIndex);
    /// Removes a port, or a bridge with its ports and addresses.
    void RemoveDevice(std::uint32_t ifIndex);

    /// Adds or replaces the address, unless it is new and the limit is reached.
    void PutAddress(std::uint32_t bridge, std::uint16_t vlan, const MacAddress& mac, BridgeAddress address,
                    std::uint32_t mark);
    void RemoveAddress(std::uint32_t bridge, std::uint16_t vlan, const MacAddress& mac);

    /// Removes the ports, or addresses, that were not put with this mark.
    void SweepPorts(std::uint32_t mark);
    void SweepAddresses(std::uint32_t mark);

private:
    Bridge& Have(std::uint32_t ifIndex);

    std::unordered_map<std::uint32_t, std::unique_ptr<Bridge>> m_bridges;
    std::unordered_map<std::uint32_t, BridgePort> m_ports;
    std::uint64_t m_generation = 1;  // changes with each port that comes or goes
    std::size_t m_limit = 512 * 1024;
    std::size_t m_addresses = 0;
    bool m_overflowed = false;
};

/// One bridge. Bridges fills it; others only read it.
struct Bridge : BridgeSettings {
    struct Entry {
        Bridges::ForwardingEntry address;
        std::uint32_t mark = 0;
    };

    std::uint32_t ifIndex = 0;
    AddressTable<Entry> addresses;         // by VLAN and address
    std::vector<const BridgePort*> ports;  // without the bridge itself

    /// The ports to which packets are flooded: their number, and the first two.
    struct Members {
        std::uint32_t count = 0;
        std::array<const BridgePort*, 2> first{};
    };
    /// Of each kind of flooding, by VLAN; counted again after a port changes.
    struct Floods {
        std::array<Members, 3> all, open;  // `open`: those that are not isolated
        bool counted = false;
    };
    mutable std::unordered_map<std::uint16_t, Floods> floods;
};

}  // namespace net

#endif
