// SPDX-License-Identifier: Apache-2.0
#include "agent/events/events.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <utility>

#include <boost/asio/post.hpp>

#include "agent/events/config_edits.h"
#include "base/text.h"
#include "log/log.h"

namespace agent {
namespace {

constexpr std::string_view kBaseEvents = "ietf-netconf-notifications";
constexpr std::string_view kManagement = "nc-notifications";
constexpr std::string_view kOwn = "switch-events";

constexpr std::int64_t kUsPerSecond = 1'000'000;

/// Far more processes than a switch has.
constexpr std::size_t kMaxStuck = 128;

const char* NameOf(SessionEnd why)
{
    static constexpr std::array kNames{"closed", "killed", "dropped", "timeout", "bad-hello", "other"};
    return kNames.at(static_cast<std::size_t>(why));
}

/// Adds a leaf; none for an empty text.
void Add(EventElement& parent, std::string_view name, std::string text)
{
    if (!text.empty()) parent.children.push_back({parent.ns, name, std::move(text)});
}

void AddParty(EventElement& parent, const SessionParty& who)
{
    Add(parent, "username", who.user);
    Add(parent, "session-id", std::to_string(who.session));
    Add(parent, "source-host", who.host);
}

}  // namespace

Events::Events(boost::asio::io_context& loop, const cdb::Schema& schema, std::function<std::int64_t()> now,
               const EventLog::Limits& limits)
    : m_loop(loop),
      m_schema(schema),
      m_now(std::move(now)),
      m_log(limits, m_now()),
      m_values(schema.Context())
{
    for (Bucket& bucket : m_buckets) bucket.filledUs = m_log.CreatedUs();
}

Events::~Events() = default;

EventElement Events::Element(std::string_view module, std::string_view name) const
{
    return {ly_ctx_get_module_implemented(m_schema.Context(), std::string(module).c_str())->ns, name};
}

void Events::Publish(std::string_view module, EventElement content)
{
    const lys_module* known = ly_ctx_get_module_implemented(m_schema.Context(), std::string(module).c_str());
    const lysc_node* kind =
        lys_find_child(nullptr, known, content.name.data(), content.name.size(), LYS_NOTIF, 0);
    m_log.Add(MakeEvent(m_now(), kind, std::move(content)));
    if (m_isWaking || m_subscribers.empty()) return;
    m_isWaking = true;
    boost::asio::post(m_loop, [self = std::weak_ptr<Events*>(m_self)] {
        if (const auto there = self.lock()) (*there)->WakeSubscribers();
    });
}

bool Events::TakeToken(Bucket& bucket) const
{
    const std::int64_t now = m_now();
    // A step back of the clock refills nothing.
    if (now > bucket.filledUs)
        bucket.tokens = std::min(kBurst, bucket.tokens + kRate * static_cast<double>(now - bucket.filledUs) /
                                                             static_cast<double>(kUsPerSecond));
    bucket.filledUs = now;
    if (bucket.tokens < 1) return false;
    bucket.tokens -= 1;
    return true;
}

void Events::PublishLimited(Limited kind, std::string_view module, EventElement content)
{
    Bucket& bucket = m_buckets.at(kind);
    if (!TakeToken(bucket)) {
        ++bucket.leftOut;
        return;
    }
    if (const std::uint64_t count = std::exchange(bucket.leftOut, 0); count != 0) {
        EventElement leftOut = Element(kOwn, "events-left-out");
        static constexpr std::array<const char*, kLimited> kNames{"sessions", "processes", "problems"};
        Add(leftOut, "kind", kNames.at(kind));
        Add(leftOut, "count", std::to_string(count));
        Publish(kOwn, std::move(leftOut));
    }
    Publish(module, std::move(content));
}

void Events::WakeSubscribers()
{
    m_isWaking = false;
    std::erase_if(m_subscribers, [](const auto& each) { return each.expired(); });
    const auto subscribers = m_subscribers;  // a copy: waking one may end another
    for (const auto& each : subscribers)
        if (const auto wake = each.lock()) (*wake)();
}

std::shared_ptr<void> Events::OnNews(std::function<void()> wake)
{
    std::erase_if(m_subscribers, [](const auto& each) { return each.expired(); });
    const auto kept = std::make_shared<std::function<void()>>(std::move(wake));
    m_subscribers.push_back(kept);
    return kept;
}

void Events::ConfigChanged(const cdb::ChangeSet& changes, const std::optional<SessionParty>& by,
                           const std::string& comment)
{
    EventElement event = Element(kBaseEvents, "netconf-config-change");
    EventElement changedBy{event.ns, "changed-by"};
    if (by)
        AddParty(changedBy, *by);
    else
        changedBy.children.push_back({event.ns, "server"});
    event.children.push_back(std::move(changedBy));
    Add(event, "datastore", "running");
    ConfigEdits edits = EditsOf(m_schema, changes, kMaxEdits, event.ns);
    for (EventElement& edit : edits.listed) event.children.push_back(std::move(edit));
    const std::string_view own = Element(kOwn, {}).ns;
    event.children.push_back({own, "commit", std::to_string(changes.commit)});
    if (!comment.empty()) event.children.push_back({own, "comment", comment});
    if (edits.leftOut != 0) {
        EventElement leftOut{own, "edits-left-out", std::to_string(edits.leftOut)};
        leftOut.about = std::make_shared<ConfigPlace>();  // the root: of all configuration
        event.children.push_back(std::move(leftOut));
    }
    Publish(kBaseEvents, std::move(event));
}

void Events::ConfirmedCommit(ConfirmStep step, const std::optional<SessionParty>& by,
                             std::uint32_t timeoutSeconds)
{
    static constexpr std::array kNames{"start", "cancel", "timeout", "extend", "complete"};
    EventElement event = Element(kBaseEvents, "netconf-confirmed-commit");
    // As the RFC's text wants it; the condition that its module puts on them can't hold.
    if (by) AddParty(event, *by);
    Add(event, "confirm-event", kNames.at(static_cast<std::size_t>(step)));
    if (step == ConfirmStep::kStart || step == ConfirmStep::kExtend)
        Add(event, "timeout", std::to_string(timeoutSeconds));
    Publish(kBaseEvents, std::move(event));
}

void Events::SessionStarted(const SessionParty& who)
{
    EventElement event = Element(kBaseEvents, "netconf-session-start");
    AddParty(event, who);
    PublishLimited(kSessions, kBaseEvents, std::move(event));
}

void Events::SessionEnded(const SessionParty& who, SessionEnd why, std::uint32_t killer)
{
    EventElement event = Element(kBaseEvents, "netconf-session-end");
    AddParty(event, who);
    if (why == SessionEnd::kKilled && killer != 0) Add(event, "killed-by", std::to_string(killer));
    Add(event, "termination-reason", NameOf(why));
    PublishLimited(kSessions, kBaseEvents, std::move(event));
}

EventElement Events::ProcessEvent(std::string_view name, const ProcessParty& process) const
{
    EventElement event = Element(kOwn, name);
    event.children.push_back({event.ns, "process", process.name});
    Add(event, "pid", std::to_string(process.pid));
    return event;
}

void Events::ProcessConnected(const ProcessParty& process, const std::string& version)
{
    EventElement event = ProcessEvent("process-connected", process);
    Add(event, "version", version);
    PublishLimited(kProcesses, kOwn, std::move(event));
    if (m_stuck.erase(process.name) != 0) Publish(kOwn, ProcessEvent("process-recovered", process));
}

void Events::ProcessLost(const ProcessParty& process, const std::string& reason)
{
    EventElement event = ProcessEvent("process-lost", process);
    Add(event, "reason", reason);
    PublishLimited(kProcesses, kOwn, std::move(event));
}

void Events::ProcessStuck(const ProcessParty& process, std::uint64_t commit)
{
    EventElement event = ProcessEvent("process-stuck", process);
    Add(event, "commit", std::to_string(commit));
    Publish(kOwn, std::move(event));
    if (m_stuck.size() < kMaxStuck) m_stuck.insert(process.name);
}

void Events::FaultReported(const cdb::Fault& fault)
{
    EventElement event = ProcessEvent("process-fault", {fault.process, fault.pid});
    Add(event, "kind", std::to_string(fault.kind));
    Add(event, "function", fault.function);
    Add(event, "file", fault.file);
    Add(event, "line", std::to_string(fault.line));
    Add(event, "text", fault.text);
    Publish(kOwn, std::move(event));
}

void Events::ProblemChanged(const ProblemNews& problem)
{
    EventElement event = Element(kOwn, problem.begins ? "sampling-problem-begins" : "sampling-problem-ends");
    const lys_module* module = ly_ctx_get_module_implemented(m_schema.Context(), std::string(kOwn).c_str());
    const lysc_node* kind =
        lys_find_child(nullptr, module, event.name.data(), event.name.size(), LYS_NOTIF, 0);
    const std::array<std::pair<std::string_view, const std::string*>, 5> leaves{
        {{"subject", &problem.subject},
         {"name", &problem.name},
         {"reason", &problem.reason},
         {"severity", &problem.severity},
         {"text", &problem.text}}};
    for (const auto& [name, text] : leaves) {
        const lysc_node* leaf = lys_find_child(kind, module, name.data(), name.size(), LYS_LEAF, 0);
        if (leaf == nullptr) continue;  // an end has no text
        const auto value = m_values.Check(leaf, *text);
        if (!value) {
            slog::Info("a problem is not told of: \"{}\" is no {}", base::Presentable(*text), name);
            return;
        }
        Add(event, name, std::string(*value));
    }
    PublishLimited(kProblems, kOwn, std::move(event));
}

std::string Events::ReplayComplete() const
{
    return NotificationText(m_now(), Element(kManagement, "replayComplete"));
}

std::string Events::NotificationComplete() const
{
    return NotificationText(m_now(), Element(kManagement, "notificationComplete"));
}

std::string Events::EventsLost(std::uint64_t count) const
{
    EventElement event = Element(kOwn, "events-lost");
    Add(event, "count", std::to_string(count));
    return NotificationText(m_now(), event);
}

}  // namespace agent
