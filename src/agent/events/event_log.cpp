// SPDX-License-Identifier: Apache-2.0
#include "agent/events/event_log.h"

#include <utility>

namespace agent {

void EventLog::Add(EventPtr event)
{
    m_bytes += event->bytes;
    m_events.push_back(std::move(event));
    while (m_events.size() > 1 && (m_events.size() > m_limits.events || m_bytes > m_limits.bytes)) {
        m_bytes -= m_events.front()->bytes;
        m_agedUs = m_events.front()->timeUs;
        m_events.pop_front();
        ++m_first;
    }
}

}  // namespace agent
