// SPDX-License-Identifier: Apache-2.0
// The replay log: the latest events, bounded by their number and by their memory. It is also what subscribers
// read from, each at its own place, so an event is kept once however many there are.

#ifndef AGENT_EVENTS_EVENT_LOG_H
#define AGENT_EVENTS_EVENT_LOG_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "agent/events/event.h"

namespace agent {

class EventLog {
public:
    struct Limits {
        std::size_t events = 10'000;
        std::size_t bytes = std::size_t{16} << 20;
    };
    /// `createdUs`: now, in microseconds since the epoch.
    EventLog(const Limits& limits, std::int64_t createdUs) : m_limits(limits), m_createdUs(createdUs) {}

    /// Appends the event and drops the oldest ones beyond the limits. The newest is always kept.
    void Add(EventPtr event);

    /// Events are numbered from 1 in the order in which they were added. First is the oldest that is there;
    /// End the number that the next one gets.
    [[nodiscard]] std::uint64_t First() const { return m_first; }
    [[nodiscard]] std::uint64_t End() const { return m_first + m_events.size(); }
    /// `number` is at least First and less than End.
    [[nodiscard]] const EventPtr& At(std::uint64_t number) const { return m_events[number - m_first]; }

    [[nodiscard]] std::int64_t CreatedUs() const { return m_createdUs; }
    /// The time of the last event that was dropped; nullopt if none was.
    [[nodiscard]] std::optional<std::int64_t> AgedUs() const { return m_agedUs; }
    [[nodiscard]] std::size_t Bytes() const { return m_bytes; }

private:
    Limits m_limits;
    std::int64_t m_createdUs;
    std::deque<EventPtr> m_events;
    std::uint64_t m_first = 1;
    std::size_t m_bytes = 0;
    std::optional<std::int64_t> m_agedUs;
};

}  // namespace agent

#endif
