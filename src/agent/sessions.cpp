#include "agent/sessions.h"

#include <utility>
#include <variant>

#include "agent/capabilities.h"
#include "agent/errors.h"
#include "agent/request.h"
#include "agent/user.h"
#include "log/log.h"

namespace agent {
namespace {

/// A longer message is read beside the loop.
constexpr std::size_t kReadAtOnce = std::size_t{32} << 10;

}  // namespace

Sessions::Sessions(const cdb::Schema& schema, Operations& operations, Workbench& reads, std::size_t limit,
                   std::chrono::milliseconds helloTimeout, const guard::Limits& limits)
    : m_index(schema.Context()),
      m_limits(limits),
      m_operations(operations),
      m_reads(reads),
      m_limit(limit),
      m_helloTimeout(helloTimeout),
      m_hello(MakeHello(schema))
{
}

Sessions::~Sessions()
{
    m_self.reset();
    for (const auto& [id, session] : m_sessions) session->Close("cdbd ends");
}

void Sessions::Add(Session::Socket socket)
{
    if (m_sessions.size() >= m_limit) {
        slog::Error("a NETCONF client is turned away: {} sessions are open", m_sessions.size());
        return;  // the socket closes
    }
    do {
        ++m_last;
    } while (m_last == 0 || m_sessions.contains(m_last));
    Session::Identity identity{m_last, PeerUserName(socket.native_handle())};
    netconf::Hello hello = m_hello;
    hello.sessionId = m_last;
    const auto whileThere = [self = std::weak_ptr<Sessions*>(m_self)](auto member) {
        return [self, member](const std::shared_ptr<Session>& session, std::string text) {
            if (const auto there = self.lock()) ((*there)->*member)(session, std::move(text));
        };
    };
    auto session = std::make_shared<Session>(
        std::move(socket), std::move(identity), std::move(hello),
        Session::Handlers{whileThere(&Sessions::OnMessage), whileThere(&Sessions::OnBroken),
                          whileThere(&Sessions::OnClosed)});
    m_sessions.emplace(m_last, session);
    session->Start(m_helloTimeout);
}

bool Sessions::End(std::uint32_t session, const std::string& reason)
{
    const auto found = m_sessions.find(session);
    if (found == m_sessions.end()) return false;
    const auto ended = found->second;
    ended->Close(reason);
    return true;
}

void Sessions::OnMessage(const std::shared_ptr<Session>& session, std::string message)
{
    if (message.size() <= kReadAtOnce)
        return OnRead(session, ReadRpc(m_index, std::move(message), session->SpeaksBase11(), m_limits));
    struct Reading {
        std::string message;
        std::variant<Rpc, BadRpc> read;
    };
    const auto reading = std::make_shared<Reading>(Reading{std::move(message), BadRpc{}});
    const bool speaksBase11 = session->SpeaksBase11();
    m_reads.Do(
        [this, reading, speaksBase11] {
            reading->read = ReadRpc(m_index, std::move(reading->message), speaksBase11, m_limits);
            reading->message = std::string();
            if (auto* rpc = std::get_if<Rpc>(&reading->read)) rpc->isLong = true;
        },
        [this, reading, session, self = std::weak_ptr<Sessions*>(m_self)] {
            if (!self.expired()) OnRead(session, std::move(reading->read));
        });
}

void Sessions::OnRead(const std::shared_ptr<Session>& session, std::variant<Rpc, BadRpc> read)
{
    if (!session->IsOpen()) return;
    if (const auto* bad = std::get_if<BadRpc>(&read)) {
        slog::Info("session {} ({}): {}", session->Who().id, session->Who().user, bad->error.message);
        return session->Send(RefusalText(bad->attributes, bad->error));
    }
    auto rpc = std::get<Rpc>(std::move(read));
    Request::Discard discard;
    if (rpc.isLong)  // its tree takes long to free
        discard = [self = std::weak_ptr<Sessions*>(m_self)](Tree tree) {
            if (const auto there = self.lock()) (*there)->m_reads.Free(std::move(tree));
        };
    m_operations.Handle(std::make_shared<Request>(session, std::move(rpc), discard));
}

void Sessions::OnBroken(const std::shared_ptr<Session>& session, const std::string& problem)
{
    slog::Error("session {} ({}): {}", session->Who().id, session->Who().user, problem);
    const auto tag =
        session->SpeaksBase11() ? cdb::ErrorTag::kMalformedMessage : cdb::ErrorTag::kOperationFailed;
    session->Finish(RefusalText({}, MakeError(Layer::kRpc, tag, problem + "; the session ends")));
}

void Sessions::OnClosed(const std::shared_ptr<Session>& session, const std::string& reason)
{
    slog::Info("session {} ({}) has ended: {}", session->Who().id, session->Who().user, reason);
    const std::uint32_t id = session->Who().id;
    m_sessions.erase(id);
    m_operations.SessionEnded(id);
}

}  // namespace agent
