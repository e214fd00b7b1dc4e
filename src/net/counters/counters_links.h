// SPDX-License-Identifier: Apache-2.0
// Reads the link statistics of interfaces by rtnetlink's RTM_GETSTATS: all of the namespace with one dump, or
// some of them with a request each, many requests a system call. It chooses the cheaper way. Used by the
// counter reader of this folder.

#ifndef NET_COUNTERS_COUNTERS_LINKS_H
#define NET_COUNTERS_COUNTERS_LINKS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "net/counters/records.h"
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

}  // namespace net

#endif
