// SPDX-License-Identifier: Apache-2.0
#include "manager/service/service.h"

#include <utility>

#include "ipc/manager.pb.h"
#include "log/log.h"
#include "manager/service/journal.h"
#include "manager/service/operation.h"
#include "manager/service/service_table.h"

namespace manager {
namespace {

/// Refusals of one session that are logged each; the others are counted.
constexpr std::uint64_t kLoggedRefusals = 10;

}  // namespace

Service::Service(ServiceTable& table, Journal* journal, Clock clock, Reconcile reconcile,
                 std::function<void()> operated)
    : m_table(table),
      m_journal(journal),
      m_clock(std::move(clock)),
      m_reconcile(std::move(reconcile)),
      m_operated(std::move(operated)),
      m_since(m_clock())
{
}

void Service::Open()
{
    Become(Session::kLoading, "SessionOpened");
    m_refusedBefore = m_refused;
    m_table.BeginSession();
}

bool Service::Take(const ipc::manager::ClientMessage& message)
{
    if (IsOperation(message)) {
        TakeOperation(message);
        if (m_session != Session::kLoaded) return true;
        m_hasOperated = true;
        if (m_operated) m_operated();
        return true;
    }
    if (!message.has_loaded()) return false;
    Become(Session::kLoaded, "SessionLoaded");
    m_reconcile(m_table.Sweep());
    slog::Notice("session loaded: {} collectors, {} interfaces", m_table.AllCollectors().size(),
                 m_table.AllInterfaces().size());
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
    m_hasOperated = false;
    m_since = m_clock();
}

void Service::TakeOperation(const ipc::manager::ClientMessage& message)
{
    ++m_operations;
    const auto operation = ToOperation(message);
    if (!operation) return Refuse(operation.error());
    if (m_journal != nullptr) m_journal->Note(*operation);
    const auto touched = m_table.Apply(*operation);
    if (!touched) return Refuse(touched.error());
    if (!touched->None()) m_reconcile(*touched);
}

void Service::Refuse(std::string_view reason)
{
    ++m_refused;
    if (m_refused - m_refusedBefore <= kLoggedRefusals) slog::Error("operation refused: {}", reason);
}

}  // namespace manager
