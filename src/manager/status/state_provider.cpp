// SPDX-License-Identifier: Apache-2.0
#include "manager/status/state_provider.h"

#include <unistd.h>

#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include "base/version.h"
#include "ipc/cdb.pb.h"
#include "ipc/frame.h"
#include "log/log.h"
#include "manager/settings/own_reader.h"

namespace manager {
namespace {

using ipc::cdb::ClientMessage;
using ipc::cdb::ServerMessage;

/// The pause while the database has too much to take.
constexpr std::chrono::milliseconds kPause{10};

/// Changes of problems in one message.
constexpr int kChangesAtOnce = 500;

void Fill(const OutputNode& node, ipc::cdb::ActionReply::Node& message)
{
    message.set_name(node.name);
    message.set_value(node.value);
    for (const OutputNode& child : node.children) Fill(child, *message.add_children());
}

}  // namespace

StateProvider::StateProvider(boost::asio::io_context& loop, base::Timers& timers, std::string socketPath,
                             Handlers handlers)
    : m_loop(loop),
      m_timers(timers),
      m_handlers(std::move(handlers)),
      m_part(std::make_unique<ClientMessage>()),
      m_link(loop, timers, std::move(socketPath),
             {[this] { Introduce(); }, [this](std::string_view frame) { OnFrame(frame); },
              [this](std::string_view reason) {
                  DropAnswers();
                  slog::Notice("connection to the database ended: {}", reason);
                  if (m_handlers.lost) m_handlers.lost();
              }})
{
}

StateProvider::~StateProvider() = default;

void StateProvider::Stop()
{
    DropAnswers();
    m_link.Stop();
}

void StateProvider::DropAnswers()
{
    m_turn.reset();
    m_answers.clear();
    m_connection = std::make_shared<int>();
}

void StateProvider::Introduce()
{
    DropAnswers();  // to a connection that was given up
    ClientMessage message;
    message.mutable_hello()->set_protocol(ipc::kProtocolVersion);
    message.mutable_hello()->set_process("sflow-mgr");
    message.mutable_hello()->set_pid(::getpid());
    message.mutable_hello()->set_version(base::Version());
    m_link.Send(message);
    FillSubscription(*message.mutable_subscribe());
    m_link.Send(message);
    message.mutable_register_state_provider()->set_path(kStatePath);
    m_link.Send(message);
    message.mutable_ready();
    m_link.Send(message);
}

void StateProvider::OnFrame(std::string_view frame)
{
    ServerMessage message;
    if (message.ParseFromArray(frame.data(), static_cast<int>(frame.size()))) return OnMessage(message);
    slog::Error("the database sent a frame that is no message; connecting again");
    m_link.Retry();
}

void StateProvider::OnMessage(ServerMessage& message)
{
    switch (message.body_case()) {
    case ServerMessage::kWelcome:
        m_refusalLogged = false;
        m_link.Accepted();
        slog::Notice("connected to the database");
        DropAnswers();
        m_handlers.accepted(message.welcome().store_dir());
        SayLoaded();
        break;
    case ServerMessage::kRefused:
        OnRefused(message.refused().reason());
        break;
    case ServerMessage::kStateRequest:
        AnswerState(message.state_request());
        break;
    case ServerMessage::kActionRequest:
        AnswerAction(message.action_request());
        break;
    case ServerMessage::kHaTransition: {
        // The manager does the same in either role: what is held is sampled.
        ClientMessage answer;
        answer.mutable_ha_reply()->set_request(message.ha_transition().request());
        answer.mutable_ha_reply()->set_handled(true);
        m_link.Send(answer);
        break;
    }
    case ServerMessage::kChangeSet:
        TakeChanges(*message.mutable_change_set());
        break;
    case ServerMessage::kCallpointRequest:
    case ServerMessage::BODY_NOT_SET:
        slog::Info("the database sent message {}, which the manager has not asked for",
                   static_cast<int>(message.body_case()));
        break;
    }
}

void StateProvider::SayLoaded()
{
    ClientMessage message;
    message.mutable_loaded();
    m_link.Send(message);
}

void StateProvider::Tell(const std::vector<ProblemChange>& changes)
{
    ClientMessage message;
    auto& list = *message.mutable_problem_changes();
    for (const auto& [begins, problem] : changes) {
        auto& change = *list.add_changes();
        change.set_begins(begins);
        change.set_subject(Name(problem.subject));
        change.set_name(problem.name);
        change.set_reason(Name(problem.reason));
        change.set_severity(Name(SeverityOf(problem.reason)));
        change.set_text(problem.text);
        if (list.changes_size() < kChangesAtOnce) continue;
        m_link.Send(message);
        list.clear_changes();
    }
    if (list.changes_size() > 0) m_link.Send(message);
}

void StateProvider::OnRefused(const std::string& reason)
{
    if (!std::exchange(m_refusalLogged, true))
        slog::Error("the database refuses the manager: {}; trying again until it does not", reason);
    m_link.Retry();
}

void StateProvider::AnswerState(const ipc::cdb::StateRequest& request)
{
    if (m_answers.size() >= kMaxQuestions) {
        ClientMessage answer;
        answer.mutable_state_reply()->set_request(request.request());
        answer.mutable_state_reply()->set_error("too many questions wait for an answer; ask again later");
        m_link.Send(answer);
        return;
    }
    m_answers.push_back({request.request(), m_handlers.state(request)});
    if (m_turn == nullptr) GoOn();
}

void StateProvider::GoOn()
{
    if (m_answers.empty()) return;
    if (m_link.QueuedBytes() > kMaxUnsent) return GoOnLater(kPause);
    Open open = std::move(m_answers.front());
    m_answers.pop_front();
    auto& reply = *m_part->mutable_state_reply();
    reply.Clear();  // keeps its memory: a large answer has hundreds of parts
    reply.set_request(open.request);
    const bool more = open.parts->Next(reply);
    reply.set_more(more);
    m_link.Send(*m_part);
    // The answers take turns, so that a small one does not wait for the end of a large one.
    if (more) m_answers.push_back(std::move(open));
    if (!m_answers.empty()) GoOnLater(std::chrono::milliseconds(0));
}

void StateProvider::GoOnLater(std::chrono::milliseconds delay)
{
    const auto goOn = [this] {
        m_turn.reset();
        GoOn();
    };
    if (delay.count() != 0) {
        m_turn = m_timers.After(delay, goOn);
        return;
    }
    m_turn = std::make_shared<int>();
    boost::asio::post(m_loop, [goOn, turn = std::weak_ptr<void>(m_turn)] {
        if (!turn.expired()) goOn();
    });
}

void StateProvider::TakeChanges(ipc::cdb::ChangeSet& changes)
{
    ClientMessage answer;
    answer.mutable_change_set_ack()->set_commit(changes.commit());
    m_link.Send(answer);
    // In the next turn: the acknowledgement leaves first, so the committer does not wait.
    const auto kept = std::make_shared<ipc::cdb::ChangeSet>(std::move(changes));
    boost::asio::post(m_loop, [this, kept, alive = std::weak_ptr<void>(m_alive)] {
        if (!alive.expired()) m_handlers.changed(*kept);
    });
}

void StateProvider::AnswerAction(const ipc::cdb::ActionRequest& request)
{
    const auto answer = [this, number = request.request(),
                         connection = std::weak_ptr<void>(m_connection)](const ActionResult& result) {
        // Of a connection that has ended nothing is asked any more.
        if (!connection.expired()) SendActionReply(number, result);
    };
    if (request.name() == "resync") return answer({m_handlers.resync(), {}});
    if (request.name() == "test-collector" && m_handlers.testCollector)
        return m_handlers.testCollector(request.subject(), answer);
    if (request.name() == "top-talkers" && m_handlers.topTalkers)
        return answer(m_handlers.topTalkers(request.subject()));
    if (request.name() == "clear-statistics" && m_handlers.clearStatistics) {
        m_handlers.clearStatistics();
        return answer({});
    }
    answer({"the sFlow manager knows no request \"" + request.name() + "\"", {}});
}

void StateProvider::SendActionReply(std::uint64_t request, const ActionResult& result)
{
    ClientMessage answer;
    auto& reply = *answer.mutable_action_reply();
    reply.set_request(request);
    reply.set_error(result.error);
    for (const OutputNode& node : result.output) Fill(node, *reply.add_output());
    m_link.Send(answer);
}

}  // namespace manager
