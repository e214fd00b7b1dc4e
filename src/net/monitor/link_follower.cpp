// SPDX-License-Identifier: Apache-2.0
#include "net/monitor/link_follower.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <system_error>
#include <utility>

#include <sys/socket.h>

#include <linux/rtnetlink.h>

#include "base/worker.h"
#include "log/log.h"
#include "net/bridges/bridge_message.h"

namespace net {
namespace {

constexpr std::size_t kLinkBuffer = 2 * 1024 * 1024;
constexpr int kDatagramsATurn = 64;
constexpr std::size_t kSpeedsAtATime = 64;
constexpr std::size_t kFetchedATurn = 64 * 1024;  // bytes
constexpr int kFetchWaitMs = 5000;
constexpr std::chrono::milliseconds kTurn{2};
constexpr int kTries = 3;  // of one dump that changes interrupt

}  // namespace

LinkFollower::LinkFollower(Links& links, Bridges& bridges, std::shared_ptr<LinkSpeeds> speeds,
                           base::Worker& worker, Listener listener)
    : m_links(links),
      m_bridges(bridges),
      m_speeds(std::move(speeds)),
      m_worker(worker),
      m_listener(std::move(listener)),
      m_socket(std::make_shared<NetlinkSocket>(NETLINK_ROUTE))
{
    m_socket->SetReceiveBuffer(kLinkBuffer);
    for (const std::uint32_t group : {RTNLGRP_LINK, RTNLGRP_NEIGH}) m_socket->Join(group);
    try {
        m_socket->Join(RTNLGRP_BRVLAN);
    } catch (const std::system_error&) {  // an older kernel: VLANs come only with the ports
    }
}

bool LinkFollower::NeedsSynchronise() const
{
    return !Synchronising() && (m_lost || m_bridges.HasRoomAgain());
}

void LinkFollower::Synchronise()
{
    if (Synchronising()) return;
    ++m_mark;
    m_lost = false;
    m_bridges.ExpectAll();
    m_phase = Phase::kLinks;
    m_asked = m_ended = m_disturbed = false;
    m_tries = 0;
    m_measured.clear();
    if (m_devices.empty() && m_measuring == nullptr)
        m_speeds->ReadAll([this](std::uint32_t ifIndex, LinkSpeed speed) { m_measured[ifIndex] = speed; });
}

// Of the thread until it is done.
struct LinkFollower::Fetch {
    std::shared_ptr<NetlinkSocket> socket;
    NetlinkRequest request;
    bool asked;  // the dump is requested
    std::uint32_t sequence;
    std::vector<std::uint8_t> messages{};  // each at a multiple of NLMSG_ALIGNTO
    bool lost = false;
    std::string failure{};

    // Until the end of the dump, or for one turn of the loop.
    void Run()
    {
        try {
            while (!asked && messages.size() < kFetchedATurn) Take();
            for (bool ended = false; asked && !ended && messages.size() < kFetchedATurn;) ended = Take();
        } catch (const std::system_error& error) {
            failure = error.what();
        }
    }

private:
    // One datagram. A dump begins with an empty queue, so that there is room for the answers.
    bool Take()
    {
        bool ended = false;
        const auto received = socket->Receive([&](const nlmsghdr& message) {
            const auto* bytes = reinterpret_cast<const std::uint8_t*>(&message);
            messages.insert(messages.end(), bytes, bytes + message.nlmsg_len);
            messages.resize(NLMSG_ALIGN(messages.size()));
            const bool last = message.nlmsg_type == NLMSG_ERROR || message.nlmsg_type == NLMSG_DONE;
            ended = ended || (last && asked && socket->IsAnswer(message, sequence));
        });
        if (received == NetlinkSocket::Received::kLost) lost = true;
        if (received != NetlinkSocket::Received::kNothing) return ended;
        if (asked && !socket->Wait(kFetchWaitMs))
            throw std::system_error(ETIMEDOUT, std::system_category(), "netlink answer");
        if (!asked) sequence = socket->Send(request);
        asked = true;
        return false;
    }
};

bool LinkFollower::Turn()
{
    if (m_fetching != nullptr) return false;
    if (Synchronising() && m_turn) {
        FetchSome();
        return false;
    }
    bool more = false;
    try {
        more = TakeSome();
    } catch (const std::system_error& error) {
        Failed(error.what());
        m_phase = Phase::kFollowing;  // a dump that could not be requested has no end
        m_asked = m_ended = false;
    }
    MeasureSome();
    return more;
}

/// Logs the first of a series of failures.
void LinkFollower::Failed(const std::string& reason)
{
    if (!std::exchange(m_failing, true))
        slog::Notice("links can't be read: {}; asking for them until they can", reason);
    m_lost = true;
}

bool LinkFollower::TakeSome()
{
    const auto end = std::chrono::steady_clock::now() + kTurn;
    bool more = true;
    for (int i = 0; i < kDatagramsATurn && more && std::chrono::steady_clock::now() < end; ++i) {
        const auto received = m_socket->Receive([this](const nlmsghdr& message) { Take(message); });
        if (received == NetlinkSocket::Received::kLost) m_lost = true;
        if (m_ended) EndPhase();
        if (received != NetlinkSocket::Received::kNothing) continue;
        // A dump begins with an empty queue, so that there is room for the answers.
        if (Synchronising() && !m_asked)
            BeginPhase();
        else
            more = false;
    }
    return more;
}

void LinkFollower::FetchSome()
{
    const auto fetch = std::make_shared<Fetch>(Fetch{m_socket, PhaseDump(), m_asked, m_sequence});
    m_fetching = m_worker.Do([fetch] { fetch->Run(); }, [this, fetch] { TakeFetched(*fetch); });
}

void LinkFollower::TakeFetched(Fetch& fetched)
{
    m_fetching.reset();
    if (fetched.asked && !m_asked) m_disturbed = false;
    m_asked = fetched.asked;
    m_sequence = fetched.sequence;
    if (fetched.lost) m_lost = true;
    ForEachMessage(fetched.messages, [this](const nlmsghdr& message) { Take(message); });
    if (!fetched.failure.empty()) {
        Failed(fetched.failure);
        m_phase = Phase::kFollowing;
        m_asked = m_ended = false;
    }
    if (m_ended) EndPhase();
    MeasureSome();
    m_turn();
}

NetlinkRequest LinkFollower::PhaseDump() const
{
    return m_phase == Phase::kLinks ? LinkDump() : m_phase == Phase::kPorts ? PortDump() : AddressDump();
}

void LinkFollower::BeginPhase()
{
    NetlinkRequest request = PhaseDump();
    m_sequence = m_socket->Send(request);
    m_asked = true;
    m_ended = m_disturbed = false;
}

void LinkFollower::EndPhase()
{
    m_ended = m_asked = false;
    if (m_disturbed && !m_lost && ++m_tries < kTries) return;  // repeats the dump
    if (m_disturbed) m_lost = true;
    m_tries = 0;
    switch (m_phase) {
    case Phase::kLinks:
        m_phase = Phase::kPorts;
        break;
    case Phase::kPorts:
        m_phase = Phase::kAddresses;
        break;
    case Phase::kAddresses:
    case Phase::kFollowing:
        m_phase = Phase::kFollowing;
        m_measured.clear();
        if (m_lost) return;
        m_failing = false;
        Sweep();
    }
}

void LinkFollower::Sweep()
{
    std::vector<std::uint32_t> gone;
    for (const auto& [ifIndex, device] : m_devices)
        if (device.mark != m_mark) gone.push_back(ifIndex);
    for (const std::uint32_t ifIndex : gone) RemoveLink(ifIndex);
    m_bridges.SweepPorts(m_mark);
    m_bridges.SweepAddresses(m_mark);
}

void LinkFollower::Take(const nlmsghdr& message)
{
    if (m_asked && m_socket->IsAnswer(message, m_sequence)) {
        if ((message.nlmsg_flags & NLM_F_DUMP_INTR) != 0) m_disturbed = true;
        if (message.nlmsg_type == NLMSG_ERROR || message.nlmsg_type == NLMSG_DONE) {
            m_ended = true;
            if (const auto error = ErrorOf(message)) {
                // A kernel without bridge support has nothing to dump.
                if (error->number == EOPNOTSUPP) return;
                Failed(error->text + " (" + std::to_string(error->number) + ")");
            }
            return;
        }
    }
    switch (message.nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
        TakeLink(message);
        break;
    case RTM_NEWNEIGH:
    case RTM_DELNEIGH:
        TakeAddress(message);
        break;
    case RTM_NEWVLAN:
    case RTM_DELVLAN:
        TakeBridge(message);
        break;
    default:
        break;
    }
}

void LinkFollower::TakeLink(const nlmsghdr& message)
{
    if (LinkIndex(message, AF_BRIDGE) != 0) return TakeBridge(message);
    if (message.nlmsg_type == RTM_DELLINK) {
        if (const std::uint32_t gone = LinkIndex(message, AF_UNSPEC); gone != 0) RemoveLink(gone);
        return;
    }
    auto read = ReadLink(message);
    if (!read) return;
    const std::uint32_t ifIndex = read->link.index;
    const auto [place, isNew] = m_devices.try_emplace(ifIndex);
    Device& device = place->second;
    device.mark = m_mark;
    bool measure = false;
    if (isNew) {
        const auto measured = m_measured.find(ifIndex);
        measure = measured == m_measured.end();
        if (!measure) device.speed = measured->second;
    }
    read->link.speed = device.speed.speed;
    read->link.duplex = device.speed.duplex;
    const Link* before = m_links.Find(ifIndex);
    const bool changed = before == nullptr || *before != read->link;
    if (!changed && device.placement == read->placement) return;
    if (measure || !isNew) m_unmeasured.insert(ifIndex);
    device.placement = read->placement;
    if (read->link.kind == "bridge")
        m_bridges.SetBridge(ifIndex, {read->link.vlanFiltering, read->placement.spanningTree,
                                      read->placement.multicastSnooping});
    m_listener.changed(read->link, read->placement);
    m_links.Put(std::move(read->link));
}

void LinkFollower::TakeBridge(const nlmsghdr& message)
{
    if (const auto vlans = ReadVlans(message)) {
        if (vlans->removed)
            m_bridges.RemoveVlans(vlans->ifIndex, vlans->vlans);
        else
            m_bridges.AddVlans(vlans->ifIndex, vlans->vlans);
    } else if (message.nlmsg_type == RTM_DELLINK) {
        m_bridges.RemovePort(LinkIndex(message, AF_BRIDGE));
    } else if (const auto port = ReadPort(message)) {
        m_bridges.PutPort(port->ifIndex, port->bridge, port->state, port->vlans, m_mark);
    }
}

void LinkFollower::TakeAddress(const nlmsghdr& message)
{
    const auto read = ReadAddress(message);
    if (!read) return;
    if (read->removed)
        m_bridges.RemoveAddress(read->bridge, read->vlan, read->mac);
    else
        m_bridges.PutAddress(read->bridge, read->vlan, read->mac, read->address, m_mark);
}

void LinkFollower::RemoveLink(std::uint32_t ifIndex)
{
    if (m_devices.erase(ifIndex) == 0) return;
    m_unmeasured.erase(ifIndex);
    m_bridges.RemoveDevice(ifIndex);
    m_listener.removed(ifIndex);
    m_links.Remove(ifIndex);
}

void LinkFollower::Measure(std::uint32_t ifIndex)
{
    if (m_devices.contains(ifIndex)) m_unmeasured.insert(ifIndex);
}

void LinkFollower::MeasureAll()
{
    for (const auto& [ifIndex, device] : m_devices) m_unmeasured.insert(ifIndex);
}

/// At most kSpeedsAtATime at once, since the loop takes all their answers in one go.
void LinkFollower::MeasureSome()
{
    if (m_measuring != nullptr) return;
    const auto measuring = std::make_shared<Measuring>();
    while (!m_unmeasured.empty() && measuring->links.size() < kSpeedsAtATime) {
        const std::uint32_t ifIndex = *m_unmeasured.begin();
        m_unmeasured.erase(m_unmeasured.begin());
        const auto found = m_devices.find(ifIndex);
        if (found != m_devices.end() && found->second.hasSpeed) measuring->links.push_back(ifIndex);
    }
    if (measuring->links.empty()) return;
    m_measuring = m_worker.Do(
        [measuring, speeds = m_speeds] {
            for (const std::uint32_t ifIndex : measuring->links)
                measuring->speeds.push_back(speeds->Read(ifIndex));
        },
        [this, measuring] {
            m_measuring.reset();
            TakeMeasured(*measuring);
            MeasureSome();
        });
}

void LinkFollower::TakeMeasured(const Measuring& measured)
{
    for (std::size_t i = 0; i < measured.links.size(); ++i) {
        const std::uint32_t ifIndex = measured.links[i];
        const auto found = m_devices.find(ifIndex);
        const Link* link = m_links.Find(ifIndex);
        if (found == m_devices.end() || link == nullptr) continue;
        Device& device = found->second;
        device.hasSpeed = measured.speeds[i].has_value();
        const LinkSpeed speed = measured.speeds[i].value_or(LinkSpeed{});
        if (speed == device.speed) continue;
        device.speed = speed;
        Link changed = *link;
        changed.speed = speed.speed;
        changed.duplex = speed.duplex;
        m_listener.changed(changed, device.placement);
        m_links.Put(std::move(changed));
    }
}

}  // namespace net
