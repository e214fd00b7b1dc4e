// The NETCONF sessions that are open: lets clients in, turns their messages into requests, and ends
// sessions on demand.

#ifndef AGENT_SESSIONS_H
#define AGENT_SESSIONS_H

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <variant>

#include "agent/operations.h"
#include "agent/rpc.h"
#include "agent/session.h"
#include "agent/workbench.h"
#include "cdb/schema.h"
#include "guard/limits.h"
#include "guard/schema_index.h"

namespace agent {

class Sessions {
public:
    Sessions(const cdb::Schema& schema, Operations& operations, Workbench& reads, std::size_t limit,
             std::chrono::milliseconds helloTimeout, const guard::Limits& limits = {});
    ~Sessions();
    Sessions(const Sessions&) = delete;
    Sessions& operator=(const Sessions&) = delete;

    void Add(Session::Socket socket);

    /// False: there is no such session.
    bool End(std::uint32_t session, const std::string& reason);

private:
    void OnRead(const std::shared_ptr<Session>& session, std::variant<Rpc, BadRpc> read);
    void OnMessage(const std::shared_ptr<Session>& session, std::string message);
    void OnBroken(const std::shared_ptr<Session>& session, const std::string& problem);
    void OnClosed(const std::shared_ptr<Session>& session, const std::string& reason);

    const guard::SchemaIndex m_index;
    const guard::Limits m_limits;  // of a message
    Operations& m_operations;
    Workbench& m_reads;
    std::size_t m_limit;
    std::chrono::milliseconds m_helloTimeout;
    netconf::Hello m_hello;  // what all sessions say, but for the number
    std::uint32_t m_last = 0;
    /// Its end tells the handlers of sessions that go on for a moment longer.
    std::shared_ptr<Sessions*> m_self = std::make_shared<Sessions*>(this);
    std::map<std::uint32_t, std::shared_ptr<Session>> m_sessions;
};

}  // namespace agent

#endif
