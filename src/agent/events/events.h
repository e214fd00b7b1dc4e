// SPDX-License-Identifier: Apache-2.0
// The stream NETCONF: makes an event of what happens, keeps it in the replay log, and wakes the subscribers.
// Without subscribers an event costs its entry in the log and nothing else. For the loop only.

#ifndef AGENT_EVENTS_EVENTS_H
#define AGENT_EVENTS_EVENTS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "agent/data/value_check.h"
#include "agent/events/event.h"
#include "agent/events/event_log.h"
#include "cdb/model/change_set.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

namespace agent {

/// Why a session has ended (RFC 6470, termination-reason).
enum class SessionEnd : std::uint8_t { kClosed, kKilled, kDropped, kTimeout, kBadHello, kOther };

/// Whose session it is.
struct SessionParty {
    std::string user;
    std::uint32_t session = 0;
    std::string host{};  // where it comes from: an IP address; empty: from the switch itself, or not known
};

/// A process as cdb.sock knows it.
struct ProcessParty {
    std::string name;
    std::int64_t pid = 0;
};

/// An entry of the list of problems, as the process that knows it has sent it.
struct ProblemNews {
    bool begins = false;
    std::string subject, name, reason, severity;
    std::string text{};
};

class Events {
public:
    /// Edits that one netconf-config-change lists.
    static constexpr std::size_t kMaxEdits = 50;
    /// Of sessions, of processes and of problems, so many events may come at once, and so many in a second;
    /// what is beyond that is counted, and told as events-left-out when there is room again.
    static constexpr double kBurst = 500;
    static constexpr double kRate = 50;

    /// `now`: microseconds since the epoch. `loop` and `schema` must outlive this.
    Events(boost::asio::io_context& loop, const cdb::Schema& schema, std::function<std::int64_t()> now,
           const EventLog::Limits& limits);
    ~Events();
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;

    /// A commit stands. `by` is nullopt if cdbd itself has made it.
    void ConfigChanged(const cdb::ChangeSet& changes, const std::optional<SessionParty>& by,
                       const std::string& comment);
    /// What has become of a confirmed commit (RFC 6470, netconf-confirmed-commit).
    enum class ConfirmStep : std::uint8_t { kStart, kCancel, kTimeout, kExtend, kComplete };
    /// `by`: nullopt with kTimeout only. `timeoutSeconds`: with kStart and kExtend.
    void ConfirmedCommit(ConfirmStep step, const std::optional<SessionParty>& by,
                         std::uint32_t timeoutSeconds = 0);
    void SessionStarted(const SessionParty& who);
    /// `killer`: the session that has ended it, with kKilled.
    void SessionEnded(const SessionParty& who, SessionEnd why, std::uint32_t killer);
    void ProcessConnected(const ProcessParty& process, const std::string& version);
    void ProcessLost(const ProcessParty& process, const std::string& reason);
    /// The next one of that name that connects is told of as process-recovered, too.
    void ProcessStuck(const ProcessParty& process, std::uint64_t commit);
    void FaultReported(const cdb::Fault& fault);
    /// What is no value of the model's is logged and not told.
    void ProblemChanged(const ProblemNews& problem);

    /// The time of the clock that events have.
    [[nodiscard]] std::int64_t Now() const { return m_now(); }
    [[nodiscard]] const EventLog& Log() const { return m_log; }

    /// A <notification> that is in no log, for one subscriber: an empty one of that name, or events-lost.
    [[nodiscard]] std::string ReplayComplete() const;
    [[nodiscard]] std::string NotificationComplete() const;
    [[nodiscard]] std::string EventsLost(std::uint64_t count) const;

    /// Calls `wake` from the loop after events have come, once for all that have come in one turn; until the
    /// result is dropped.
    [[nodiscard]] std::shared_ptr<void> OnNews(std::function<void()> wake);

private:
    enum Limited : std::uint8_t { kSessions, kProcesses, kProblems, kLimited };
    /// Tokens that come back with time.
    struct Bucket {
        double tokens = kBurst;
        std::int64_t filledUs = 0;
        std::uint64_t leftOut = 0;
    };
    void Publish(std::string_view module, EventElement content);
    /// The same for events that a client can cause at will.
    void PublishLimited(Limited kind, std::string_view module, EventElement content);
    [[nodiscard]] bool TakeToken(Bucket& bucket) const;
    [[nodiscard]] EventElement Element(std::string_view module, std::string_view name) const;
    [[nodiscard]] EventElement ProcessEvent(std::string_view name, const ProcessParty& process) const;
    void WakeSubscribers();

    boost::asio::io_context& m_loop;
    const cdb::Schema& m_schema;
    std::function<std::int64_t()> m_now;
    EventLog m_log;
    std::array<Bucket, kLimited> m_buckets;
    std::set<std::string> m_stuck;  // names of processes
    ValueChecker m_values;
    std::vector<std::weak_ptr<std::function<void()>>> m_subscribers;
    bool m_isWaking = false;
    /// Posted handlers check whether this is still there.
    std::shared_ptr<Events*> m_self = std::make_shared<Events*>(this);
};

}  // namespace agent

#endif
