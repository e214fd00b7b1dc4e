// SPDX-License-Identifier: Apache-2.0
// The session with sflow-mgr: its greeting, the found and lost notices, and its ends.

#include "platform/embedded/sflow/service_client.h"

#include <unistd.h>

#include <utility>

#include "ipc/frame.h"
#include "ipc/manager.pb.h"
#include "log/log.h"

namespace embedded {
namespace {

using ipc::manager::ClientMessage;
using ipc::manager::ServerMessage;

constexpr std::chrono::milliseconds kCheckInterval{1000};

void Tell(const sflow::IService::Notice& notice)
{
    if (notice.first) notice.first(notice.second);
}

}  // namespace

ServiceClient::ServiceClient(Runtime& runtime, Notice found, Notice lost)
    : m_runtime(runtime),
      m_found(std::move(found)),
      m_lost(std::move(lost)),
      m_link(runtime.loop, *runtime.timers, runtime.managerSocket,
             {[this] { Greet(); }, [this](std::string_view frame) { OnFrame(frame); },
              [this](std::string_view reason) { OnClosed(reason); }})
{
    m_runtime.gate.Add(*this);
    if (m_runtime.gate.IsOpen()) m_link.Start();
}

ServiceClient::~ServiceClient() { m_runtime.gate.Remove(*this); }

void ServiceClient::GateOpened() { m_link.Start(); }

void ServiceClient::GateClosed(bool tell)
{
    m_link.Stop();
    if (tell) return EndSession("the connection to cdbd is gone");
    m_check.reset();
    m_open = false;
}

void ServiceClient::Greet()
{
    ClientMessage message;
    auto& hello = *message.mutable_hello();
    hello.set_protocol(ipc::kProtocolVersion);
    hello.set_process(m_runtime.process);
    hello.set_pid(::getpid());
    m_link.Send(message);
}

void ServiceClient::OnFrame(std::string_view frame)
{
    ServerMessage message;
    if (!message.ParseFromArray(frame.data(), static_cast<int>(frame.size()))) {
        slog::Error("giving up the session with sflow-mgr: it sent a message that can't be read");
        m_link.Retry();
        return EndSession("the manager sent a message that can't be read");
    }
    switch (message.body_case()) {
    case ServerMessage::kOpened:
        return OnOpened();
    case ServerMessage::kRefused:
        return OnRefused(message.refused());
    case ServerMessage::kResync:
        m_link.Renew();
        return EndSession("the manager asks for everything again");
    case ServerMessage::BODY_NOT_SET:
        return;  // from a newer manager; needs no answer
    }
}

void ServiceClient::OnOpened()
{
    if (m_open) return;
    m_link.Accepted();
    m_lastRefusal.clear();
    m_open = true;
    slog::Notice("session with sflow-mgr opened");
    CheckProgress();
    Tell(m_found);
    ClientMessage loaded;
    loaded.mutable_loaded();
    Send(loaded);
}

void ServiceClient::OnRefused(const ipc::manager::Refused& refused)
{
    std::string text = refused.reason();
    if (refused.holder_pid() != 0) text += " (held by process " + std::to_string(refused.holder_pid()) + ")";
    if (std::exchange(m_lastRefusal, text) != text)
        slog::Notice("sflow-mgr refuses us: {}; trying again", text);
    m_link.Retry();
    EndSession("refused");
}

void ServiceClient::OnClosed(std::string_view reason) { EndSession(reason); }

void ServiceClient::CheckProgress()
{
    if (m_link.Stuck(m_runtime.stuckLimit)) {
        m_link.Retry();
        return EndSession("the manager takes nothing");
    }
    m_check = m_runtime.timers->After(kCheckInterval, [this] { CheckProgress(); });
}

void ServiceClient::EndSession(std::string_view reason)
{
    m_check.reset();
    if (!std::exchange(m_open, false)) return;
    slog::Notice("session with sflow-mgr lost: {}", reason);
    Tell(m_lost);
}

/// Dropped outside a session: the next session sends everything anew.
void ServiceClient::Send(const ClientMessage& message)
{
    if (m_open) m_link.Send(message);
}

}  // namespace embedded

namespace sflow {

std::unique_ptr<IService> IService::Build(Notice found, Notice lost)
{
    return std::make_unique<embedded::ServiceClient>(embedded::TheRuntime(), std::move(found),
                                                     std::move(lost));
}

}  // namespace sflow
