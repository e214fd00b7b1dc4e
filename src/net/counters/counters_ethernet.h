// SPDX-License-Identifier: Apache-2.0
// Reads the IEEE 802.3 counters that a driver keeps by ethtool netlink (ETHTOOL_MSG_STATS_GET, the groups
// eth-mac and eth-phy), and remembers the interfaces without any. Used by the counter reader of this folder.

#ifndef NET_COUNTERS_COUNTERS_ETHERNET_H
#define NET_COUNTERS_COUNTERS_ETHERNET_H

#include <cstdint>
#include <optional>
#include <unordered_set>

#include "net/counters/records.h"
#include "netlink/netlink.h"

namespace net {

/// The counters of one ETHTOOL_MSG_STATS_GET_REPLY; absent if it lacks them. Safe on any payload.
/// sqeTestErrors is always absent: ethtool netlink has no such statistic.
[[nodiscard]] EthernetCounters ReadEthernetStats(const nlmsghdr& message);

/// A request for both groups of one interface; `family` is ethtool's number.
[[nodiscard]] NetlinkRequest MakeEthernetStatsRequest(std::uint16_t family, std::uint32_t ifIndex);

class EthernetCountersReader {
public:
    /// Throws std::system_error. A kernel without ethtool netlink is not an error: it has no such counters.
    EthernetCountersReader();

    /// Nullopt if the driver keeps no such counters, and then not asked again until Forget; or on another
    /// error, and then asked again.
    std::optional<EthernetCounters> Read(std::uint32_t ifIndex);
    void Forget(std::uint32_t ifIndex) { m_without.erase(ifIndex); }

    /// Requests sent to the kernel, for tests.
    [[nodiscard]] std::uint64_t Asked() const { return m_asked; }

private:
    NetlinkSocket m_socket;
    std::optional<std::uint16_t> m_family;
    std::unordered_set<std::uint32_t> m_without;
    std::uint64_t m_asked = 0;
};

}  // namespace net

#endif
