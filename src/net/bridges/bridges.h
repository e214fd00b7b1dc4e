// SPDX-License-Identifier: Apache-2.0
// The bridges of this machine as the kernel has them: ports, their VLANs, and where addresses were learned.
// A plain table; the monitor fills it, the look-up of a packet's way reads it.

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
    std::uint16_t first = 0, last = 0;  // both inside; below 4096
    bool pvid = false;                  // `last` is that of packets without a tag
    bool untagged = false;              // leaves without a tag
    friend bool operator==(const VlanRange&, const VlanRange&) = default;
};

/// What a port lets through. `forwarding` is off also while its link is down.
struct PortState {
    bool forwarding = false;
    bool floodsUnicast = true, floodsMulticast = true, floodsBroadcast = true;
    bool isolated = false;  // passes nothing to other isolated ports
    bool hairpin = false;   // sends back to where a packet came from
    friend bool operator==(const PortState&, const PortState&) = default;
};

struct BridgeSettings {
    bool filtering = false;          // it tells VLANs apart
    bool spanningTree = false;       // it runs it
    bool multicastSnooping = false;  // groups of IP go to those who have joined them
    friend bool operator==(const BridgeSettings&, const BridgeSettings&) = default;
};

struct BridgeAddress {
    std::uint32_t port = 0;  // ifIndex of a port, or of the bridge itself
    bool local = false;      // taken by this machine
};

struct BridgePort;

/// Where a port was found, for as long as no port comes or goes: a look-up for each packet is dear.
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
    std::unique_ptr<Membership> vlans;  // null: in none
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

    /// Addresses beyond this many, all bridges together, are not kept (Complete).
    void SetLimit(std::size_t addresses) { m_limit = addresses; }

    /// A port, or a bridge as its own port towards this machine; null where it is neither.
    [[nodiscard]] const BridgePort* FindPort(std::uint32_t ifIndex) const
    {
        const auto found = m_ports.find(ifIndex);
        return found == m_ports.end() ? nullptr : &found->second;
    }

    /// The same, by way of a memo that is always used with this index.
    [[nodiscard]] const BridgePort* FindPort(std::uint32_t ifIndex, PortMemo& memo) const
    {
        if (memo.generation != m_generation) memo = {FindPort(ifIndex), m_generation};
        return memo.port;
    }

    /// Where an address is in a VLAN (0 in a bridge that does not tell them apart); null: not known.
    struct ForwardingEntry : BridgeAddress {
        mutable PortMemo memo;
    };
    [[nodiscard]] static const ForwardingEntry* FindAddress(const Bridge& bridge, std::uint16_t vlan,
                                                            const std::uint8_t* mac);
    /// Every address that the kernel has told of is kept.
    [[nodiscard]] bool Complete() const { return !m_overflowed; }
    /// All are about to be told of again.
    void ExpectAll() { m_overflowed = false; }
    /// Some were not kept, and there is room again: worth asking for all of them.
    [[nodiscard]] bool HasRoomAgain() const { return m_overflowed && m_addresses < m_limit / 2; }
    [[nodiscard]] std::size_t AddressCount() const { return m_addresses; }

    /// To how many ports a packet goes that entered by `from` and belongs to a VLAN.
    [[nodiscard]] std::uint32_t FloodCount(const BridgePort& from, std::uint16_t vlan, Flood kind) const;

    // ---- filled by the monitor ----

    void SetBridge(std::uint32_t ifIndex, const BridgeSettings& settings);
    void PutPort(std::uint32_t ifIndex, std::uint32_t bridge, const PortState& state,
                 const std::vector<VlanRange>& vlans, std::uint32_t mark);
    void AddVlans(std::uint32_t ifIndex, const std::vector<VlanRange>& vlans);
    void RemoveVlans(std::uint32_t ifIndex, const std::vector<VlanRange>& vlans);
    void RemovePort(std::uint32_t ifIndex);
    /// The device is gone, a bridge with its ports and addresses.
    void RemoveDevice(std::uint32_t ifIndex);

    void PutAddress(std::uint32_t bridge, std::uint16_t vlan, const MacAddress& mac, BridgeAddress address,
                    std::uint32_t mark);
    void RemoveAddress(std::uint32_t bridge, std::uint16_t vlan, const MacAddress& mac);

    /// Ports, and addresses, that were not put with this mark go.
    void SweepPorts(std::uint32_t mark);
    void SweepAddresses(std::uint32_t mark);

private:
    Bridge& Have(std::uint32_t ifIndex);

    std::unordered_map<std::uint32_t, std::unique_ptr<Bridge>> m_bridges;
    std::unordered_map<std::uint32_t, BridgePort> m_ports;
    std::uint64_t m_generation = 1;  // of the ports: another with each that comes or goes
    std::size_t m_limit = 512 * 1024;
    std::size_t m_addresses = 0;
    bool m_overflowed = false;
};

/// One bridge; its content is for Bridges, the rest reads.
struct Bridge : BridgeSettings {
    struct Entry {
        Bridges::ForwardingEntry address;
        std::uint32_t mark = 0;
    };

    std::uint32_t ifIndex = 0;
    AddressTable<Entry> addresses;         // by VLAN and address
    std::vector<const BridgePort*> ports;  // without the bridge itself

    /// Ports to which each kind is flooded, by VLAN: counted once, until a port changes.
    struct Counts {
        std::array<std::uint32_t, 3> all{}, isolated{};
        bool counted = false;
    };
    mutable std::unordered_map<std::uint16_t, Counts> counts;
};

}  // namespace net

#endif
