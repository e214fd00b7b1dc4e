// SPDX-License-Identifier: Apache-2.0
// What the readers of counters read.

#ifndef NET_COUNTERS_RECORDS_H
#define NET_COUNTERS_RECORDS_H

#include <cstdint>
#include <optional>

namespace net {

/// As rtnl_link_stats64 has them.
struct LinkCounters {
    std::uint32_t ifIndex = 0;
    std::uint64_t rxPackets = 0, txPackets = 0;
    std::uint64_t rxBytes = 0, txBytes = 0;
    std::uint64_t rxErrors = 0, txErrors = 0;
    std::uint64_t rxDropped = 0, txDropped = 0;
    std::uint64_t rxMissed = 0;
    std::uint64_t multicast = 0;  // received
};

/// IEEE 802.3 counters that a driver keeps; those it does not keep are absent. Any: at least one is present.
struct EthernetCounters {
    std::optional<std::uint64_t> alignmentErrors, fcsErrors, singleCollisions, multipleCollisions,
        sqeTestErrors, deferred, lateCollisions, excessiveCollisions, macTransmitErrors, carrierSenseErrors,
        frameTooLongs, macReceiveErrors, symbolErrors;
    [[nodiscard]] bool Any() const
    {
        return alignmentErrors || fcsErrors || singleCollisions || multipleCollisions || sqeTestErrors ||
               deferred || lateCollisions || excessiveCollisions || macTransmitErrors || carrierSenseErrors ||
               frameTooLongs || macReceiveErrors || symbolErrors;
    }
};

}  // namespace net

#endif
