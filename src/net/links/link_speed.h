// SPDX-License-Identifier: Apache-2.0
// Speed and duplex of links, by ethtool netlink: requests for one link or all, and notifications of changed
// settings. A request waits for the kernel's lock while any process changes links, in any namespace. Used by
// the monitor.

#ifndef NET_LINKS_LINK_SPEED_H
#define NET_LINKS_LINK_SPEED_H

#include <cstdint>
#include <functional>
#include <optional>

#include "net/links/links.h"
#include "netlink/netlink.h"

namespace net {

struct LinkSpeed {
    std::uint64_t speed = 0;  // bits a second; 0: unknown
    Duplex duplex = Duplex::kUnknown;
    friend bool operator==(const LinkSpeed&, const LinkSpeed&) = default;
};

class LinkSpeeds {
public:
    using OnSpeed = std::function<void(std::uint32_t ifIndex, LinkSpeed speed)>;

    /// Opens its socket. Throws std::system_error. On a kernel without ethtool netlink no link has a speed.
    LinkSpeeds();

    /// Asks for one link. Nullopt if it has no speed and need not be asked again; an unknown speed on another
    /// error.
    [[nodiscard]] std::optional<LinkSpeed> Read(std::uint32_t ifIndex);

    /// Asks for all links at once; links without a speed are left out. An error is logged.
    void ReadAll(const OnSpeed& found);

    /// ethtool's netlink family; its id is 0 if the kernel has none.
    [[nodiscard]] const GenericFamily& Family() const { return m_family; }

private:
    NetlinkRequest MakeRequest(std::uint32_t ifIndex) const;  // 0: all

    NetlinkSocket m_socket;
    GenericFamily m_family;
};

class SpeedChanges {
public:
    /// Opens its socket. Throws std::system_error.
    explicit SpeedChanges(const GenericFamily& ethtool);

    /// Readable when a setting has changed; -1 if the kernel does not notify.
    [[nodiscard]] int Descriptor() const { return m_told ? m_told->Descriptor() : -1; }
    /// Takes one notification, if there is one; kLost: any link may have changed. Throws std::system_error.
    NetlinkSocket::Received Receive(const std::function<void(std::uint32_t ifIndex)>& changed);

private:
    std::optional<NetlinkSocket> m_told;
    std::uint16_t m_family;
};

}  // namespace net

#endif
