// SPDX-License-Identifier: Apache-2.0
// One event of the stream NETCONF (RFC 5277): its content as a small tree, for filters and the rules of
// access, and as the text that all subscribers share.

#ifndef AGENT_EVENTS_EVENT_H
#define AGENT_EVENTS_EVENT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct lysc_node;

namespace agent {

/// A node of the configuration, as the rules of access ask for it.
struct ConfigPlace {
    const lysc_node* node = nullptr;
    std::vector<std::string> keys;  // of the list entries on the way from the root, its own included
};

struct EventElement {
    std::string_view ns;    // outlives the event: of the schema, or a constant
    std::string_view name;  // likewise
    std::string text{};     // not escaped; of an element without children
    std::vector<EventElement> children{};
    /// Prefixes in the text and their namespaces (an instance-identifier has some).
    std::vector<std::pair<std::string, std::string>> prefixes{};
    /// What the element tells of; null if it is about no configuration.
    std::shared_ptr<const ConfigPlace> about{};
};

struct Event {
    std::int64_t timeUs = 0;          // since the epoch
    const lysc_node* kind = nullptr;  // the notification in the schema, for the rules of access
    EventElement content;
    bool hasPlaces = false;  // an element is about configuration
    std::string text;        // the <notification>
    std::size_t bytes = 0;   // an estimate of its memory
};
using EventPtr = std::shared_ptr<const Event>;

/// Fills in text, hasPlaces and bytes.
EventPtr MakeEvent(std::int64_t timeUs, const lysc_node* kind, EventElement content);

/// The <notification> of this content.
std::string NotificationText(std::int64_t timeUs, const EventElement& content);

/// The content without the elements about places that `visible` denies.
EventElement VisiblePart(const EventElement& content,
                         const std::function<bool(const ConfigPlace& place)>& visible);

/// "2026-11-21T03:20:11.123456Z"
std::string EventTime(std::int64_t timeUs);

}  // namespace agent

#endif
