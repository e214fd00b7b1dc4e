// SPDX-License-Identifier: Apache-2.0
// The counters of network interfaces: rtnetlink's 64-bit link statistics and ethtool netlink's IEEE 802.3
// statistics, if the driver keeps them.

#ifndef NET_COUNTERS_COUNTERS_H
#define NET_COUNTERS_COUNTERS_H

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "net/counters/records.h"

namespace net {

/// Its requests wait for the kernel's lock while any process changes links, in any namespace. Writes nothing
/// to the log.
class CounterReader {
public:
    CounterReader() = default;
    CounterReader(const CounterReader&) = delete;
    CounterReader& operator=(const CounterReader&) = delete;
    virtual ~CounterReader() = default;

    /// The counters of these interfaces, in any order; interfaces that are gone are missing. The cost grows
    /// with their number; many are read with one dump. Valid until the next call. Throws std::system_error.
    virtual std::span<const LinkCounters> Read(std::span<const std::uint32_t> ifIndexes) = 0;

    /// The driver's counters; nullopt if it has none, which is remembered for the interface until Forget, or
    /// if the kernel reports another error.
    virtual std::optional<EthernetCounters> ReadEthernet(std::uint32_t ifIndex) = 0;
    virtual void Forget(std::uint32_t ifIndex) = 0;
};

/// Opens its sockets. Throws std::system_error.
std::unique_ptr<CounterReader> MakeCounterReader();

}  // namespace net

#endif
