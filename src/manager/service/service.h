// SPDX-License-Identifier: Apache-2.0
// One session after the other with the sFlow service client, as far as it needs no socket: each message
// is checked, noted in the journal, applied to the table and brought into effect. Driven by the session
// server.

#ifndef MANAGER_SERVICE_SERVICE_H
#define MANAGER_SERVICE_SERVICE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string_view>

namespace ipc::manager {
class ClientMessage;
}

namespace manager {

class Journal;
class ServiceTable;
struct Touched;

class Service {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;

    enum class Session { kNone, kLoading, kLoaded };

    /// Brings into effect what an operation or a sweep has touched; called at once.
    using Reconcile = std::function<void(const Touched&)>;

    /// `journal` may be null. Table and journal must outlive it. `operated` may be null; it is called behind
    /// each operation of a session that is loaded.
    Service(ServiceTable& table, Journal* journal, Clock clock, Reconcile reconcile,
            std::function<void()> operated = {});

    /// A client has been given the session.
    void Open();

    /// Takes one message of the session. False if a session carries no such message: the caller ends the
    /// connection then. An operation that can't be applied is counted, and logged if it is among the first
    /// ten of the session.
    bool Take(const ipc::manager::ClientMessage& message);

    /// The session has ended; the table stays as it is.
    void Close();

    [[nodiscard]] const ServiceTable& Table() const { return m_table; }
    /// Null if there is none.
    [[nodiscard]] const Journal* CurrentJournal() const { return m_journal; }
    [[nodiscard]] Session CurrentSession() const { return m_session; }
    /// When CurrentSession last changed.
    [[nodiscard]] std::chrono::system_clock::time_point Since() const { return m_since; }
    /// Whether the session is loaded and has had operations since.
    [[nodiscard]] bool HasOperated() const { return m_hasOperated; }
    /// Operations received, and those of them that were refused, since the manager's start.
    [[nodiscard]] std::uint64_t Operations() const { return m_operations; }
    [[nodiscard]] std::uint64_t Refused() const { return m_refused; }

private:
    void Become(Session session, std::string_view step);
    void TakeOperation(const ipc::manager::ClientMessage& message);
    void Refuse(std::string_view reason);

    ServiceTable& m_table;
    Journal* m_journal;
    Clock m_clock;
    Reconcile m_reconcile;
    std::function<void()> m_operated;
    bool m_hasOperated = false;
    Session m_session = Session::kNone;
    std::chrono::system_clock::time_point m_since;
    std::uint64_t m_operations = 0;
    std::uint64_t m_refused = 0;
    std::uint64_t m_refusedBefore = 0;  // when the session was opened
};

}  // namespace manager

#endif
