// SPDX-License-Identifier: Apache-2.0
// One subscriber's way through the stream (RFC 5277): its place in the replay log, its filter, its times, and
// what the rules of access let it see. It keeps no events of its own: what the log has dropped before this
// subscriber was told of it is counted and told as events-lost.

#ifndef AGENT_EVENTS_EVENT_SUBSCRIPTION_H
#define AGENT_EVENTS_EVENT_SUBSCRIPTION_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/access/access.h"
#include "agent/data/subtree_filter.h"
#include "agent/events/events.h"
#include "base/timers.h"

namespace agent {

class EventSubscription {
public:
    struct Wanted {
        std::optional<SubtreeFilter> filter;  // nullopt: everything
        std::optional<std::int64_t> startUs;  // since the epoch; nullopt: no replay
        std::optional<std::int64_t> stopUs;   // nullopt: no end; may be past or to come
    };
    /// `wake` is called from the loop when Take may have something again. All references must outlive this.
    EventSubscription(Events& events, base::Timers& timers, const Access& access,
                      std::shared_ptr<const AccessGrant> grant, Wanted wanted, std::function<void()> wake);
    ~EventSubscription();
    EventSubscription(const EventSubscription&) = delete;
    EventSubscription& operator=(const EventSubscription&) = delete;

    /// The next notifications, in their order: at least one if there is any, and no further one after
    /// `maxBytes`. Empty if there is nothing now; `wake` is then called when that changes. Looks at a bounded
    /// number of events.
    std::vector<std::shared_ptr<const std::string>> Take(std::size_t maxBytes);

    /// Whether the last notification, notificationComplete, has been taken.
    [[nodiscard]] bool IsOver() const { return m_over; }

private:
    using Text = std::shared_ptr<const std::string>;
    /// The text of the event for this subscriber; null if it is not told.
    Text TextOf(const EventPtr& event);
    [[nodiscard]] bool IsWanted(std::int64_t timeUs) const;
    /// What comes between two events or after the last: events-lost, replayComplete, notificationComplete.
    Text Marker();
    void AwaitStop();
    [[nodiscard]] bool MayRead(const ConfigPlace& place) const;

    Events& m_events;
    base::Timers& m_timers;
    const Access& m_access;
    std::shared_ptr<const AccessGrant> m_grant;
    Wanted m_wanted;
    std::function<void()> m_wake;
    std::shared_ptr<void> m_news;
    std::shared_ptr<void> m_timer;  // for stopTime, and for what is left to look at
    std::uint64_t m_next;           // number of the event to look at next
    std::uint64_t m_replayEnd;      // the first event that is not replayed
    bool m_replaying;
    bool m_over = false;
};

}  // namespace agent

#endif
