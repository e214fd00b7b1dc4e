// SPDX-License-Identifier: Apache-2.0
// Speed and duplex of links, by ethtool netlink: asked for one link or all, and told of when somebody
// sets them. A question waits while anybody changes links, in whatever namespace. Used by the monitor.

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

    /// Opens its socket; throws std::system_error. On a kernel without ethtool netlink no link has a speed.
    LinkSpeeds();

    /// Asks for one link. Nothing where it has no such thing and need not be asked again; unknown when it has
    /// gone, or can't answer now.
    [[nodiscard]] std::optional<LinkSpeed> Read(std::uint32_t ifIndex);

    /// Asks for all links at once; those without are left out.
    void ReadAll(const OnSpeed& found);

    /// What ethtool netlink is here; of number 0 where there is none.
    [[nodiscard]] const GenericFamily& Family() const { return m_family; }

private:
    NetlinkRequest MakeRequest(std::uint32_t ifIndex) const;  // 0: all

    NetlinkSocket m_socket;
    GenericFamily m_family;
};

class SpeedChanges {
public:
    /// Opens its socket; throws std::system_error.
    explicit SpeedChanges(const GenericFamily& ethtool);

    /// Readable when a setting was changed; -1 where the kernel does not tell.
    [[nodiscard]] int Descriptor() const { return m_told ? m_told->Descriptor() : -1; }
    /// Takes a change that was told of; kLost: any may have changed.
    NetlinkSocket::Received Receive(const std::function<void(std::uint32_t ifIndex)>& changed);

private:
    std::optional<NetlinkSocket> m_told;
    std::uint16_t m_family;
};

}  // namespace net

#endif
