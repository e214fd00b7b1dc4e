#include "manager/state_provider.h"

#include <unistd.h>

#include <utility>

#include "ipc/cdb.pb.h"
#include "ipc/frame.h"
#include "log/log.h"

namespace manager {
namespace {

using ipc::cdb::ClientMessage;
using ipc::cdb::ServerMessage;

constexpr const char* kStatePath = "/state/oam/sflow";
constexpr const char* kConfigurationPath = "/config/oam/sflow";

/// What a message has beside the state itself, generously.
constexpr std::size_t kEnvelope = 1024;

}  // namespace

StateProvider::StateProvider(boost::asio::io_context& loop, ipc::Timers& timers, std::string socketPath,
                             Handlers handlers)
    : m_handlers(std::move(handlers)),
      m_link(loop, timers, std::move(socketPath),
             {[this] { Introduce(); }, [this](std::string_view frame) { OnFrame(frame); },
              [](std::string_view reason) { slog::Notice("connection to the database ended: {}", reason); }})
{
}

void StateProvider::Introduce()
{
    ClientMessage message;
    message.mutable_hello()->set_protocol(ipc::kProtocolVersion);
    message.mutable_hello()->set_process("sflow-mgr");
    message.mutable_hello()->set_pid(::getpid());
    m_link.Send(message);
    message.mutable_register_state_provider()->set_path(kStatePath);
    message.mutable_register_state_provider()->set_config_path(kConfigurationPath);
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

void StateProvider::OnMessage(const ServerMessage& message)
{
    switch (message.body_case()) {
    case ServerMessage::kWelcome:
        m_refusalLogged = false;
        m_link.Accepted();
        slog::Notice("connected to the database");
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
    case ServerMessage::kCallpointRequest:
    case ServerMessage::BODY_NOT_SET:
        slog::Info("the database sent message {}, which the manager has not asked for",
                   static_cast<int>(message.body_case()));
        break;
    }
}

void StateProvider::OnRefused(const std::string& reason)
{
    if (!std::exchange(m_refusalLogged, true))
        slog::Error("the database refuses the manager: {}; trying again until it does not", reason);
    m_link.Retry();
}

void StateProvider::AnswerState(const ipc::cdb::StateRequest& request)
{
    ClientMessage answer;
    auto& reply = *answer.mutable_state_reply();
    reply.set_request(request.request());
    std::string_view configuration;
    for (const auto& part : request.configuration())
        if (part.path() == kConfigurationPath) configuration = part.json();
    std::string state = m_handlers.state(configuration);
    if (state.size() + kEnvelope > ipc::kMaxFrame)
        reply.set_error("the state of sFlow is larger than a message may be");
    else
        reply.set_json(std::move(state));
    m_link.Send(answer);
}

void StateProvider::AnswerAction(const ipc::cdb::ActionRequest& request)
{
    ClientMessage answer;
    auto& reply = *answer.mutable_action_reply();
    reply.set_request(request.request());
    if (request.name() == "resync")
        reply.set_error(m_handlers.resync());
    else
        reply.set_error("the sFlow manager knows no request \"" + request.name() + "\"");
    m_link.Send(answer);
}

}  // namespace manager
