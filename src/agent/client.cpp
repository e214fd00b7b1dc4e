#include "agent/client.h"

#include <algorithm>

#include "ipc/frame.h"
#include "log/log.h"

namespace agent {
namespace {

using ipc::cdb::ClientMessage;

/// More of them than any program has a use for.
constexpr std::size_t kMaxRegistrations = 256;
constexpr std::size_t kMaxName = 256;

}  // namespace

Client::Client(std::shared_ptr<ipc::Channel> channel, ClientHost& host, std::int64_t connectedUs)
    : m_channel(std::move(channel)), m_host(host), m_connectedUs(connectedUs)
{
}

void Client::Start()
{
    // The channel calls no handler after the end; it holds the client until then.
    const auto self = shared_from_this();
    m_channel->Start({[self](std::string_view frame) { self->OnFrame(frame); },
                      [self](std::string_view reason) { self->End(std::string(reason)); }});
}

std::string Client::Name() const
{
    return (m_process.empty() ? "a client" : m_process) + " (process " + std::to_string(m_pid) + ")";
}

std::size_t Client::QueuedBytes() const { return m_channel->QueuedBytes(); }

bool Client::Ask(AnswerKey key, const ipc::cdb::ServerMessage& message, AnswerHandler handler)
{
    if (m_phase == Phase::kEnded) return false;
    m_questions[key] = std::move(handler);
    // A send that fails ends the connection, and that answers every question.
    static_cast<void>(m_channel->Send(message));
    return true;
}

void Client::Disconnect(const std::string& reason)
{
    if (m_phase == Phase::kEnded) return;
    m_channel->Close(true);
    End(reason);
}

void Client::OnFrame(std::string_view frame)
{
    ClientMessage message;
    if (!message.ParseFromArray(frame.data(), static_cast<int>(frame.size())))
        return Disconnect("a frame is no message that is known here");
    Handle(message);
}

void Client::Handle(const ClientMessage& message)
{
    switch (message.body_case()) {
    case ClientMessage::kHello:
        return OnHello(message.hello());
    case ClientMessage::kSubscribe:
    case ClientMessage::kRegisterCallpoint:
    case ClientMessage::kRegisterStateProvider:
    case ClientMessage::kReady:
        return OnRegistration(message);
    case ClientMessage::kChangeSetAck:
        return OnAnswer({message.body_case(), message.change_set_ack().commit()}, message);
    case ClientMessage::kCallpointReply:
        return OnAnswer({message.body_case(), message.callpoint_reply().request()}, message);
    case ClientMessage::kStateReply:
        return OnAnswer({message.body_case(), message.state_reply().request()}, message);
    case ClientMessage::kHaReply:
        return OnAnswer({message.body_case(), message.ha_reply().request()}, message);
    case ClientMessage::kActionReply:
        return OnAnswer({message.body_case(), message.action_reply().request()}, message);
    case ClientMessage::kFaultReport:
        return m_host.OnFault(message.fault_report());
    case ClientMessage::BODY_NOT_SET:
        break;
    }
    Disconnect("a message is empty or of an unknown kind");
}

void Client::OnHello(const ipc::cdb::Hello& hello)
{
    if (m_phase != Phase::kNew) return Disconnect("it said hello twice");
    m_process = hello.process().substr(0, kMaxName);
    // The kernel knows better who that is, but not across namespaces of processes.
    const std::int64_t peer = m_channel->Peer().pid;
    m_pid = peer > 0 ? peer : hello.pid();
    if (hello.protocol() != ipc::kProtocolVersion)
        return Refuse({"the client speaks protocol " + std::to_string(hello.protocol()) + ", cdbd speaks " +
                           std::to_string(ipc::kProtocolVersion) + ": install programs of one version",
                       0});
    m_phase = Phase::kRegistering;
}

void Client::OnRegistration(const ClientMessage& message)
{
    if (m_phase != Phase::kRegistering) return Disconnect("it registered before its hello or after ready");
    if (message.body_case() == ClientMessage::kReady) return OnReady();
    if (m_subscriptions.size() + m_callpoints.size() + m_providers.size() >= kMaxRegistrations)
        return Refuse({"more than " + std::to_string(kMaxRegistrations) + " registrations", 0});
    if (message.body_case() == ClientMessage::kSubscribe) return OnSubscribe(message.subscribe());
    if (message.body_case() == ClientMessage::kRegisterCallpoint)
        return OnCallpoint(message.register_callpoint().name());
    OnProvider({message.register_state_provider().path()});
}

void Client::OnCallpoint(const std::string& name)
{
    if (const auto refusal = m_host.CheckCallpoint(*this, name)) return Refuse(*refusal);
    if (std::find(m_callpoints.begin(), m_callpoints.end(), name) == m_callpoints.end())
        m_callpoints.push_back(name);
}

void Client::OnProvider(const StateProvision& wanted)
{
    if (const auto refusal = m_host.CheckProvider(*this, wanted)) return Refuse(*refusal);
    const auto same = [&wanted](const StateProvision& each) { return each.path == wanted.path; };
    if (std::none_of(m_providers.begin(), m_providers.end(), same)) m_providers.push_back(wanted);
}

void Client::OnSubscribe(const ipc::cdb::Subscribe& wanted)
{
    const auto sameId = [&wanted](const Subscription& each) { return each.id == wanted.id(); };
    if (std::any_of(m_subscriptions.begin(), m_subscriptions.end(), sameId))
        return Refuse({"two subscriptions have the number " + std::to_string(wanted.id()), 0});
    cdb::NodeId point = cdb::kNoNode;
    if (const auto refusal = m_host.CheckSubscription(wanted, point)) return Refuse(*refusal);
    m_subscriptions.push_back({wanted.id(), wanted.priority(), point, wanted.path()});
}

void Client::OnReady()
{
    m_phase = Phase::kReady;
    ipc::cdb::ServerMessage message;
    *message.mutable_welcome() = m_host.MakeWelcome();
    static_cast<void>(m_channel->Send(message));  // a failure ends the connection
    slog::Notice("{} is connected", Name());
}

void Client::OnAnswer(AnswerKey key, const ClientMessage& message)
{
    if (m_phase != Phase::kReady) return Disconnect("it answered before it was ready");
    const auto question = m_questions.find(key);
    if (question == m_questions.end()) return;  // too late: nobody waits for it any more
    const AnswerHandler handler = std::move(question->second);
    m_questions.erase(question);
    handler(&message);
}

void Client::Refuse(const Refusal& refusal)
{
    ipc::cdb::ServerMessage message;
    message.mutable_refused()->set_reason(refusal.reason);
    message.mutable_refused()->set_holder_pid(refusal.holder);
    static_cast<void>(m_channel->Send(message));  // it is turned away in any case
    m_channel->Close();
    End("refused: " + refusal.reason);
}

void Client::End(const std::string& reason)
{
    if (m_phase == Phase::kEnded) return;
    const bool known = !m_process.empty();
    m_phase = Phase::kEnded;
    if (known) slog::Notice("{} is disconnected: {}", Name(), reason);
    const auto self = shared_from_this();
    m_host.OnGone(self);
    auto questions = std::move(m_questions);
    m_questions.clear();
    for (auto& [key, handler] : questions) handler(nullptr);
}

}  // namespace agent
