// SPDX-License-Identifier: Apache-2.0
#include "net/counters/kernel_counters.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include <sys/socket.h>

#include <linux/ethtool.h>
#include <linux/ethtool_netlink.h>
#include <linux/genetlink.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include "net/counters/aggregate_members.h"

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

using Counter = std::optional<std::uint64_t> EthernetCounters::*;

/// The counter for a statistic of a group; null if it is not exported.
Counter Place(std::uint32_t group, std::uint16_t statistic)
{
    if (group == ETHTOOL_STATS_ETH_PHY)
        return statistic == ETHTOOL_A_STATS_ETH_PHY_5_SYM_ERR ? &EthernetCounters::symbolErrors : nullptr;
    if (group != ETHTOOL_STATS_ETH_MAC) return nullptr;
    switch (statistic) {
    case ETHTOOL_A_STATS_ETH_MAC_3_SINGLE_COL:
        return &EthernetCounters::singleCollisions;
    case ETHTOOL_A_STATS_ETH_MAC_4_MULTI_COL:
        return &EthernetCounters::multipleCollisions;
    case ETHTOOL_A_STATS_ETH_MAC_6_FCS_ERR:
        return &EthernetCounters::fcsErrors;
    case ETHTOOL_A_STATS_ETH_MAC_7_ALIGN_ERR:
        return &EthernetCounters::alignmentErrors;
    case ETHTOOL_A_STATS_ETH_MAC_9_TX_DEFER:
        return &EthernetCounters::deferred;
    case ETHTOOL_A_STATS_ETH_MAC_10_LATE_COL:
        return &EthernetCounters::lateCollisions;
    case ETHTOOL_A_STATS_ETH_MAC_11_XS_COL:
        return &EthernetCounters::excessiveCollisions;
    case ETHTOOL_A_STATS_ETH_MAC_12_TX_INT_ERR:
        return &EthernetCounters::macTransmitErrors;
    case ETHTOOL_A_STATS_ETH_MAC_13_CS_ERR:
        return &EthernetCounters::carrierSenseErrors;
    case ETHTOOL_A_STATS_ETH_MAC_15_RX_INT_ERR:
        return &EthernetCounters::macReceiveErrors;
    case ETHTOOL_A_STATS_ETH_MAC_25_TOO_LONG_ERR:
        return &EthernetCounters::frameTooLongs;
    default:
        return nullptr;
    }
}

void ReadGroup(Attribute nest, EthernetCounters& counters)
{
    const auto group = ReadAttributes<ETHTOOL_A_STATS_GRP_ID + 1>(nest.Bytes())[ETHTOOL_A_STATS_GRP_ID];
    if (group.Bytes().size() != sizeof(std::uint32_t)) return;
    // Each statistic has a nest of its own.
    ForEachAttribute(nest.Bytes(), [&](Attribute entry) {
        if (entry.Type() != ETHTOOL_A_STATS_GRP_STAT) return;
        ForEachAttribute(entry.Bytes(), [&](Attribute statistic) {
            const Counter place = Place(group.U32(), statistic.Type());
            if (place != nullptr && statistic.Bytes().size() == sizeof(std::uint64_t))
                counters.*place = statistic.U64();
        });
    });
}

/// All kinds of counters behind one interface.
class KernelCounterReader final : public CounterReader {
public:
    std::span<const LinkCounters> Read(std::span<const std::uint32_t> ifIndexes) override
    {
        m_members.Refresh();
        if (ifIndexes.empty()) return {};
        m_wanted.assign(ifIndexes.begin(), ifIndexes.end());
        std::ranges::sort(m_wanted);
        m_wanted.erase(std::ranges::unique(m_wanted).begin(), m_wanted.end());
        return m_links.Read(m_wanted);
    }

    std::optional<EthernetCounters> ReadEthernet(std::uint32_t ifIndex) override
    {
        return m_ethernet.Read(ifIndex);
    }

    std::optional<AggregateMember> ReadMember(std::uint32_t ifIndex) override
    {
        return m_members.Read(ifIndex);
    }

    void Forget(std::uint32_t ifIndex) override { m_ethernet.Forget(ifIndex); }

private:
    LinkCountersReader m_links;
    EthernetCountersReader m_ethernet;
    AggregateMembers m_members;
    std::vector<std::uint32_t> m_wanted;
};

}  // namespace

std::unique_ptr<CounterReader> MakeCounterReader() { return std::make_unique<KernelCounterReader>(); }

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
    std::ranges::sort(m_found, {}, &LinkCounters::ifIndex);
    const auto twice = std::ranges::unique(m_found, {}, &LinkCounters::ifIndex);
    m_found.erase(twice.begin(), twice.end());
    std::vector<std::uint32_t> missing;
    for (const std::uint32_t index : wanted)
        if (!std::ranges::binary_search(m_found, index, {}, &LinkCounters::ifIndex)) missing.push_back(index);
    AskInBatches(missing);
}

void LinkCountersReader::Ask(std::span<const std::uint32_t> wanted)
{
    m_found.clear();
    ++m_readsSinceDump;
    AskInBatches(wanted);
}

void LinkCountersReader::AskInBatches(std::span<const std::uint32_t> wanted)
{
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

EthernetCounters ReadEthernetStats(const nlmsghdr& message)
{
    EthernetCounters counters;
    ForEachAttribute(Payload(message, sizeof(genlmsghdr)), [&counters](Attribute attribute) {
        if (attribute.Type() == ETHTOOL_A_STATS_GRP) ReadGroup(attribute, counters);
    });
    return counters;
}

NetlinkRequest MakeEthernetStatsRequest(std::uint16_t family, std::uint32_t ifIndex)
{
    NetlinkRequest request(family, 0);
    genlmsghdr header{};
    header.cmd = ETHTOOL_MSG_STATS_GET;
    header.version = ETHTOOL_GENL_VERSION;
    request.AddHeader(header);
    const auto device = request.BeginNest(ETHTOOL_A_STATS_HEADER);
    request.AddU32(ETHTOOL_A_HEADER_DEV_INDEX, ifIndex);
    request.EndNest(device);
    const auto groups = request.BeginNest(ETHTOOL_A_STATS_GROUPS);
    request.AddBytes(ETHTOOL_A_BITSET_NOMASK, {});
    request.AddU32(ETHTOOL_A_BITSET_SIZE, ETHTOOL_STATS_ETH_MAC + 1);
    request.AddU32(ETHTOOL_A_BITSET_VALUE, 1U << ETHTOOL_STATS_ETH_PHY | 1U << ETHTOOL_STATS_ETH_MAC);
    request.EndNest(groups);
    return request;
}

EthernetCountersReader::EthernetCountersReader() : m_socket(NETLINK_GENERIC)
{
    try {
        m_family = FindGenericFamily(m_socket, ETHTOOL_GENL_NAME).id;
    } catch (const std::system_error& error) {
        if (error.code().value() != ENOENT) throw;
    }
}

std::optional<EthernetCounters> EthernetCountersReader::Read(std::uint32_t ifIndex)
{
    if (!m_family || m_without.contains(ifIndex)) return std::nullopt;
    EthernetCounters counters;
    ++m_asked;
    try {
        NetlinkRequest request = MakeEthernetStatsRequest(*m_family, ifIndex);
        m_socket.Request(request,
                         [&counters](const nlmsghdr& message) { counters = ReadEthernetStats(message); });
    } catch (const std::system_error& error) {
        // Another error may pass: the device may be asleep.
        if (error.code().value() != EOPNOTSUPP) return std::nullopt;
    }
    if (counters.Any()) return counters;
    m_without.insert(ifIndex);
    return std::nullopt;
}

}  // namespace net
