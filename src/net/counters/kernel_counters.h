// SPDX-License-Identifier: Apache-2.0
// Reads the counters of interfaces in the kernel: link statistics by rtnetlink's RTM_GETSTATS, and the IEEE
// 802.3 counters that a driver keeps by ethtool netlink (ETHTOOL_MSG_STATS_GET, the groups eth-mac and
// eth-phy). The counter reader (counters.h) is made of both and of aggregate_members.h.

#ifndef NET_COUNTERS_KERNEL_COUNTERS_H
#define NET_COUNTERS_KERNEL_COUNTERS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <unordered_set>
#include <vector>

#include "net/counters/counters.h"
#include "netlink/netlink.h"

namespace net {

/// Adds one message's counters if its interface is among `wanted` (ascending). Safe on any payload.
void AddLinkCounters(const nlmsghdr& message, std::span<const std::uint32_t> wanted,
                     std::vector<LinkCounters>& found);

/// Measured with virtual Ethernet (bench/counters_bench.cpp, Linux 6.18): a dump costs 0.25 to 0.4 us for
/// each link of the namespace, a request 1.3 us for each interface with 256 links and 1.7 us with 4,096,
/// since the kernel's search takes longer. In both cases the costs are equal at a fifth of all links.
[[nodiscard]] constexpr bool DumpIsCheaper(std::size_t wanted, std::size_t links)
{
    return wanted * 5 >= links;
}

/// All interfaces of the namespace with one dump, or some of them with a request each, many requests a system
/// call. It chooses the cheaper way.
class LinkCountersReader {
public:
    /// Throws std::system_error.
    LinkCountersReader();

    /// The counters of `wanted` (ascending), by the cheaper way, judged by the number of links in the last
    /// dump; a dump is made now and then to update it. Valid until the next call. Throws std::system_error.
    std::span<const LinkCounters> Read(std::span<const std::uint32_t> wanted);

    /// One way each; the result is in Found. They throw std::system_error.
    void Dump(std::span<const std::uint32_t> wanted);
    void Ask(std::span<const std::uint32_t> wanted);
    [[nodiscard]] std::span<const LinkCounters> Found() const { return m_found; }

private:
    void AskInBatches(std::span<const std::uint32_t> wanted);
    void AskBatch(std::span<const std::uint32_t> batch);
    bool TakeAnswers(std::span<const std::uint32_t> batch, std::size_t& missing);
    void AskForMissing(std::span<const std::uint32_t> wanted);

    NetlinkSocket m_dumps;
    NetlinkSocket m_requests;
    std::uint32_t m_sequence = 0;  // of m_requests
    std::size_t m_links = 0;       // in the last dump
    unsigned m_readsSinceDump = 0;
    std::vector<LinkCounters> m_found;
    std::vector<std::byte> m_answers;  // one slot for each interface of a batch
};

/// The counters of one ETHTOOL_MSG_STATS_GET_REPLY; absent if it lacks them. Safe on any payload.
/// sqeTestErrors is always absent: ethtool netlink has no such statistic.
[[nodiscard]] EthernetCounters ReadEthernetStats(const nlmsghdr& message);

/// A request for both groups of one interface; `family` is ethtool's number.
[[nodiscard]] NetlinkRequest MakeEthernetStatsRequest(std::uint16_t family, std::uint32_t ifIndex);

/// Remembers the interfaces whose drivers keep no counters.
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
