// Finds the way of a packet: from the device where it entered over bonds and VLAN devices to a bridge's
// table or to the routes. Fed by the monitor.

#ifndef NET_RESOLVER_H
#define NET_RESOLVER_H

#include <cstdint>
#include <unordered_map>

#include "net/bridges.h"
#include "net/forwarding.h"
#include "net/link_message.h"
#include "net/links.h"

namespace net {

class Resolver final : public Forwarding {
public:
    /// Must outlive it.
    explicit Resolver(const Bridges& bridges) : m_bridges(bridges) {}

    [[nodiscard]] Destination Resolve(const Entering& packet) override;
    [[nodiscard]] std::uint16_t PortVlan(std::uint32_t ifIndex) const override;

    void PutDevice(const Link& link, const Placement& placement);
    void RemoveDevice(std::uint32_t ifIndex);

private:
    const Bridges& m_bridges;
};

}  // namespace net

#endif
