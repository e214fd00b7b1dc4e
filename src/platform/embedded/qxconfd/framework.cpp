// SPDX-License-Identifier: Apache-2.0
// The connection to cdbd: registration, the initial load, refusals and its end.

#include "platform/embedded/qxconfd/framework.h"

#include <malloc.h>
#include <unistd.h>

#include <utility>

#include <boost/asio/post.hpp>

#include "base/version.h"
#include "cdb/model/value.h"
#include "ipc/cdb.pb.h"
#include "ipc/frame.h"
#include "log/log.h"
#include "platform/embedded/qxos/context_access.h"

namespace qxconfd {

using ipc::cdb::ClientMessage;
using ipc::cdb::ServerMessage;

namespace {

/// After a message of this size, freed memory is given back to the system.
constexpr std::size_t kLargeMessage = std::size_t{1} << 20;

}  // namespace

AppInterface::Impl::Impl(embedded::Runtime& runtime, std::string application, Handlers handlers,
                         ELEM_CONFD_PHASE_ET phase)
    : m_runtime(runtime),
      m_application(std::move(application)),
      m_handlers(std::move(handlers)),
      m_phase(phase),
      m_callpoints(runtime, *this, m_handlers.data),
      m_link(runtime.loop, *runtime.timers, runtime.cdbSocket,
             {[this] { Register(); }, [this](std::string_view frame) { OnFrame(frame); },
              [this](std::string_view reason) { OnClosed(reason); }})
{
    for (auto* handler : AllHandlers()) handler->SetConfdInterface(this);
    m_link.Start();
}

AppInterface::Impl::~Impl()
{
    m_link.Stop();
    m_connected = false;
    m_runtime.gate.Close(false);
    for (auto* handler : AllHandlers()) handler->SetConfdInterface(nullptr);
}

int AppInterface::Impl::OpenCdbSession(cdb_db_type database, bool)
{
    if (database != CDB_RUNNING)
        throw QxConfdSessionError("datastore " + std::to_string(database) + " can't be read; running is 1");
    if (!m_connected) throw QxConfdSessionError("not connected to cdbd");
    try {
        return m_runtime.database.OpenSession();
    } catch (const std::runtime_error& error) {
        throw QxConfdSessionError(error.what());
    }
}

void AppInterface::Impl::Register()
{
    ClientMessage hello;
    hello.mutable_hello()->set_protocol(ipc::kProtocolVersion);
    hello.mutable_hello()->set_process(m_application);
    hello.mutable_hello()->set_pid(::getpid());
    hello.mutable_hello()->set_version(base::Version());
    m_link.Send(hello);
    RegisterPoints();
    for (const std::string& name : m_callpoints.Names()) {
        ClientMessage message;
        message.mutable_register_callpoint()->set_name(name);
        m_link.Send(message);
    }
    ClientMessage ready;
    ready.mutable_ready();
    m_link.Send(ready);
}

void AppInterface::Impl::RegisterPoints()
{
    m_points.clear();
    for (auto* handler : m_handlers.config) {
        for (const auto& point : handler->GetSubscriptionPoints()) {
            ClientMessage message;
            auto& subscribe = *message.mutable_subscribe();
            subscribe.set_id(static_cast<std::uint32_t>(m_points.size()));
            subscribe.set_priority(point.priority);
            subscribe.set_ns(point.ns);
            subscribe.set_path(point.path);
            subscribe.set_flags(point.flags);
            m_link.Send(message);
            m_points.push_back({handler, &point});
        }
    }
}

void AppInterface::Impl::OnFrame(std::string_view frame)
{
    ServerMessage message;
    if (frame.size() > ipc::kMaxFrame ||
        !message.ParseFromArray(frame.data(), static_cast<int>(frame.size())))
        return GiveUp("it sent a message that can't be read");
    if (!message.has_welcome() && !message.has_refused() && !m_connected)
        return GiveUp("it sent something else before its welcome");
    Dispatch(message);
    // Posted, so that queued answers are written first.
    if (frame.size() > kLargeMessage) boost::asio::post(m_runtime.loop, [] { malloc_trim(0); });
}

void AppInterface::Impl::Dispatch(ServerMessage& message)
{
    ClientMessage answer;
    switch (message.body_case()) {
    case ServerMessage::kWelcome:
        return OnWelcome(message.welcome());
    case ServerMessage::kRefused:
        return OnRefused(message.refused());
    case ServerMessage::kChangeSet:
        return OnChangeSet(std::unique_ptr<ipc::cdb::ChangeSet>(message.release_change_set()));
    case ServerMessage::kHaTransition:
        return OnHaTransition(message.ha_transition());
    case ServerMessage::kCallpointRequest:
        *answer.mutable_callpoint_reply() = m_callpoints.Answer(message.callpoint_request());
        break;
    case ServerMessage::kStateRequest:
        answer.mutable_state_reply()->set_request(message.state_request().request());
        answer.mutable_state_reply()->set_error(m_application + " has no state");
        break;
    case ServerMessage::kActionRequest:
        answer.mutable_action_reply()->set_request(message.action_request().request());
        answer.mutable_action_reply()->set_error(m_application + " has no action " +
                                                 message.action_request().name());
        break;
    case ServerMessage::BODY_NOT_SET:
        return;  // from a newer cdbd; needs no answer
    }
    m_link.Send(answer);
}

void AppInterface::Impl::OnWelcome(const ipc::cdb::Welcome& welcome)
{
    if (m_connected) return GiveUp("it sent a second welcome");
    try {
        m_runtime.database.Open(welcome.store_dir());
    } catch (const std::runtime_error& error) {
        return GiveUp(std::string("its store can't be read: ") + error.what());
    }
    m_link.Accepted();
    m_lastRefusal.clear();
    m_connected = true;
    slog::Notice("connected to cdbd at commit {}", welcome.commit());
    LoadInitially();
    m_runtime.gate.Open();
}

void AppInterface::Impl::LoadInitially()
{
    for (auto* handler : AllHandlers()) handler->ConfdConnected(m_phase);
    for (auto* handler : m_handlers.config) {
        {
            const QxConfdCdbSessionBase session(*this, CDB_RUNNING, true);
            handler->LoadInitialConfig(session.Socket());
        }
        handler->ApplyInitialConfig();
    }
}

void AppInterface::Impl::OnRefused(const ipc::cdb::Refused& refused)
{
    std::string text = refused.reason();
    if (refused.holder_pid() != 0) text += " (held by process " + std::to_string(refused.holder_pid()) + ")";
    if (std::exchange(m_lastRefusal, text) != text) slog::Notice("cdbd refuses us: {}; trying again", text);
    m_link.Retry();
    Disconnect("refused");
}

void AppInterface::Impl::OnClosed(std::string_view reason) { Disconnect(std::string(reason)); }

void AppInterface::Impl::GiveUp(const std::string& reason)
{
    slog::Error("giving up the connection to cdbd: {}", reason);
    m_link.Retry();
    Disconnect(reason);
}

void AppInterface::Impl::Disconnect(const std::string& reason)
{
    if (!std::exchange(m_connected, false)) return;
    slog::Notice("connection to cdbd lost: {}", reason);
    for (auto* handler : AllHandlers()) handler->ConfdDisconnected();
    m_runtime.gate.Close(true);
}

std::vector<BaseHandler*> AppInterface::Impl::AllHandlers() const
{
    std::vector<BaseHandler*> all(m_handlers.config.begin(), m_handlers.config.end());
    all.insert(all.end(), m_handlers.action.begin(), m_handlers.action.end());
    all.insert(all.end(), m_handlers.data.begin(), m_handlers.data.end());
    return all;
}

}  // namespace qxconfd
