// SPDX-License-Identifier: Apache-2.0
#include "net/counters/counters_links.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include <sys/socket.h>

#include <linux/if_link.h>
#include <linux/rtnetlink.h>

namespace net {
namespace {

/// The answers to a batch wait in the socket's buffer together; each takes less than 1 KiB of it.
constexpr std::size_t kBatch = 64;
constexpr std::size_t kAnswerBuffer = 256 * 1024;
/// An answer has 232 bytes; an error is no longer than that, since it repeats only the request.
constexpr std::size_t kAnswerSize = 512;
/// After this many reads by request, a dump updates the number of links.
constexpr unsigned kReadsBetweenDumps = 256;

struct StatsRequest {
    nlmsghdr header{};
    if_stats_msg stats{};
};

}  // namespace

void AddLinkCounters(const nlmsghdr& message, std::span<const std::uint32_t> wanted,
                     std::vector<LinkCounters>& found)
{
    if (message.nlmsg_type != RTM_NEWSTATS) return;
    const auto* header = HeaderOf<if_stats_msg>(message);
    if (header == nullptr || !std::ranges::binary_search(wanted, header->ifindex)) return;
    const auto attributes = ReadAttributes<IFLA_STATS_LINK_64 + 1>(Payload(message, sizeof *header));
    const auto bytes = attributes[IFLA_STATS_LINK_64].Bytes();
    if (bytes.empty()) return;
    rtnl_link_stats64 stats{};  // an older kernel's is shorter
    std::memcpy(&stats, bytes.data(), std::min(bytes.size(), sizeof stats));
    found.push_back({.ifIndex = header->ifindex,
                     .rxPackets = stats.rx_packets,
                     .txPackets = stats.tx_packets,
                     .rxBytes = stats.rx_bytes,
                     .txBytes = stats.tx_bytes,
                     .rxErrors = stats.rx_errors,
                     .txErrors = stats.tx_errors,
                     .rxDropped = stats.rx_dropped,
                     .txDropped = stats.tx_dropped,
                     .rxMissed = stats.rx_missed_errors,
                     .multicast = stats.multicast});
}

LinkCountersReader::LinkCountersReader()
    : m_dumps(NETLINK_ROUTE), m_requests(NETLINK_ROUTE), m_answers(kBatch * kAnswerSize)
{
    m_requests.SetReceiveBuffer(kAnswerBuffer);
}

std::span<const LinkCounters> LinkCountersReader::Read(std::span<const std::uint32_t> wanted)
{
    if (DumpIsCheaper(wanted.size(), m_links) || m_readsSinceDump >= kReadsBetweenDumps)
        Dump(wanted);
    else
        Ask(wanted);
    return m_found;
}

void LinkCountersReader::Dump(std::span<const std::uint32_t> wanted)
{
    NetlinkRequest request(RTM_GETSTATS, NLM_F_DUMP);
    if_stats_msg header{};
    header.filter_mask = IFLA_STATS_FILTER_BIT(IFLA_STATS_LINK_64);
    request.AddHeader(header);
    m_found.clear();
    std::size_t links = 0;
    const auto restart = [&] {
        m_found.clear();
        links = 0;
    };
    const bool whole = m_dumps.Request(
        request,
        [&](const nlmsghdr& message) {
            ++links;
            AddLinkCounters(message, wanted, m_found);
        },
        restart);
    m_links = links;
    m_readsSinceDump = 0;
    // If links kept changing, the dump may lack some: they are asked for one by one.
    if (!whole) AskForMissing(wanted);
}

void LinkCountersReader::AskForMissing(std::span<const std::uint32_t> wanted)
{
    const auto byIndex = [](const LinkCounters& one, const LinkCounters& other) {
        return one.ifIndex < other.ifIndex;
    };
    std::ranges::sort(m_found, byIndex);
    const auto twice = std::ranges::unique(m_found, {}, &LinkCounters::ifIndex);
    m_found.erase(twice.begin(), twice.end());
    std::vector<std::uint32_t> missing;
    for (const std::uint32_t index : wanted)
        if (!std::ranges::binary_search(m_found, index, {}, &LinkCounters::ifIndex)) missing.push_back(index);
    for (std::span<const std::uint32_t> left = missing; !left.empty();) {
        const std::size_t size = std::min(left.size(), kBatch);
        AskBatch(left.first(size));
        left = left.subspan(size);
    }
}

void LinkCountersReader::Ask(std::span<const std::uint32_t> wanted)
{
    m_found.clear();
    ++m_readsSinceDump;
    for (auto left = wanted; !left.empty();) {
        const std::size_t size = std::min(left.size(), kBatch);
        AskBatch(left.first(size));
        left = left.subspan(size);
    }
}

void LinkCountersReader::AskBatch(std::span<const std::uint32_t> batch)
{
    ++m_sequence;
    std::array<StatsRequest, kBatch> requests;
    for (std::size_t i = 0; i < batch.size(); ++i) {
        auto& [header, stats] = requests[i];
        header.nlmsg_len = sizeof(StatsRequest);
        header.nlmsg_type = RTM_GETSTATS;
        header.nlmsg_flags = NLM_F_REQUEST;
        header.nlmsg_seq = m_sequence;
        stats.ifindex = batch[i];
        stats.filter_mask = IFLA_STATS_FILTER_BIT(IFLA_STATS_LINK_64);
    }
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    ssize_t sent = -1;
    do {
        sent = ::sendto(m_requests.Descriptor(), requests.data(), batch.size() * sizeof(StatsRequest), 0,
                        reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0) throw std::system_error(errno, std::system_category(), "requests for link statistics");
    // The kernel has answered all of them by now: with the counters, or with an error if the link is gone.
    std::size_t missing = batch.size();
    while (missing > 0 && TakeAnswers(batch, missing)) {
    }
}

bool LinkCountersReader::TakeAnswers(std::span<const std::uint32_t> batch, std::size_t& missing)
{
    std::array<mmsghdr, kBatch> messages{};
    std::array<iovec, kBatch> slots{};
    std::array<sockaddr_nl, kBatch> senders{};
    for (std::size_t i = 0; i < missing; ++i) {
        slots[i] = {m_answers.data() + i * kAnswerSize, kAnswerSize};
        messages[i].msg_hdr.msg_iov = &slots[i];
        messages[i].msg_hdr.msg_iovlen = 1;
        messages[i].msg_hdr.msg_name = &senders[i];
        messages[i].msg_hdr.msg_namelen = sizeof(sockaddr_nl);
    }
    const int count = ::recvmmsg(m_requests.Descriptor(), messages.data(), static_cast<unsigned>(missing),
                                 MSG_DONTWAIT, nullptr);
    if (count < 0 && (errno == EINTR || errno == ENOBUFS)) return true;  // some were lost, others may wait
    if (count <= 0) return false;
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        if (senders[i].nl_pid != 0) continue;  // not from the kernel
        const auto& message = *reinterpret_cast<const nlmsghdr*>(slots[i].iov_base);
        const std::size_t size = messages[i].msg_len;
        if (size < sizeof message || message.nlmsg_len > size || message.nlmsg_len < sizeof message) continue;
        if (message.nlmsg_seq != m_sequence) continue;  // an answer to an earlier batch
        --missing;
        AddLinkCounters(message, batch, m_found);
    }
    return true;
}

}  // namespace net
