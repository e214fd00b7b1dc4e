// SPDX-License-Identifier: Apache-2.0
// Reads the IEEE 802.3 counters that a driver keeps by ethtool netlink (ETHTOOL_MSG_STATS_GET, the groups
// eth-mac and eth-phy), and remembers where there are none. Used by the counter reader of this folder.

#ifndef NET_COUNTERS_COUNTERS_ETHERNET_H
#define NET_COUNTERS_COUNTERS_ETHERNET_H

#include <cstdint>
#include <optional>
#include <unordered_set>

#include "net/counters/counters.h"
#include "netlink/netlink.h"

namespace net {

/// The counters of one ETHTOOL_MSG_STATS_GET_REPLY; what it lacks is absent. Any bytes will do. ethtool
/// netlink does not tell of the signal quality test, so its errors always are.
[[nodiscard]] EthernetCounters ReadEthernetStats(const nlmsghdr& message);

/// Asks for both groups of one interface; `family` is ethtool's number.
[[nodiscard]] NetlinkRequest MakeEthernetStatsRequest(std::uint16_t family, std::uint32_t ifIndex);

class EthernetCountersReader {
public:
    /// Throws std::system_error; a kernel without ethtool netlink is no error: it has no such counters.
    EthernetCountersReader();

    /// Nothing where the driver counts nothing: that interface is not asked again until Forget. Nothing
    /// also on any other error; then it is asked again.
    std::optional<EthernetCounters> Read(std::uint32_t ifIndex);
    void Forget(std::uint32_t ifIndex) { m_without.erase(ifIndex); }

    /// Questions that were put to the kernel, for tests.
    [[nodiscard]] std::uint64_t Asked() const { return m_asked; }

private:
    NetlinkSocket m_socket;
    std::optional<std::uint16_t> m_family;
    std::unordered_set<std::uint32_t> m_without;
    std::uint64_t m_asked = 0;
};

}  // namespace net

#endif
