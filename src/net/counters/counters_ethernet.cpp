// SPDX-License-Identifier: Apache-2.0
#include "net/counters/counters_ethernet.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <linux/ethtool.h>
#include <linux/ethtool_netlink.h>
#include <linux/genetlink.h>

namespace net {
namespace {

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

}  // namespace

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
