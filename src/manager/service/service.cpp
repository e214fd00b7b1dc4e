// SPDX-License-Identifier: Apache-2.0
#include "manager/service/service.h"

#include <utility>
#include <variant>

#include "ipc/manager.pb.h"
#include "log/log.h"
#include "manager/service/journal.h"
#include "manager/service/operation_message.h"
#include "manager/service/state.h"

namespace manager {
namespace {

/// Refusals of one session that are logged each; the others are counted.
constexpr std::uint64_t kLoggedRefusals = 10;

}  // namespace

Service::Service(State& state, Journal* journal, Clock clock)
    : m_state(state), m_journal(journal), m_clock(std::move(clock)), m_since(m_clock())
{
}

void Service::Open()
{
    Become(Session::kLoading, "SessionOpened");
    m_refusedBefore = m_refused;
    m_state.BeginSession();
}

bool Service::Take(const ipc::manager::ClientMessage& message)
{
    if (IsOperation(message)) {
        TakeOperation(message);
        return true;
    }
    if (!message.has_loaded()) return false;
    Become(Session::kLoaded, "SessionLoaded");
    m_state.Sweep();
    slog::Notice("session loaded: {} collectors, {} interfaces", m_state.Collectors().size(),
                 m_state.Interfaces().size());
    return true;
}

void Service::Close()
{
    Become(Session::kNone, "SessionClosed");
    const std::uint64_t refused = m_refused - m_refusedBefore;
    if (refused > kLoggedRefusals) slog::Error("{} operations of the session were refused in all", refused);
}

void Service::Become(Session session, std::string_view step)
{
    if (m_journal != nullptr) m_journal->NoteStep(step);
    m_session = session;
    m_since = m_clock();
}

void Service::TakeOperation(const ipc::manager::ClientMessage& message)
{
    ++m_operations;
    const auto decoded = ToOperation(message);
    if (const auto* refusal = std::get_if<Refusal>(&decoded)) return Refuse(refusal->reason);
    const auto& operation = std::get<Operation>(decoded);
    if (m_journal != nullptr) m_journal->Note(operation);
    if (const std::string reason = m_state.Apply(operation); !reason.empty()) Refuse(reason);
}

void Service::Refuse(std::string_view reason)
{
    ++m_refused;
    if (m_refused - m_refusedBefore <= kLoggedRefusals) slog::Error("operation refused: {}", reason);
}

}  // namespace manager
