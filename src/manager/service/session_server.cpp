// SPDX-License-Identifier: Apache-2.0
#include "manager/service/session_server.h"

#include <unistd.h>

#include <cerrno>
#include <map>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <boost/asio/io_context.hpp>

#include "base/timers.h"
#include "ipc/acceptor.h"
#include "ipc/frame.h"
#include "ipc/manager.pb.h"
#include "ipc/user_quota.h"
#include "log/log.h"
#include "manager/service/service.h"

namespace manager {
namespace {

using ipc::manager::ClientMessage;
using ipc::manager::ServerMessage;

constexpr unsigned kPermissions = 0660;
/// A connection that has not said hello by then is ended.
constexpr std::chrono::seconds kHelloTime{5};

boost::asio::local::stream_protocol::acceptor Listen(boost::asio::io_context& loop, base::Timers& timers,
                                                     const std::string& path,
                                                     std::optional<std::uint32_t> group)
{
    try {
        return ipc::Listen(loop, path, kPermissions, group);
    } catch (const std::system_error& error) {
        std::string ignored;
        const auto other =
            error.code() == std::errc::address_in_use ? ipc::Connect(loop, timers, path, ignored) : nullptr;
        if (other == nullptr) throw;
        throw std::runtime_error(fmt::format(
            "another sFlow manager, process {}, listens on {}; stop it first", other->Peer().pid, path));
    }
}

}  // namespace

class SessionServer::Impl {
public:
    Impl(boost::asio::io_context& loop, base::Timers& timers, std::string path, Service& service,
         ipc::Trust trust, std::optional<std::uint32_t> group)
        : m_timers(timers),
          m_path(std::move(path)),
          m_service(service),
          m_trust(std::move(trust)),
          m_acceptor(Listen(loop, timers, m_path, group), timers, "cannot accept a connection on " + m_path,
                     [this](ipc::Channel::Socket socket) { Greet(std::move(socket)); })
    {
    }

    bool RequestResync();
    void Stop();
    [[nodiscard]] const std::string& Path() const { return m_path; }

private:
    using Id = std::uint64_t;  // of a connection; the lowest is the oldest

    struct Stranger {
        std::shared_ptr<ipc::Channel> channel;
        std::shared_ptr<void> helloTimer;
    };
    /// Takes the connection out of the strangers. Null if it is none of them.
    std::shared_ptr<ipc::Channel> TakeStranger(Id id);

    void Greet(ipc::Channel::Socket socket);
    void OnFrame(Id id, std::string_view frame);
    void OnHello(Id id, const ClientMessage& message);
    void OnClosed(Id id, std::string_view reason);
    /// Ends a connection that misbehaves.
    void Drop(Id id, std::string_view reason);
    void EndSession(std::string_view reason);
    static void Refuse(ipc::Channel& channel, const std::string& reason, std::int64_t holder);

    base::Timers& m_timers;
    const std::string m_path;
    Service& m_service;
    const ipc::Trust m_trust;
    ipc::Acceptor<boost::asio::local::stream_protocol> m_acceptor;
    Id m_lastId = 0;
    ipc::UserQuota m_strangersOfUsers{kMaxStrangersOfUser};
    std::map<Id, Stranger> m_strangers;
    std::shared_ptr<ipc::Channel> m_holder;
    Id m_holderId = 0;
};

void SessionServer::Impl::Greet(ipc::Channel::Socket socket)
{
    if (m_strangers.size() >= kMaxStrangers)
        Drop(m_strangers.begin()->first, "too many connections wait to say hello");
    auto channel = ipc::Channel::Create(std::move(socket), m_timers);
    if (!m_strangersOfUsers.Take(channel->Peer().uid))
        return Refuse(*channel, "too many connections of this user wait to say hello", 0);
    const Id id = ++m_lastId;
    Stranger stranger;
    stranger.channel = std::move(channel);
    stranger.channel->Start({[this, id](std::string_view frame) { OnFrame(id, frame); },
                             [this, id](std::string_view reason) { OnClosed(id, reason); }});
    stranger.helloTimer = m_timers.After(kHelloTime, [this, id] { Drop(id, "no hello in time"); });
    m_strangers.emplace(id, std::move(stranger));
}

std::shared_ptr<ipc::Channel> SessionServer::Impl::TakeStranger(Id id)
{
    const auto node = m_strangers.extract(id);
    if (node.empty()) return nullptr;
    m_strangersOfUsers.GiveBack(node.mapped().channel->Peer().uid);
    return node.mapped().channel;
}

void SessionServer::Impl::OnFrame(Id id, std::string_view frame)
{
    ClientMessage message;
    if (!message.ParseFromArray(frame.data(), static_cast<int>(frame.size())))
        return Drop(id, "a frame that is no message");
    if (m_holder != nullptr && id == m_holderId) {
        if (!m_service.Take(message)) Drop(id, "a message that has no place in a session");
        return;
    }
    if (!message.has_hello()) return Drop(id, "a message before hello");
    OnHello(id, message);
}

void SessionServer::Impl::OnHello(Id id, const ClientMessage& message)
{
    const auto channel = TakeStranger(id);
    if (channel == nullptr) return;
    const auto& hello = message.hello();
    if (hello.protocol() != ipc::kProtocolVersion)
        return Refuse(*channel,
                      fmt::format("protocol version {} is not spoken here, only {}", hello.protocol(),
                                  ipc::kProtocolVersion),
                      0);
    if (const auto why = m_trust.Refusal(ipc::Role::kSession, channel->Peer())) {
        slog::Notice("process {} gets no session: {}", channel->Peer().pid, *why);
        return Refuse(*channel, *why, 0);
    }
    if (m_holder != nullptr) {
        const std::int64_t holder = m_holder->Peer().pid;
        return Refuse(*channel, fmt::format("process {} has the session", holder), holder);
    }
    m_holder = channel;
    m_holderId = id;
    m_service.Open();
    slog::Notice("session opened by process {}", channel->Peer().pid);
    ServerMessage answer;
    answer.mutable_opened()->set_pid(::getpid());
    channel->Send(answer);
}

void SessionServer::Impl::Refuse(ipc::Channel& channel, const std::string& reason, std::int64_t holder)
{
    slog::Info("process {} is refused: {}", channel.Peer().pid, reason);
    ServerMessage answer;
    answer.mutable_refused()->set_reason(reason);
    answer.mutable_refused()->set_holder_pid(holder);
    channel.Send(answer);
    channel.Close();
}

void SessionServer::Impl::OnClosed(Id id, std::string_view reason)
{
    TakeStranger(id);
    if (m_holder != nullptr && id == m_holderId) EndSession(reason);
}

void SessionServer::Impl::Drop(Id id, std::string_view reason)
{
    if (const auto stranger = TakeStranger(id)) {
        slog::Info("connection of process {} ended: {}", stranger->Peer().pid, reason);
        stranger->Close(true);
    } else if (m_holder != nullptr && id == m_holderId) {
        m_holder->Close(true);
        EndSession(reason);
    }
}

void SessionServer::Impl::EndSession(std::string_view reason)
{
    m_holder.reset();
    m_service.Close();
    slog::Notice("session ended: {}; going on with what is held", reason);
}

bool SessionServer::Impl::RequestResync()
{
    if (m_holder == nullptr) return false;
    ServerMessage request;
    request.mutable_resync();
    return m_holder->Send(request);
}

void SessionServer::Impl::Stop()
{
    if (!m_acceptor.IsOpen()) return;
    m_acceptor.Close();  // if the directory is not ours, the file stays and the next start replaces it
    for (const auto& [id, stranger] : m_strangers) stranger.channel->Close(true);
    m_strangers.clear();
    if (m_holder == nullptr) return;
    m_holder->Close(true);
    EndSession("the manager ends");
}

SessionServer::SessionServer(boost::asio::io_context& loop, base::Timers& timers, std::string socketPath,
                             Service& service, ipc::Trust trust, std::optional<std::uint32_t> group)
    : m_impl(std::make_unique<Impl>(loop, timers, std::move(socketPath), service, std::move(trust), group))
{
}

SessionServer::~SessionServer() { Stop(); }

bool SessionServer::RequestResync() { return m_impl->RequestResync(); }

void SessionServer::GiveTo(std::uint32_t user, std::uint32_t group)
{
    if (::chown(m_impl->Path().c_str(), user, group) != 0)
        throw std::system_error(errno, std::generic_category(),
                                "cannot give " + m_impl->Path() + " to the user");
}

void SessionServer::Stop() { m_impl->Stop(); }

}  // namespace manager
