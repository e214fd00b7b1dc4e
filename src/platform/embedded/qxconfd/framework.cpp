// SPDX-License-Identifier: Apache-2.0
// The framework behind qxconfd::AppInterface: the connection to cdbd, its registrations, the initial load,
// refusals and its end, and the handling of cdbd's messages. The handlers are called here and in calls.h.

#include <malloc.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <qxconfd/app_interface.h>
#include <qxos/callback.h>
#include <qxos/context.h>

#include <boost/asio/post.hpp>

#include "base/version.h"
#include "ipc/cdb.pb.h"
#include "ipc/frame.h"
#include "ipc/link.h"
#include "log/log.h"
#include "platform/embedded/qxconfd/calls.h"
#include "platform/embedded/runtime.h"

namespace qxconfd {

using ipc::cdb::ClientMessage;
using ipc::cdb::ServerMessage;

namespace {

/// After a message of this size, freed memory is given back to the system.
constexpr std::size_t kLargeMessage = std::size_t{1} << 20;

/// The message's change set; nullopt if its nodes are not in the schema.
std::optional<cdb::ChangeSet> ChangesOf(const cdb::SchemaTable& schema, const ipc::cdb::ChangeSet& message)
{
    try {
        return cdb::ChangeSet{message.commit(), cdb::FromMessage(schema, message.root())};
    } catch (const std::invalid_argument&) {
        return std::nullopt;
    }
}

}  // namespace

class AppInterface::Impl final : public QxConfdInterface {
public:
    struct Handlers {
        std::vector<ConfigHandler*> config;
        std::vector<ActionHandler*> action;
        std::vector<DataHandler*> data;
    };

    /// `runtime` must outlive it.
    Impl(embedded::Runtime& runtime, std::string application, Handlers handlers, ELEM_CONFD_PHASE_ET phase)
        : m_runtime(runtime),
          m_application(std::move(application)),
          m_handlers(std::move(handlers)),
          m_phase(phase),
          m_callpoints(runtime, *this, m_handlers.data),
          m_link(runtime.loop, *runtime.timers, runtime.cdbSocket,
                 {[this] { Register(); }, [this](std::string_view frame) { OnFrame(frame); },
                  [this](std::string_view reason) { Disconnect(std::string(reason)); }})
    {
        for (auto* handler : AllHandlers()) handler->SetConfdInterface(this);
        m_link.Start();
    }

    ~Impl() override
    {
        m_link.Stop();
        m_connected = false;
        m_runtime.gate.Close(false);
        for (auto* handler : AllHandlers()) handler->SetConfdInterface(nullptr);
    }

    bool IsConnected() const override { return m_connected; }
    int MaapiSocket() const override { return embedded::kMaapiSocket; }
    int OpenCdbSession(cdb_db_type database, bool) override
    {
        if (database != CDB_RUNNING)
            throw QxConfdSessionError("datastore " + std::to_string(database) +
                                      " can't be read; running is 1");
        if (!m_connected) throw QxConfdSessionError("not connected to cdbd");
        try {
            return m_runtime.database.OpenSession();
        } catch (const std::runtime_error& error) {
            throw QxConfdSessionError(error.what());
        }
    }
    void CloseCdbSession(int socket) noexcept override { m_runtime.database.CloseSession(socket); }

private:
    void Register()
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

    void RegisterPoints()
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

    void OnFrame(std::string_view frame)
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

    void Dispatch(ServerMessage& message)
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

    void OnWelcome(const ipc::cdb::Welcome& welcome)
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
        ClientMessage loaded;
        loaded.mutable_loaded();
        m_link.Send(loaded);
        m_runtime.gate.Open();
    }

    void LoadInitially()
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

    void OnRefused(const ipc::cdb::Refused& refused)
    {
        std::string text = refused.reason();
        if (refused.holder_pid() != 0)
            text += " (held by process " + std::to_string(refused.holder_pid()) + ")";
        if (std::exchange(m_lastRefusal, text) != text)
            slog::Notice("cdbd refuses us: {}; trying again", text);
        m_link.Retry();
        Disconnect("refused");
    }

    void OnChangeSet(std::unique_ptr<ipc::cdb::ChangeSet> message)
    {
        const cdb::SchemaTable& schema = m_runtime.database.Schema();
        const auto changes = ChangesOf(schema, *message);
        if (!changes) return GiveUp("it sent a change of nodes that its schema does not have");
        std::vector<embedded::PointOfHandler> touched;
        for (const auto id : message->points()) {
            if (id >= m_points.size()) return GiveUp("it sent a change for a point that is not subscribed");
            touched.push_back(m_points[id]);
        }
        message.reset();  // the changes may be many: they must not be in memory twice while the handlers work
        {
            const embedded::Database::Pin commit(m_runtime.database);
            embedded::Deliver(schema, *changes, touched);
        }
        ipc::cdb::ClientMessage acknowledgement;
        acknowledgement.mutable_change_set_ack()->set_commit(changes->commit);
        m_link.Send(acknowledgement);
    }

    void OnHaTransition(const ipc::cdb::HaTransition& transition)
    {
        bool handled = false;
        if (qxos::the_context != nullptr) {
            const auto& callbacks = qxos::ContextAccess::CallbacksOf(*qxos::the_context);
            const bool active = transition.role() == ipc::cdb::HaTransition::ACTIVE;
            qxos::Callback* callback = active ? callbacks.goActive : callbacks.goStandby;
            handled = callback != nullptr && callback->Invoke();
        }
        ipc::cdb::ClientMessage answer;
        answer.mutable_ha_reply()->set_request(transition.request());
        answer.mutable_ha_reply()->set_handled(handled);
        m_link.Send(answer);
    }

    void GiveUp(const std::string& reason)
    {
        slog::Error("giving up the connection to cdbd: {}", reason);
        m_link.Retry();
        Disconnect(reason);
    }

    void Disconnect(const std::string& reason)
    {
        if (!std::exchange(m_connected, false)) return;
        slog::Notice("connection to cdbd lost: {}", reason);
        for (auto* handler : AllHandlers()) handler->ConfdDisconnected();
        m_runtime.gate.Close(true);
    }

    std::vector<BaseHandler*> AllHandlers() const
    {
        std::vector<BaseHandler*> all(m_handlers.config.begin(), m_handlers.config.end());
        all.insert(all.end(), m_handlers.action.begin(), m_handlers.action.end());
        all.insert(all.end(), m_handlers.data.begin(), m_handlers.data.end());
        return all;
    }

    embedded::Runtime& m_runtime;
    const std::string m_application;
    const Handlers m_handlers;
    const ELEM_CONFD_PHASE_ET m_phase;
    embedded::Callpoints m_callpoints;
    std::vector<embedded::PointOfHandler> m_points;  // of this connection; a point's id is its index
    bool m_connected = false;
    std::string m_lastRefusal;
    ipc::Link m_link;  // last: destroyed first, so that it calls nothing destroyed
};

AppInterface::AppInterface(qxmw_t*, zlog_category_t*, const std::string& application,
                           const std::vector<ConfigHandler*>& configHandlers,
                           const std::vector<ActionHandler*>& actionHandlers,
                           const std::vector<DataHandler*>& dataHandlers, ELEM_CONFD_PHASE_ET startPhase,
                           int options)
{
    if (options != 0) throw std::invalid_argument("qxconfd::AppInterface: options must be 0");
    m_impl = std::make_unique<Impl>(embedded::TheRuntime(), application,
                                    Impl::Handlers{configHandlers, actionHandlers, dataHandlers}, startPhase);
}

AppInterface::~AppInterface() = default;

void AppInterface::Dispose() { delete this; }

}  // namespace qxconfd
