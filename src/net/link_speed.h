// Speed and duplex of links, by ethtool netlink: asked for one link or all, and told of when somebody
// sets them. Used by the monitor.

#ifndef NET_LINK_SPEED_H
#define NET_LINK_SPEED_H

#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_set>

#include "net/links.h"
#include "net/netlink.h"

namespace net {

struct LinkSpeed {
    std::uint64_t speed = 0;  // bits a second; 0: unknown
    Duplex duplex = Duplex::kUnknown;
    friend bool operator==(const LinkSpeed&, const LinkSpeed&) = default;
};

class LinkSpeeds {
public:
    using OnSpeed = std::function<void(std::uint32_t ifIndex, LinkSpeed speed)>;

    /// Opens its sockets; throws std::system_error. On a kernel without ethtool netlink every speed is
    /// unknown.
    LinkSpeeds();

    /// Asks for one link. Nothing when it has gone or has no such thing; the latter is remembered until
    /// Forget.
    [[nodiscard]] std::optional<LinkSpeed> Read(std::uint32_t ifIndex);
    void Forget(std::uint32_t ifIndex) { m_without.erase(ifIndex); }

    /// Asks for all links at once; those without are left out.
    void ReadAll(const OnSpeed& found);

    /// Readable when a setting was changed; -1 where the kernel does not tell.
    [[nodiscard]] int Descriptor() const { return m_told ? m_told->Descriptor() : -1; }
    /// Takes a change that was told of; kLost: any may have changed.
    NetlinkSocket::Received Receive(const std::function<void(std::uint32_t ifIndex)>& changed);

private:
    NetlinkRequest MakeRequest(std::uint32_t ifIndex) const;  // 0: all

    NetlinkSocket m_questions;
    std::optional<NetlinkSocket> m_told;
    std::uint16_t m_family = 0;
    std::unordered_set<std::uint32_t> m_without;
};

}  // namespace net

#endif
