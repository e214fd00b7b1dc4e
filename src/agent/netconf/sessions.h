// SPDX-License-Identifier: Apache-2.0
// The open NETCONF sessions: admits clients, turns their messages into requests, and ends sessions on demand.

#ifndef AGENT_NETCONF_SESSIONS_H
#define AGENT_NETCONF_SESSIONS_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <variant>

#include "agent/access/access.h"
#include "agent/netconf/operations.h"
#include "agent/netconf/rpc.h"
#include "agent/netconf/session.h"
#include "agent/netconf/workbench.h"
#include "base/timers.h"
#include "cdb/schema/schema.h"
#include "guard/limits.h"
#include "guard/schema_index.h"
#include "ipc/user_quota.h"
#include "netconf/names.h"

namespace agent {

class Sessions {
public:
    struct Options {
        std::size_t most = 128;        // sessions at once
        std::size_t mostPerUser = 64;  // of one user; root is not counted
        SessionTimes times{};
        std::size_t maxMessage = netconf::kMaxMessage;  // bytes
        guard::Limits limits{};                         // of a message
        std::function<std::int64_t()> now{};            // microseconds since the epoch; must be set
    };
    /// This many sessions of root are admitted beyond `most`: root must get in when other users have taken
    /// all.
    static constexpr std::size_t kReservedForRoot = 4;

    /// All arguments but the options must outlive this.
    Sessions(base::Timers& timers, const cdb::Schema& schema, Operations& operations, Workbench& reads,
             const Access& access, const Options& options);
    ~Sessions();
    Sessions(const Sessions&) = delete;
    Sessions& operator=(const Sessions&) = delete;

    /// Begins a session on a connected socket, or tells the client why it gets none.
    void Add(Session::Socket socket);

    /// What is to be told of the sessions, without the locks.
    [[nodiscard]] NetconfFacts Facts() const;

    /// Returns false if there is no such session. `killer`: the session on whose behalf.
    bool End(std::uint32_t session, const std::string& reason, std::uint32_t killer);

private:
    void OnRead(const std::shared_ptr<Session>& session, std::variant<Rpc, BadRpc> read);
    AccessUser UserOf(const ipc::PeerCredentials& peer, const std::string& name);
    const std::string& NameOfGroup(std::uint32_t group);
    /// Why the user gets no session; empty if it gets one, which is then counted.
    std::string Admit(std::uint32_t uid, const std::string& user);
    void TurnAway(Session::Socket socket, const ipc::PeerCredentials& peer, const std::string& user,
                  const std::string& reason);
    void OnMessage(const std::shared_ptr<Session>& session, std::string message);
    void OnBroken(const std::shared_ptr<Session>& session, const std::string& problem);
    void OnClosed(const std::shared_ptr<Session>& session, const std::string& reason);

    base::Timers& m_timers;
    const guard::SchemaIndex m_index;
    Operations& m_operations;
    Workbench& m_reads;
    const Access& m_access;
    const Options m_options;
    ipc::UserQuota m_quota;
    netconf::Hello m_hello;  // of all sessions, but for the session-id
    std::uint32_t m_last = 0;
    NetconfFacts m_past;  // the start, and what the sessions have counted that have ended
    /// Handlers of sessions may run after this object's end; they check whether it is still there.
    std::shared_ptr<Sessions*> m_self = std::make_shared<Sessions*>(this);
    std::map<std::uint32_t, std::shared_ptr<Session>> m_sessions;
    /// The database of groups may be on another machine, so each group is looked up once.
    std::map<std::uint32_t, std::string> m_groupNames;
    std::size_t m_turnedAway = 0;  // clients that are being told why
};

}  // namespace agent

#endif
