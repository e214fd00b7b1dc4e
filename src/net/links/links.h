// SPDX-License-Identifier: Apache-2.0
// A mirror of the kernel's network interfaces as rtnetlink(7) reports them: by index, and by the names under
// which operators know them.

#ifndef NET_LINKS_LINKS_H
#define NET_LINKS_LINKS_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace net {

using MacAddress = std::array<std::uint8_t, 6>;

enum class Duplex : std::uint8_t { kUnknown, kFull, kHalf };

struct Link {
    std::uint32_t index = 0;
    std::string name;
    std::vector<std::string> altNames;
    std::string alias;
    std::string kind;                // as ip-link(8) calls it: "bridge", "vlan", ...; empty: hardware, or lo
    std::uint16_t hardwareType = 0;  // ARPHRD_*
    bool up = false;                 // by the administrator (IFF_UP)
    bool running = false;            // operational: IF_OPER_UP, or unknown with a carrier
    bool promiscuous = false;
    bool loopback = false;
    bool vlanFiltering = false;   // a bridge that tells VLANs apart
    std::uint32_t master = 0;     // index of the bridge it is a port of; 0: none
    std::uint32_t aggregate = 0;  // index of the bond or team that it is a member of; 0: none
    MacAddress mac{};
    std::uint64_t speed = 0;  // bits a second; 0: unknown
    Duplex duplex = Duplex::kUnknown;
    friend bool operator==(const Link&, const Link&) = default;
};

/// Notified of changes after the table has taken them. Called from the loop only.
class LinkObserver {
public:
    LinkObserver() = default;
    LinkObserver(const LinkObserver&) = delete;
    LinkObserver& operator=(const LinkObserver&) = delete;
    virtual ~LinkObserver() = default;

    /// The link is new, or any of its fields has changed.
    virtual void LinkChanged(const Link& link) = 0;
    /// The link is gone, or has moved to another network namespace.
    virtual void LinkRemoved(const Link& link) = 0;
};

/// A plain table; the monitor (monitor.h) fills it.
class Links {
public:
    /// Null if there is none. Valid until the link changes.
    [[nodiscard]] const Link* Find(std::uint32_t index) const;

    /// The interface of that name; else the one with that alternative name; else the one with that alias. If
    /// several have it, the one with the lowest index. Null if none has it.
    [[nodiscard]] const Link* Find(std::string_view name) const;

    [[nodiscard]] const std::unordered_map<std::uint32_t, Link>& All() const { return m_links; }

    /// `observer` must outlive the table.
    void AddObserver(LinkObserver& observer) { m_observers.push_back(&observer); }

    /// Inserts or replaces the link and notifies the observers if anything changed.
    void Put(Link link);
    /// Removes the link and notifies the observers; no effect if there is none.
    void Remove(std::uint32_t index);

private:
    using Indexes = std::unordered_map<std::string, std::vector<std::uint32_t>>;  // ascending

    void Enter(const Link& link);
    void Leave(const Link& link);

    std::unordered_map<std::uint32_t, Link> m_links;
    Indexes m_names, m_altNames, m_aliases;
    std::vector<LinkObserver*> m_observers;
};

}  // namespace net

#endif
