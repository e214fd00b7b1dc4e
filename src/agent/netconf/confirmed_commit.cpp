// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/confirmed_commit.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <utility>

#include "agent/data/errors.h"
#include "agent/data/yang_tree.h"
#include "base/number.h"
#include "log/log.h"

namespace agent {
namespace {

using cdb::ErrorTag;
using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

netconf::RpcError WrongParameter(ErrorTag tag, const std::string& why, const char* element)
{
    return MakeError(Layer::kProtocol, tag, why, {{"bad-element", element}});
}

/// The leaf's text; nullopt if the client has not given it.
std::optional<std::string> Given(const lyd_node* operation, const char* name)
{
    const lyd_node* node = ChildNamed(operation, name);
    if (node == nullptr || (node->flags & LYD_DEFAULT) != 0) return std::nullopt;
    return std::string(lyd_get_value(node));
}

std::string By(const SessionParty& who) { return who.user + ", session " + std::to_string(who.session); }

}  // namespace

base::expected<ConfirmedCommit::Parameters, netconf::RpcError> ConfirmedCommit::Read(const lyd_node* commit)
{
    Parameters result;
    result.confirmed = ChildNamed(commit, "confirmed") != nullptr;
    result.persist = Given(commit, "persist");
    result.persistId = Given(commit, "persist-id");
    // libyang has checked the number and filled in the standard's default.
    result.timeoutSeconds = base::ToNumber<std::uint32_t>(ChildText(commit, "confirm-timeout")).value_or(0);
    for (const char* name : {"confirm-timeout", "persist"})
        if (!result.confirmed && Given(commit, name))
            return base::Unexpected(WrongParameter(
                ErrorTag::kMissingElement,
                std::string(name) + " needs <confirmed/> beside it; without it the commit is final",
                "confirmed"));
    if (result.persist && result.persist->empty())
        return base::Unexpected(WrongParameter(
            ErrorTag::kInvalidValue, "persist is empty; give a token that others do not guess", "persist"));
    if (result.persist && result.persist->size() > kMaxPersist)
        return base::Unexpected(WrongParameter(
            ErrorTag::kInvalidValue,
            "persist is longer than " + std::to_string(kMaxPersist) + " bytes; give a shorter token",
            "persist"));
    return result;
}

ConfirmedCommit::ConfirmedCommit(base::Timers& timers, Events& events, std::function<void()> onDue)
    : m_timers(timers), m_events(events), m_onDue(std::move(onDue))
{
}

std::optional<netconf::RpcError> ConfirmedCommit::Refusal(std::uint32_t session, bool writesAll,
                                                          const std::optional<std::string>& persistId) const
{
    const auto wrong = [](const std::string& why) {
        return WrongParameter(ErrorTag::kInvalidValue, why, "persist-id");
    };
    if (!m_pending) {
        if (!persistId) return std::nullopt;
        return wrong(
            "no commit waits for its confirmation, so no persist-id is taken; it may have been rolled "
            "back, which the history says");
    }
    const bool isPersistent = !m_pending->persistId.empty();
    if (persistId) {
        if (!isPersistent) return wrong(Name() + " has no persist-id; leave it out");
        if (*persistId != m_pending->persistId) return wrong("this is not the persist-id of " + Name());
        return std::nullopt;
    }
    if (writesAll && !m_problem.empty()) return std::nullopt;
    if (m_owner.session == session) {
        if (!isPersistent) return std::nullopt;
        return wrong(Name() + " is persistent; give its persist-id");
    }
    return MakeError(Layer::kProtocol, ErrorTag::kInUse,
                     Name() + " by " + m_pending->user + " waits for its confirmation; " +
                         (isPersistent ? "give its persist-id, or wait until it is confirmed or rolled back"
                                       : "wait until session " + std::to_string(m_owner.session) +
                                             " confirms it or it is rolled back"));
}

std::optional<std::uint32_t> ConfirmedCommit::OfOther(std::uint32_t session) const
{
    if (!m_pending || m_owner.session == session) return std::nullopt;
    return m_owner.session;
}

netconf::RpcError ConfirmedCommit::NoneWaits()
{
    return MakeError(Layer::kProtocol, ErrorTag::kOperationFailed,
                     "no commit waits for its confirmation; it may have been confirmed or rolled back, which "
                     "the history says");
}

std::optional<cdb::PendingCommit> ConfirmedCommit::After(const Parameters& parameters,
                                                         const std::string& user, std::uint64_t newest) const
{
    if (!parameters.confirmed) return std::nullopt;
    cdb::PendingCommit record = m_pending ? *m_pending : cdb::PendingCommit{.returnTo = newest, .user = user};
    record.last = newest;
    record.timeoutSeconds = parameters.timeoutSeconds;
    record.deadlineUs = m_events.Now() + microseconds(seconds(parameters.timeoutSeconds)).count();
    if (parameters.persist) record.persistId = *parameters.persist;
    return record;
}

void ConfirmedCommit::Made(std::optional<cdb::PendingCommit> record, const SessionParty& by,
                           std::uint64_t newest)
{
    using Step = Events::ConfirmStep;
    const bool waited = Waits();
    if (!record) {
        if (!waited) return;
        slog::Notice("{} is confirmed by {}", Name(), By(by));
        m_events.ConfirmedCommit(Step::kComplete, by);
        return Forget();
    }
    record->last = newest;
    const std::uint32_t timeout = record->timeoutSeconds;
    Forget();
    m_pending = std::move(record);
    m_owner = by;
    Arm(seconds(timeout));
    slog::Notice("{} waits for its confirmation, {} {}: rolled back in {} s without it{}", Name(),
                 waited ? "extended by" : "by", By(by), timeout,
                 m_pending->persistId.empty() ? ", or when the session ends" : "");
    m_events.ConfirmedCommit(waited ? Step::kExtend : Step::kStart, by, timeout);
}

void ConfirmedCommit::SessionEnded(std::uint32_t session)
{
    if (!m_pending || m_owner.session != session) return;
    if (m_pending->persistId.empty()) {
        if (!IsDue()) BecomeDue(Due::kSessionEnded);
        return;
    }
    m_owner.session = 0;
}

void ConfirmedCommit::TakeUp(cdb::PendingCommit record)
{
    m_owner = {record.user, 0};
    m_pending = std::move(record);
    // Where the clock has been set back, it waits no longer than it was asked to.
    const auto left = std::min<milliseconds>(
        duration_cast<milliseconds>(microseconds(m_pending->deadlineUs - m_events.Now())),
        seconds(m_pending->timeoutSeconds));
    m_deadline = m_timers.Now();
    if (m_pending->persistId.empty()) {
        m_due = Due::kRestarted;
    } else if (left <= milliseconds(0)) {
        m_due = Due::kTimeout;
    } else {
        Arm(left);
        slog::Notice("{} by {} waits for its confirmation: rolled back in {} s without it", Name(),
                     m_pending->user, duration_cast<seconds>(left).count());
    }
}

void ConfirmedCommit::Arm(milliseconds time)
{
    m_deadline = m_timers.Now() + time;
    m_timer = m_timers.After(time, [this] { BecomeDue(Due::kTimeout); });
}

void ConfirmedCommit::BecomeDue(Due due)
{
    m_due = due;
    m_timer.reset();
    m_onDue();
}

void ConfirmedCommit::Forget()
{
    m_pending.reset();
    m_owner = {};
    m_due = Due::kNot;
    m_problem.clear();
    m_retry = kFirstRetry;
    m_timer.reset();
}

void ConfirmedCommit::RolledBack(const std::optional<SessionParty>& by, std::optional<std::uint64_t> commit)
{
    using Step = Events::ConfirmStep;
    slog::Notice("{}{}: {}", Reason(by.has_value()), by ? " by " + By(*by) : std::string(),
                 commit ? "rolled back by commit " + std::to_string(*commit) : "there was nothing to undo");
    if (by)
        m_events.ConfirmedCommit(Step::kCancel, *by);
    else if (m_due == Due::kTimeout)
        m_events.ConfirmedCommit(Step::kTimeout, std::nullopt);
    else
        m_events.ConfirmedCommit(Step::kCancel, m_owner);
    Forget();
}

void ConfirmedCommit::Failed(const std::string& problem)
{
    if (problem != m_problem)
        slog::Error(
            "{}, but it can't be rolled back: {}; this is tried again, and a commit by any operator keeps "
            "the configuration as it is",
            Reason(false), problem);
    m_problem = problem;
    m_timer = m_timers.After(m_retry, [this] { BecomeDue(m_due); });
    m_retry = std::min(2 * m_retry, kLastRetry);
}

std::string ConfirmedCommit::Name() const
{
    if (!m_pending || m_pending->last == m_pending->returnTo) return "a confirmed commit without changes";
    const std::string first = std::to_string(m_pending->returnTo + 1);
    if (m_pending->last == m_pending->returnTo + 1) return "commit " + first;
    return "commits " + first + " to " + std::to_string(m_pending->last);
}

std::string ConfirmedCommit::Reason(bool cancelled) const
{
    if (cancelled) return Name() + ": cancelled";
    switch (m_due) {
    case Due::kSessionEnded:
        return Name() + ": the session ended before a confirmation";
    case Due::kRestarted:
        return Name() + ": cdbd ended before a confirmation";
    default:
        return Name() + ": not confirmed in " + std::to_string(m_pending->timeoutSeconds) + " s";
    }
}

std::optional<PendingConfirmation> ConfirmedCommit::Facts() const
{
    if (!m_pending) return std::nullopt;
    const auto left = std::max(m_deadline - m_timers.Now(), std::chrono::steady_clock::duration(0));
    PendingConfirmation facts;
    facts.returnTo = m_pending->returnTo;
    facts.last = m_pending->last;
    facts.user = m_pending->user;
    facts.session = m_owner.session;
    facts.isPersistent = !m_pending->persistId.empty();
    facts.deadlineUs = m_pending->deadlineUs;
    facts.secondsLeft = IsDue() ? 0 : static_cast<std::uint64_t>(std::chrono::ceil<seconds>(left).count());
    facts.problem = m_problem;
    return facts;
}

}  // namespace agent
