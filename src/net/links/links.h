// SPDX-License-Identifier: Apache-2.0
// The kernel's network interfaces as rtnetlink(7) tells of them, mirrored and followed: by index, and by
// the names under which operators know them.

#ifndef NET_LINKS_LINKS_H
#define NET_LINKS_LINKS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace net {

using MacAddress = std::array<std::uint8_t, 6>;

enum class Duplex : std::uint8_t { kUnknown, kFull, kHalf };

struct Link {
    std::uint32_t index = 0;
    std::string name;
    std::vector<std::string> altNames;
    std::string alias;
    std::uint16_t hardwareType = 0;  // ARPHRD_*
    bool up = false;                 // by the administrator (IFF_UP)
    bool running = false;            // operational: IF_OPER_UP, or unknown with a carrier
    bool promiscuous = false;
    bool loopback = false;
    bool bridge = false;         // it is a bridge
    bool vlanFiltering = false;  // a bridge that tells VLANs apart
    std::uint32_t master = 0;    // index of the bridge it is a port of; 0: none
    MacAddress mac{};
    std::uint64_t speed = 0;  // bits a second; 0: unknown
    Duplex duplex = Duplex::kUnknown;
    friend bool operator==(const Link&, const Link&) = default;
};

/// Hears of links once the table has taken the change. Called from the loop only.
class LinkObserver {
public:
    LinkObserver() = default;
    LinkObserver(const LinkObserver&) = delete;
    LinkObserver& operator=(const LinkObserver&) = delete;
    virtual ~LinkObserver() = default;

    /// It is new or anything of it is: also a name, a speed.
    virtual void LinkChanged(const Link& link) = 0;
    /// It is gone, or has moved to another network namespace.
    virtual void LinkRemoved(const Link& link) = 0;
};

/// A plain table; whoever listens to the kernel (monitor.h) fills it.
class Links {
public:
    /// Null where there is none.
    [[nodiscard]] const Link* Find(std::uint32_t index) const;

    /// The interface of that name; else the one with such an alternative name; else the one with such
    /// an alias, of several the one with the lowest index. Null for none.
    [[nodiscard]] const Link* Find(std::string_view name) const;

    /// Ports of a bridge, in no order.
    [[nodiscard]] const std::unordered_set<std::uint32_t>& Ports(std::uint32_t bridge) const;

    [[nodiscard]] const std::unordered_map<std::uint32_t, Link>& All() const { return m_links; }

    /// `observer` must outlive the table.
    void AddObserver(LinkObserver& observer) { m_observers.push_back(&observer); }

    /// Tells the observers, unless nothing is new.
    void Put(Link link);
    void Remove(std::uint32_t index);

private:
    using Indexes = std::unordered_map<std::string, std::vector<std::uint32_t>>;  // ascending

    void Enter(const Link& link);
    void Leave(const Link& link);

    std::unordered_map<std::uint32_t, Link> m_links;
    Indexes m_names, m_altNames, m_aliases;
    std::unordered_map<std::uint32_t, std::unordered_set<std::uint32_t>> m_ports;
    std::vector<LinkObserver*> m_observers;
};

}  // namespace net

#endif
