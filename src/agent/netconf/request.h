// SPDX-License-Identifier: Apache-2.0
// One request under way, from its message to its answer: answered exactly once, at any later time.

#ifndef AGENT_NETCONF_REQUEST_H
#define AGENT_NETCONF_REQUEST_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/clients/acknowledgement.h"
#include "agent/netconf/rpc.h"
#include "agent/netconf/session.h"
#include "netconf/rpc_error.h"

namespace agent {

/// The memory that one answer takes of the room for answers (answer_room.h), from the beginning of the work
/// on it until the client has read it or its session has ended.
class AnswerPlace {
public:
    AnswerPlace() = default;
    AnswerPlace(const AnswerPlace&) = delete;
    AnswerPlace& operator=(const AnswerPlace&) = delete;
    /// Gives the room back.
    virtual ~AnswerPlace() = default;

    /// The answer is made; its size replaces the estimate.
    virtual void SetSize(std::size_t bytes) = 0;
};

class Request {
public:
    /// `discard` frees what a request no longer needs. Null: it is freed at once.
    using Discard = std::function<void(Rpc)>;
    Request(std::shared_ptr<Session> session, Rpc rpc, Discard discard = nullptr);
    /// Refuses the request if it has no answer yet.
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    [[nodiscard]] const lyd_node* Operation() const { return m_rpc.operation.get(); }
    [[nodiscard]] const std::optional<SubtreeFilter>& Filter() const { return m_rpc.filter; }
    [[nodiscard]] bool IsLong() const { return m_rpc.isLong; }
    [[nodiscard]] const Session::Identity& Who() const { return m_session->Who(); }
    [[nodiscard]] SessionParty Party() const { return m_session->Party(); }
    /// As of Session.
    [[nodiscard]] const std::optional<netconf::Origin>& Origin() const { return m_session->Origin(); }

    /// False once the session has ended: work that has not begun is then dropped.
    [[nodiscard]] bool Wanted() const { return m_session->IsOpen(); }

    /// Gives the request a place in the room for answers; its answer keeps it until the client has read it.
    void Occupy(std::shared_ptr<AnswerPlace> place) { m_place = std::move(place); }

    /// The answer will name the commit that was made, how many changes were made, and who has acknowledged
    /// them: in attributes of the module switch-history on <rpc-reply>, since RFC 6241 has no place for them
    /// beside <ok/>. An attribute of the client's that could be confused with them, which goes back as it
    /// came, keeps them out.
    void NoteCommit(std::uint64_t commit) { m_commit = commit; }
    void NoteChanges(std::size_t changes) { m_changes = changes; }
    /// The users whose edits were committed, too, with the number of edits.
    void NoteOthers(std::vector<std::pair<std::string, std::uint32_t>> others)
    {
        m_others = std::move(others);
    }
    void NoteAcknowledged(std::vector<Acknowledgement> acknowledged)
    {
        m_acknowledged = std::move(acknowledged);
    }

    /// Answers that it is done: <ok/>, or the warnings instead (RFC 6241, section 4.4).
    void Ok(const std::vector<netconf::RpcError>& warnings = {});
    void Refuse(const netconf::RpcError& error);
    void Refuse(const std::vector<netconf::RpcError>& errors);
    /// Answers with data: `write` appends the content of <data>; `attributes` are those of <data>, each with
    /// a blank before it. Warnings come before it (RFC 6241, section 4.2).
    void Data(const std::function<void(std::string& out)>& write, std::string_view attributes = {},
              const std::vector<netconf::RpcError>& warnings = {});
    /// The same in two steps, for long answers: any thread may call DataText, the loop then calls Reply.
    [[nodiscard]] std::string DataText(const std::function<void(std::string& out)>& write,
                                       std::string_view attributes = {},
                                       const std::vector<netconf::RpcError>& warnings = {}) const;
    /// The same for an operation with an output of its own: `write` appends the elements.
    [[nodiscard]] std::string OutputText(const std::function<void(std::string& out)>& write) const;
    void Reply(std::string text) { Send(std::move(text)); }
    /// Answers <ok/> and ends the session.
    void OkAndFinish();
    /// Answers <ok/>; `make` then makes the subscription of the session, whose news are sent when `wake` is
    /// called.
    void OkAndSubscribe(
        const std::function<std::unique_ptr<EventSubscription>(std::function<void()> wake)>& make);
    [[nodiscard]] bool IsSubscribed() const { return m_session->IsSubscribed(); }

private:
    std::string Head() const;
    std::string Notes() const;
    void LetGo();
    void Send(std::string reply);

    std::shared_ptr<Session> m_session;
    Rpc m_rpc;
    Discard m_discard;
    std::shared_ptr<AnswerPlace> m_place;
    std::optional<std::uint64_t> m_commit;
    std::optional<std::size_t> m_changes;
    std::vector<Acknowledgement> m_acknowledged;
    std::vector<std::pair<std::string, std::uint32_t>> m_others;
    bool m_answered = false;
};

using RequestPtr = std::shared_ptr<Request>;

/// The whole reply that refuses a message that did not become a request.
std::string RefusalText(const std::string& attributes, const netconf::RpcError& error);

}  // namespace agent

#endif
