// SPDX-License-Identifier: Apache-2.0
#include "agent/events/event_subscription.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <chrono>
#include <span>
#include <utility>

#include "agent/events/event_filter.h"

namespace agent {
namespace {

/// How many events are looked at in one turn of the loop.
constexpr std::size_t kLooksAtOnce = 256;

/// The clock may be set while a subscription waits for its end, so it is looked at so often.
constexpr std::chrono::milliseconds kLongestWait{60'000};

}  // namespace

EventSubscription::EventSubscription(Events& events, base::Timers& timers, const Access& access,
                                     std::shared_ptr<const AccessGrant> grant, Wanted wanted,
                                     std::function<void()> wake)
    : m_events(events),
      m_timers(timers),
      m_access(access),
      m_grant(std::move(grant)),
      m_wanted(std::move(wanted)),
      m_wake(std::move(wake)),
      m_news(events.OnNews(m_wake)),
      m_next(m_wanted.startUs ? events.Log().First() : events.Log().End()),
      m_replayEnd(events.Log().End()),
      m_replaying(m_wanted.startUs.has_value())
{
}

EventSubscription::~EventSubscription() = default;

bool EventSubscription::IsWanted(std::int64_t timeUs) const
{
    if (m_replaying && timeUs < *m_wanted.startUs) return false;
    return !m_wanted.stopUs || timeUs <= *m_wanted.stopUs;
}

bool EventSubscription::MayRead(const ConfigPlace& place) const
{
    if (place.node == nullptr) return m_grant->ReadsAll();
    // Parents first: what is below a hidden node is hidden.
    std::vector<const lysc_node*> way;
    for (const lysc_node* node = place.node; node != nullptr; node = lysc_data_parent(node))
        way.push_back(node);
    std::reverse(way.begin(), way.end());
    std::size_t keys = 0;
    for (const lysc_node* node : way) {
        if (node->nodetype == LYS_LIST)
            for (const lysc_node* key = lysc_node_child(node); key != nullptr && lysc_is_key(key);
                 key = key->next)
                ++keys;
        const std::span<const std::string> known(place.keys.data(), std::min(keys, place.keys.size()));
        const Visibility visibility = m_grant->Reading(node, known);
        if (visibility == Visibility::kHidden) return false;
        if (visibility == Visibility::kWhole) return true;
    }
    return true;
}

EventSubscription::Text EventSubscription::TextOf(const EventPtr& event)
{
    if (!IsWanted(event->timeUs) || !m_grant->MayReceive(event->kind)) return nullptr;
    const bool isWhole = m_grant->ReadsAll() || !event->hasPlaces;
    if (isWhole) {
        if (m_wanted.filter && !Selects(*m_wanted.filter, event->content)) return nullptr;
        return {event, &event->text};
    }
    // What the user may not read is not there, for the filter either.
    const EventElement part =
        VisiblePart(event->content, [this](const ConfigPlace& place) { return MayRead(place); });
    if (m_wanted.filter && !Selects(*m_wanted.filter, part)) return nullptr;
    return std::make_shared<const std::string>(NotificationText(event->timeUs, part));
}

EventSubscription::Text EventSubscription::Marker()
{
    const auto text = [](std::string marker) {
        return std::make_shared<const std::string>(std::move(marker));
    };
    const EventLog& log = m_events.Log();
    if (m_next < log.First()) {
        // At a replay's beginning nothing is lost: it begins with the oldest event that is there.
        const std::uint64_t lost = log.First() - std::exchange(m_next, log.First());
        return text(m_events.EventsLost(lost));
    }
    if (m_replaying && m_next >= m_replayEnd) {
        m_replaying = false;
        return text(m_events.ReplayComplete());
    }
    if (!m_replaying && m_next == log.End() && m_wanted.stopUs && m_events.Now() > *m_wanted.stopUs) {
        m_over = true;
        return text(m_events.NotificationComplete());
    }
    return nullptr;
}

std::vector<EventSubscription::Text> EventSubscription::Take(std::size_t maxBytes)
{
    std::vector<Text> texts;
    if (m_access.Generation() != m_grant->Generation()) m_grant = m_access.Grant(m_grant->User());
    std::size_t bytes = 0;
    for (std::size_t looks = 0; !m_over && bytes < maxBytes; ++looks) {
        Text text = Marker();
        if (!text) {
            if (m_next == m_events.Log().End()) {
                AwaitStop();
                break;
            }
            if (looks >= kLooksAtOnce) {
                if (texts.empty()) m_timer = m_timers.After(std::chrono::milliseconds(0), m_wake);
                break;
            }
            text = TextOf(m_events.Log().At(m_next++));
        }
        if (!text) continue;
        bytes += text->size();
        texts.push_back(std::move(text));
    }
    return texts;
}

void EventSubscription::AwaitStop()
{
    if (!m_wanted.stopUs) return;
    // The event of this very microsecond still belongs to it.
    const std::int64_t now = m_events.Now();
    const std::int64_t leftMs = *m_wanted.stopUs < now ? 0 : (*m_wanted.stopUs - now) / 1000;
    const auto wait = leftMs >= kLongestWait.count() ? kLongestWait : std::chrono::milliseconds(leftMs + 1);
    m_timer = m_timers.After(wait, m_wake);
}

}  // namespace agent
