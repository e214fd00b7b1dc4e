// SPDX-License-Identifier: Apache-2.0
// Follows links, bridge ports, their VLANs and learned addresses on one rtnetlink socket, dumps included, so
// that notifications and dumps arrive in the order of the changes. It has no loop of its own: its owner calls
// Turn when the socket is readable. Links do not report their speeds; the worker asks for them. Used by the
// monitor.

#ifndef NET_MONITOR_LINK_FOLLOWER_H
#define NET_MONITOR_LINK_FOLLOWER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "net/bridges/bridges.h"
#include "net/links/link_message.h"
#include "net/links/link_speed.h"
#include "net/links/links.h"
#include "netlink/netlink.h"

namespace base {
class Worker;
}  // namespace base

namespace net {

class LinkFollower {
public:
    /// Called before the table's observers.
    struct Listener {
        std::function<void(const Link& link, const Placement& placement)> changed;
        std::function<void(std::uint32_t ifIndex)> removed;
    };

    /// Opens the socket. Throws std::system_error. Tables and worker must outlive it.
    LinkFollower(Links& links, Bridges& bridges, std::shared_ptr<LinkSpeeds> speeds, base::Worker& worker,
                 Listener listener);

    [[nodiscard]] int Descriptor() const { return m_socket->Descriptor(); }
    void SetReceiveBuffer(std::size_t bytes) { m_socket->SetReceiveBuffer(bytes); }

    /// Begins to dump everything, unless a dump runs already; Turn takes the answers. What the dumps do not
    /// contain is removed at their end.
    void Synchronise();
    /// Whether the dumps have not ended yet.
    [[nodiscard]] bool Synchronising() const { return m_phase != Phase::kFollowing; }
    /// Whether messages were lost or addresses did not fit: call Synchronise a little later.
    [[nodiscard]] bool NeedsSynchronise() const;

    /// From now on the worker asks for the dumps: the kernel answers none while anybody changes links, in any
    /// namespace. While one is under way Turn takes nothing. `turn` is called from the loop when a dump has
    /// ended, and is to call Turn.
    void DumpBeside(std::function<void()> turn) { m_turn = std::move(turn); }

    /// Takes a bounded number of messages. Returns true if more may be waiting. Does not throw: after an
    /// error, for example if the kernel has no memory for an answer, NeedsSynchronise is true.
    bool Turn();

    /// Asks for the speed of this link, or of all, from the next turn on.
    void Measure(std::uint32_t ifIndex);
    void MeasureAll();

private:
    enum class Phase : std::uint8_t { kFollowing, kLinks, kPorts, kAddresses };

    struct Device {
        Placement placement;
        LinkSpeed speed;
        bool hasSpeed = true;  // until the driver says otherwise
        std::uint32_t mark = 0;
    };

    /// The links whose speed the worker asks for, and the answers; nullopt for a link without a speed.
    struct Measuring {
        std::vector<std::uint32_t> links;
        std::vector<std::optional<LinkSpeed>> speeds;
    };

    // What the worker takes of a dump and of what comes before it and meanwhile, in the order in which it
    // came.
    struct Fetch;

    bool TakeSome();
    void FetchSome();
    void TakeFetched(Fetch& fetched);
    [[nodiscard]] NetlinkRequest PhaseDump() const;
    void Take(const nlmsghdr& message);
    void TakeLink(const nlmsghdr& message);
    void TakeBridge(const nlmsghdr& message);
    void TakeAddress(const nlmsghdr& message);
    void RemoveLink(std::uint32_t ifIndex);

    void BeginPhase();
    void EndPhase();
    void Failed(const std::string& reason);
    void Sweep();
    void MeasureSome();
    void TakeMeasured(const Measuring& measured);

    Links& m_links;
    Bridges& m_bridges;
    std::shared_ptr<LinkSpeeds> m_speeds;  // the worker's while m_measuring
    base::Worker& m_worker;
    Listener m_listener;
    std::shared_ptr<NetlinkSocket> m_socket;  // the worker's while m_fetching
    std::function<void()> m_turn;             // empty: dumps are asked for in Turn
    std::shared_ptr<void> m_fetching;

    std::unordered_map<std::uint32_t, Device> m_devices;
    std::unordered_set<std::uint32_t> m_unmeasured;
    std::unordered_map<std::uint32_t, LinkSpeed> m_measured;  // only while synchronising
    std::shared_ptr<void> m_measuring;

    Phase m_phase = Phase::kFollowing;
    bool m_asked = false;      // the dump of this phase is requested
    bool m_ended = false;      // and has ended
    bool m_disturbed = false;  // but changes interrupted it
    bool m_lost = false;
    bool m_failing = false;  // and that is logged
    int m_tries = 0;
    std::uint32_t m_sequence = 0;
    std::uint32_t m_mark = 1;
};

}  // namespace net

#endif
