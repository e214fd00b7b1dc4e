// SPDX-License-Identifier: Apache-2.0
// One request under way, from its message to its answer: answered exactly once, at any later time.

#ifndef AGENT_NETCONF_REQUEST_H
#define AGENT_NETCONF_REQUEST_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/netconf/answer_place.h"
#include "agent/netconf/rpc.h"
#include "agent/netconf/session.h"
#include "netconf/rpc_error.h"

namespace agent {

class Request {
public:
    /// `discard` frees what a request no longer needs; null: at once.
    using Discard = std::function<void(Rpc)>;
    Request(std::shared_ptr<Session> session, Rpc rpc, Discard discard = nullptr);
    /// Refuses a request that nobody has answered.
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    [[nodiscard]] const lyd_node* Operation() const { return m_rpc.operation.get(); }
    [[nodiscard]] const std::optional<SubtreeFilter>& Filter() const { return m_rpc.filter; }
    [[nodiscard]] bool IsLong() const { return m_rpc.isLong; }
    [[nodiscard]] const Session::Identity& Who() const { return m_session->Who(); }

    /// False once the session has ended: what has not begun needs not be done any more.
    [[nodiscard]] bool Wanted() const { return m_session->IsOpen(); }

    /// The answer takes a place in the room for answers, from now on until it is with the client.
    void Occupy(std::shared_ptr<AnswerPlace> place) { m_place = std::move(place); }

    /// Done. With warnings these stand in the place of <ok/> (RFC 6241, section 4.4).
    void Ok(const std::vector<netconf::RpcError>& warnings = {});
    void Refuse(const netconf::RpcError& error);
    void Refuse(const std::vector<netconf::RpcError>& errors);
    /// `write` appends what stands in <data>, an element of the base namespace if none is named. Warnings
    /// stand before it (RFC 6241, section 4.2).
    void Data(const std::function<void(std::string& out)>& write, std::string_view ns = {},
              const std::vector<netconf::RpcError>& warnings = {});
    /// The same in two steps: what is written takes long and is written beside the loop. DataText may be
    /// called in any thread.
    [[nodiscard]] std::string DataText(const std::function<void(std::string& out)>& write,
                                       std::string_view ns = {},
                                       const std::vector<netconf::RpcError>& warnings = {}) const;
    void Reply(std::string text) { Send(std::move(text)); }
    /// Done, and the session ends.
    void OkAndFinish();

private:
    std::string Head() const;
    void LetGo();
    void Send(std::string reply);

    std::shared_ptr<Session> m_session;
    Rpc m_rpc;
    Discard m_discard;
    std::shared_ptr<AnswerPlace> m_place;
    bool m_answered = false;
};

using RequestPtr = std::shared_ptr<Request>;

/// The whole reply that refuses a message which did not become a request.
std::string RefusalText(const std::string& attributes, const netconf::RpcError& error);

}  // namespace agent

#endif
