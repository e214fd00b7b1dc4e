// SPDX-License-Identifier: Apache-2.0
// A subscription's filter (RFC 5277, section 3.6): decides which events are told. An event that it selects
// anything of is told whole.

#ifndef AGENT_EVENTS_EVENT_FILTER_H
#define AGENT_EVENTS_EVENT_FILTER_H

#include <cstddef>

#include "agent/data/subtree_filter.h"
#include "agent/events/event.h"

namespace agent {

/// Elements of one subscription's filter: each may be compared with each event.
inline constexpr std::size_t kMaxEventFilter = 256;

/// How many elements the filter has.
std::size_t CountElements(const SubtreeFilter& filter);

/// Whether the filter, taken as a subtree filter (RFC 6241, section 6), selects something of the event. An
/// empty filter selects nothing.
bool Selects(const SubtreeFilter& filter, const EventElement& content);

}  // namespace agent

#endif
