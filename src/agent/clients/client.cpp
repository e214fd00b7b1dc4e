// SPDX-License-Identifier: Apache-2.0
#include "agent/clients/client.h"

#include <algorithm>

#include <google/protobuf/arena.h>

#include "base/text.h"
#include "base/user.h"
#include "ipc/frame.h"
#include "log/log.h"

namespace agent {
namespace {

using ipc::cdb::ClientMessage;

/// More than any program needs.
constexpr std::size_t kMaxRegistrations = 256;
constexpr std::size_t kMaxName = 256;

/// Makes the texts that others will see presentable, once for all.
void MakeTextsPresentable(ClientMessage& message)
{
    const auto fit = [](std::string* text) { base::MakePresentable(*text); };
    switch (message.body_case()) {
    case ClientMessage::kHello:
        base::MakePresentable(*message.mutable_hello()->mutable_version(), kMaxName);
        return base::MakePresentable(*message.mutable_hello()->mutable_process(), kMaxName);
    case ClientMessage::kSubscribe:
        return fit(message.mutable_subscribe()->mutable_path());
    case ClientMessage::kRegisterCallpoint:
        return fit(message.mutable_register_callpoint()->mutable_name());
    case ClientMessage::kRegisterStateProvider:
        return fit(message.mutable_register_state_provider()->mutable_path());
    case ClientMessage::kCallpointReply:
        return fit(message.mutable_callpoint_reply()->mutable_error());
    case ClientMessage::kStateReply:
        return fit(message.mutable_state_reply()->mutable_error());
    case ClientMessage::kActionReply:
        return fit(message.mutable_action_reply()->mutable_error());
    case ClientMessage::kFaultReport: {
        auto& fault = *message.mutable_fault_report();
        base::MakePresentable(*fault.mutable_process(), kMaxName);
        fit(fault.mutable_function());
        fit(fault.mutable_file());
        return fit(fault.mutable_text());
    }
    default:
        return;  // no texts
    }
}

}  // namespace

Client::Client(std::shared_ptr<ipc::Channel> channel, ClientHost& host, std::int64_t connectedUs)
    : m_channel(std::move(channel)), m_host(host), m_pid(m_channel->Peer().pid), m_connectedUs(connectedUs)
{
}

void Client::Start(base::Timers& timers, std::chrono::milliseconds helloTimeout)
{
    m_helloTimer = timers.After(helloTimeout, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->Disconnect("it has not said in time what it wants");
    });
    // The channel keeps the client until the end, and calls no handler after it.
    const auto self = shared_from_this();
    m_channel->Start({[self](std::string_view frame) { self->OnFrame(frame); },
                      [self](std::string_view reason) { self->End(std::string(reason)); }});
}

std::string Client::Name() const
{
    const std::string name = m_process.empty() ? "a client of " + base::UserName(Peer().uid) : m_process;
    return name + " (process " + std::to_string(m_pid) + ")";
}

const ipc::PeerCredentials& Client::Peer() const { return m_channel->Peer(); }

std::size_t Client::QueuedBytes() const { return m_channel->QueuedBytes(); }

bool Client::Ask(AnswerKey key, const google::protobuf::MessageLite& message, AnswerHandler handler)
{
    if (m_phase == Phase::kEnded) return false;
    m_questions[key] = std::move(handler);
    if (key.first == ClientMessage::kChangeSetAck) m_sentCommit = key.second;
    // A failed send ends the connection, which answers every question.
    static_cast<void>(m_channel->Send(message));
    return true;
}

void Client::SendChanges(std::uint64_t commit, const google::protobuf::MessageLite& message)
{
    if (m_phase == Phase::kEnded) return;
    m_sentCommit = commit;
    static_cast<void>(m_channel->Send(message));  // a failure ends the connection
}

void Client::AddMiss()
{
    m_misses.Add(m_host.NowUs());
    if (m_misses.commits == Misses::kMostAwaited)
        slog::Error(
            "{} has missed {} commits in a row; commits do not wait for it until it has loaded the "
            "configuration",
            Name(), m_misses.commits);
}

void Client::Disconnect(const std::string& reason)
{
    if (m_phase == Phase::kEnded) return;
    m_channel->Close(true);
    End(reason);
}

void Client::OnFrame(std::string_view frame)
{
    google::protobuf::Arena arena;  // a part of a large state has thousands of pieces
    auto& message = *google::protobuf::Arena::CreateMessage<ClientMessage>(&arena);
    if (!message.ParseFromArray(frame.data(), static_cast<int>(frame.size())))
        return Disconnect("a frame is no message that is known here");
    MakeTextsPresentable(message);
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
    case ClientMessage::kLoaded:
        return OnLoaded();
    case ClientMessage::kChangeSetAck:
        OnAcknowledged(message.change_set_ack().commit());
        return OnAnswer({message.body_case(), message.change_set_ack().commit()}, message);
    case ClientMessage::kCallpointReply:
        return OnAnswer({message.body_case(), message.callpoint_reply().request()}, message);
    case ClientMessage::kStateReply:
        return OnAnswer({message.body_case(), message.state_reply().request()}, message);
    case ClientMessage::kHaReply:
        OnTransition(message.ha_reply());
        return OnAnswer({message.body_case(), message.ha_reply().request()}, message);
    case ClientMessage::kActionReply:
        return OnAnswer({message.body_case(), message.action_reply().request()}, message);
    case ClientMessage::kFaultReport:
        return OnFault(message.fault_report());
    case ClientMessage::kProblemChanges:
        return OnProblems(message.problem_changes());
    case ClientMessage::BODY_NOT_SET:
        break;
    }
    Disconnect("a message is empty or of an unknown kind");
}

void Client::OnHello(const ipc::cdb::Hello& hello)
{
    if (m_phase != Phase::kNew) return Disconnect("it said hello twice");
    m_process = hello.process();
    m_version = hello.version();
    // The kernel's process id counts, but it has none across process namespaces.
    if (m_pid <= 0) m_pid = hello.pid();
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

bool Client::RefuseRole(ipc::Role role)
{
    const auto refusal = m_host.CheckRole(*this, role);
    if (refusal) Refuse(*refusal);
    return refusal.has_value();
}

void Client::OnCallpoint(const std::string& name)
{
    if (RefuseRole(ipc::Role::kCallpoint)) return;
    if (const auto refusal = m_host.CheckCallpoint(*this, name)) return Refuse(*refusal);
    if (std::find(m_callpoints.begin(), m_callpoints.end(), name) == m_callpoints.end())
        m_callpoints.push_back(name);
}

void Client::OnProvider(const StateProvision& wanted)
{
    if (RefuseRole(ipc::Role::kState)) return;
    if (const auto refusal = m_host.CheckProvider(*this, wanted)) return Refuse(*refusal);
    const auto same = [&wanted](const StateProvision& each) { return each.path == wanted.path; };
    if (std::none_of(m_providers.begin(), m_providers.end(), same)) m_providers.push_back(wanted);
}

void Client::OnSubscribe(const ipc::cdb::Subscribe& wanted)
{
    if (RefuseRole(ipc::Role::kSubscribe)) return;
    const auto sameId = [&wanted](const Subscription& each) { return each.id == wanted.id(); };
    if (std::any_of(m_subscriptions.begin(), m_subscriptions.end(), sameId))
        return Refuse({"two subscriptions have the number " + std::to_string(wanted.id()), 0});
    cdb::NodeId point = cdb::kNoNode;
    if (const auto refusal = m_host.CheckSubscription(wanted, point)) return Refuse(*refusal);
    m_subscriptions.push_back({wanted.id(), wanted.priority(), point, wanted.path()});
}

void Client::OnReady()
{
    // A client without registrations still gets transitions and the store's directory.
    const bool isBare = m_subscriptions.empty() && m_callpoints.empty() && m_providers.empty();
    if (isBare && RefuseRole(ipc::Role::kSubscribe)) return;
    m_phase = Phase::kReady;
    m_helloTimer.reset();
    ipc::cdb::ServerMessage message;
    *message.mutable_welcome() = m_host.MakeWelcome();
    m_welcomeCommit = message.welcome().commit();
    if (!m_subscriptions.empty()) m_misses = m_host.TakeMisses(*this);
    static_cast<void>(m_channel->Send(message));  // a failure ends the connection
    slog::Notice("{} is connected", Name());
    m_wasReady = true;
    m_host.OnReady(*this);
}

/// One of a commit that was not sent, or a second one, tells nothing.
void Client::OnAcknowledged(std::uint64_t commit)
{
    if (m_phase != Phase::kReady || commit <= m_acknowledgedCommit || commit > m_sentCommit) return;
    m_acknowledgedCommit = commit;
    m_acknowledgedUs = m_host.NowUs();
    // It works through its messages one after the other: what it loads comes before.
    OnLoaded();
}

void Client::OnLoaded()
{
    if (m_phase != Phase::kReady) return Disconnect("it said that it has loaded before it was ready");
    if (!m_misses.Any()) return;
    slog::Notice("{} has loaded the configuration; it had missed {} commits", Name(), m_misses.commits);
    m_misses = {};
}

void Client::OnProblems(const ipc::cdb::ProblemChanges& changes)
{
    if (m_phase != Phase::kReady || m_providers.empty())
        return Disconnect("it told of problems and provides no state");
    m_host.OnProblems(changes);
}

void Client::OnFault(const ipc::cdb::FaultReport& fault)
{
    if (!RefuseRole(ipc::Role::kFaults)) m_host.OnFault(*this, fault);
}

/// That of an earlier transition tells nothing: the one that was sent last decides.
void Client::OnTransition(const ipc::cdb::HaReply& reply)
{
    if (reply.handled() && m_roleRequest != 0 && reply.request() == m_roleRequest) m_role = m_roleTold;
}

void Client::OnAnswer(AnswerKey key, const ClientMessage& message)
{
    if (m_phase != Phase::kReady) return Disconnect("it answered before it was ready");
    const auto question = m_questions.find(key);
    if (question == m_questions.end()) return;  // too late: the question was forgotten
    const AnswerHandler handler = std::move(question->second);
    m_questions.erase(question);
    handler(&message);
}

void Client::Refuse(const Refusal& refusal)
{
    ipc::cdb::ServerMessage message;
    message.mutable_refused()->set_reason(refusal.reason);
    message.mutable_refused()->set_holder_pid(refusal.holder);
    static_cast<void>(m_channel->Send(message));  // the client is turned away in any case
    m_channel->Close();
    if (m_process.empty()) slog::Notice("{} is refused: {}", Name(), refusal.reason);
    End("refused: " + refusal.reason);
}

void Client::End(const std::string& reason)
{
    if (m_phase == Phase::kEnded) return;
    // There may be many clients that send nothing, or only a fault.
    if (!m_process.empty())
        slog::Notice("{} is disconnected: {}", Name(), reason);
    else if (slog::Enabled(static_cast<int>(slog::Level::kInfo)))
        slog::Info("{} is disconnected: {}", Name(), reason);
    m_phase = Phase::kEnded;
    m_helloTimer.reset();
    const auto self = shared_from_this();
    m_host.OnGone(self, reason);
    auto questions = std::move(m_questions);
    m_questions.clear();
    for (auto& [key, handler] : questions) handler(nullptr);
}

}  // namespace agent
