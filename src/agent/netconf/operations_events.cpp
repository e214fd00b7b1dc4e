// SPDX-License-Identifier: Apache-2.0
// Subscriptions to the stream NETCONF (RFC 5277), and the events of sessions.

#include <libyang/libyang.h>

#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "agent/data/errors.h"
#include "agent/events/event_filter.h"
#include "agent/events/event_subscription.h"
#include "agent/netconf/operations.h"

namespace agent {
namespace {

using cdb::ErrorTag;

constexpr std::string_view kStream = "NETCONF";

netconf::RpcError WrongElement(ErrorTag tag, const std::string& why, const char* element)
{
    return MakeError(Layer::kProtocol, tag, why, {{"bad-element", element}});
}

/// Microseconds since the epoch; nullopt if the parameter is not given. libyang has checked its form.
std::optional<std::int64_t> TimeIn(const lyd_node* operation, std::string_view name)
{
    const std::string text(ChildText(operation, name));
    if (text.empty()) return std::nullopt;
    timespec time{};
    if (ly_time_str2ts(text.c_str(), &time) != LY_SUCCESS) return std::nullopt;
    constexpr std::int64_t kUsPerSecond = 1'000'000;
    // Four digits of a year: far from the end of the type.
    return static_cast<std::int64_t>(time.tv_sec) * kUsPerSecond + time.tv_nsec / 1000;
}

/// What is wrong with the times (RFC 5277, section 2.1.1); nullopt if nothing.
std::optional<netconf::RpcError> CheckTimes(const EventSubscription::Wanted& wanted, std::int64_t now)
{
    if (wanted.startUs && *wanted.startUs > now)
        return WrongElement(ErrorTag::kBadElement,
                            "startTime is later than now; leave it out to hear of events to come",
                            "startTime");
    if (wanted.stopUs && !wanted.startUs)
        return WrongElement(ErrorTag::kMissingElement, "stopTime needs startTime beside it", "startTime");
    if (wanted.stopUs && *wanted.stopUs < *wanted.startUs)
        return WrongElement(ErrorTag::kBadElement, "stopTime is earlier than startTime", "stopTime");
    return std::nullopt;
}

std::optional<netconf::RpcError> CheckFilter(const std::optional<SubtreeFilter>& filter)
{
    if (!filter || CountElements(*filter) <= kMaxEventFilter) return std::nullopt;
    return WrongElement(ErrorTag::kTooBig,
                        "the filter has more than " + std::to_string(kMaxEventFilter) +
                            " elements, the most for a subscription; select less precisely",
                        "filter");
}

}  // namespace

void Operations::CreateSubscription(const RequestPtr& request)
{
    const lyd_node* operation = request->Operation();
    if (const std::string stream(ChildText(operation, "stream")); stream != kStream)
        return request->Refuse(WrongElement(ErrorTag::kInvalidValue,
                                            "there is no stream \"" + stream + "\"; the only one is NETCONF",
                                            "stream"));
    if (request->IsSubscribed())
        return request->Refuse(MakeError(Layer::kProtocol, ErrorTag::kInUse,
                                         "this session has a subscription already; open another session"));
    EventSubscription::Wanted wanted{request->Filter(), TimeIn(operation, "startTime"),
                                     TimeIn(operation, "stopTime")};
    if (const auto wrong = CheckTimes(wanted, m_services.events.Now())) return request->Refuse(*wrong);
    if (const auto wrong = CheckFilter(wanted.filter)) return request->Refuse(*wrong);
    const auto access = request->Who().access;
    request->OkAndSubscribe([&](std::function<void()> wake) {
        return std::make_unique<EventSubscription>(m_services.events, m_services.timers, m_services.access,
                                                   access, std::move(wanted), std::move(wake));
    });
}

void Operations::TellBegin(const Session& session) { m_services.events.SessionStarted(session.Party()); }

void Operations::TellEnd(const Session& session)
{
    // A connection on which nothing was said, as of a probe, was no session.
    const bool isSession = session.HasBegun() || session.EndedBy() == SessionEnd::kBadHello ||
                           session.EndedBy() == SessionEnd::kTimeout;
    if (isSession) m_services.events.SessionEnded(session.Party(), session.EndedBy(), session.Killer());
}

}  // namespace agent
