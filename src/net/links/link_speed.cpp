// SPDX-License-Identifier: Apache-2.0
#include "net/links/link_speed.h"

#include <cerrno>
#include <system_error>

#include <linux/ethtool.h>
#include <linux/ethtool_netlink.h>
#include <linux/genetlink.h>

#include "log/log.h"

namespace net {
namespace {

constexpr std::uint64_t kMegabit = 1'000'000;

LinkSpeed ReadSpeed(const std::array<Attribute, ETHTOOL_A_LINKMODES_DUPLEX + 1>& attributes)
{
    LinkSpeed read;
    const std::uint32_t speed = attributes[ETHTOOL_A_LINKMODES_SPEED].U32();
    if (speed != static_cast<std::uint32_t>(SPEED_UNKNOWN)) read.speed = speed * kMegabit;
    const Attribute duplex = attributes[ETHTOOL_A_LINKMODES_DUPLEX];
    if (duplex && duplex.U8() == DUPLEX_FULL) read.duplex = Duplex::kFull;
    if (duplex && duplex.U8() == DUPLEX_HALF) read.duplex = Duplex::kHalf;
    return read;
}

std::uint32_t DeviceOf(Attribute header)
{
    return ReadAttributes<ETHTOOL_A_HEADER_DEV_INDEX + 1>(header.Bytes())[ETHTOOL_A_HEADER_DEV_INDEX].U32();
}

}  // namespace

LinkSpeeds::LinkSpeeds() : m_socket(NETLINK_GENERIC)
{
    try {
        m_family = FindGenericFamily(m_socket, ETHTOOL_GENL_NAME);
    } catch (const std::system_error& error) {
        slog::Notice("no speeds of links: {}", error.what());
    }
}

NetlinkRequest LinkSpeeds::MakeRequest(std::uint32_t ifIndex) const
{
    NetlinkRequest request(m_family.id, ifIndex == 0 ? NLM_F_DUMP : 0);
    genlmsghdr header{};
    header.cmd = ETHTOOL_MSG_LINKMODES_GET;
    header.version = ETHTOOL_GENL_VERSION;
    request.AddHeader(header);
    const std::size_t nest = request.BeginNest(ETHTOOL_A_LINKMODES_HEADER);
    if (ifIndex != 0) request.AddU32(ETHTOOL_A_HEADER_DEV_INDEX, ifIndex);
    request.AddU32(ETHTOOL_A_HEADER_FLAGS, ETHTOOL_FLAG_COMPACT_BITSETS);
    request.EndNest(nest);
    return request;
}

std::optional<LinkSpeed> LinkSpeeds::Read(std::uint32_t ifIndex)
{
    if (m_family.id == 0) return std::nullopt;
    NetlinkRequest request = MakeRequest(ifIndex);
    LinkSpeed read;
    try {
        m_socket.Request(request, [&read](const nlmsghdr& message) {
            read = ReadSpeed(
                ReadAttributes<ETHTOOL_A_LINKMODES_DUPLEX + 1>(Payload(message, sizeof(genlmsghdr))));
        });
    } catch (const std::system_error& error) {
        if (error.code().value() == EOPNOTSUPP) return std::nullopt;
    }
    return read;
}

void LinkSpeeds::ReadAll(const OnSpeed& found)
{
    if (m_family.id == 0) return;
    NetlinkRequest request = MakeRequest(0);
    try {
        m_socket.Request(request, [&found](const nlmsghdr& message) {
            const auto attributes =
                ReadAttributes<ETHTOOL_A_LINKMODES_DUPLEX + 1>(Payload(message, sizeof(genlmsghdr)));
            found(DeviceOf(attributes[ETHTOOL_A_LINKMODES_HEADER]), ReadSpeed(attributes));
        });
    } catch (const std::system_error& error) {
        slog::Notice("speeds of links could not be read: {}", error.what());
    }
}

SpeedChanges::SpeedChanges(const GenericFamily& ethtool) : m_family(ethtool.id)
{
    const auto group = ethtool.Group(ETHTOOL_MCGRP_MONITOR_NAME);
    if (!group) return;
    m_told.emplace(NETLINK_GENERIC);
    m_told->Join(*group);
}

NetlinkSocket::Received SpeedChanges::Receive(const std::function<void(std::uint32_t ifIndex)>& changed)
{
    if (!m_told) return NetlinkSocket::Received::kNothing;
    return m_told->Receive([this, &changed](const nlmsghdr& message) {
        const auto* header = HeaderOf<genlmsghdr>(message);
        if (header == nullptr || message.nlmsg_type != m_family || header->cmd != ETHTOOL_MSG_LINKMODES_NTF)
            return;
        const auto attributes =
            ReadAttributes<ETHTOOL_A_LINKMODES_HEADER + 1>(Payload(message, sizeof(genlmsghdr)));
        if (const auto index = DeviceOf(attributes[ETHTOOL_A_LINKMODES_HEADER]); index != 0) changed(index);
    });
}

}  // namespace net
