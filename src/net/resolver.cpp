// The way of a packet.

#include "net/resolver.h"

namespace net {

Destination Resolver::Resolve(const Entering& /*packet*/) { return {}; }

std::uint16_t Resolver::PortVlan(std::uint32_t ifIndex) const
{
    const BridgePort* port = m_bridges.FindPort(ifIndex);
    return port != nullptr && port->bridge->filtering ? port->pvid : 0;
}

void Resolver::PutDevice(const Link& /*link*/, const Placement& /*placement*/) {}
void Resolver::RemoveDevice(std::uint32_t /*ifIndex*/) {}

}  // namespace net
