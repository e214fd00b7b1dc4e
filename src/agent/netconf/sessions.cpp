// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/sessions.h"

#include <utility>

#include "agent/data/errors.h"
#include "agent/netconf/request.h"
#include "base/user.h"
#include "log/log.h"

namespace agent {
namespace {

/// Bytes; a longer message is read beside the loop.
constexpr std::size_t kReadAtOnce = std::size_t{32} << 10;

/// How many clients without a session are told so at the same time; more are just closed.
constexpr std::size_t kMaxTurnedAway = 32;

/// How many names of groups are remembered.
constexpr std::size_t kMaxGroupNames = 1024;

/// The protocol's capabilities that the agent serves, and the implemented modules. Without session-id.
netconf::Hello MakeHello(const cdb::Schema& schema)
{
    const std::string prefix = "urn:ietf:params:netconf:capability:";
    netconf::Hello hello;
    hello.capabilities = {
        std::string(netconf::kBase10),
        std::string(netconf::kBase11),
        prefix + "candidate:1.0",
        prefix + "confirmed-commit:1.1",
        prefix + "validate:1.1",
        prefix + "rollback-on-error:1.0",
        prefix + "notification:1.0",
        prefix + "interleave:1.0",
        prefix + "with-defaults:1.0?basic-mode=explicit&also-supported=report-all,report-all-tagged,trim",
    };
    hello.capabilities.push_back(prefix +
                                 "yang-library:1.1?revision=2019-01-04&content-id=" + schema.ContentId());
    for (const cdb::Schema::Module& module : schema.Modules()) {
        std::string capability = module.ns + "?module=" + module.name;
        if (!module.revision.empty()) capability += "&revision=" + module.revision;
        // RFC 6020, section 5.6.4. A client that does not read the YANG library knows them from nowhere else.
        const char* before = "&features=";
        for (const std::string& feature : module.features)
            capability.append(std::exchange(before, ",")).append(feature);
        hello.capabilities.push_back(std::move(capability));
    }
    return hello;
}

/// Adds the counters to the sum.
void AddUp(const NetconfCounters& counters, NetconfCounters& sum)
{
    sum.inRpcs += counters.inRpcs;
    sum.inBadRpcs += counters.inBadRpcs;
    sum.outRpcErrors += counters.outRpcErrors;
    sum.outNotifications += counters.outNotifications;
}

}  // namespace

Sessions::Sessions(base::Timers& timers, const cdb::Schema& schema, Operations& operations, Workbench& reads,
                   const Access& access, const Options& options)
    : m_timers(timers),
      m_index(schema.Context()),
      m_operations(operations),
      m_reads(reads),
      m_access(access),
      m_options(options),
      m_quota(options.mostPerUser),
      m_hello(MakeHello(schema))
{
    m_past.startUs = m_options.now();
    m_past.capabilities = m_hello.capabilities;
}

Sessions::~Sessions()
{
    m_self.reset();
    for (const auto& [id, session] : m_sessions) session->Close("cdbd ends");
}

const std::string& Sessions::NameOfGroup(std::uint32_t group)
{
    if (m_groupNames.size() >= kMaxGroupNames) m_groupNames.clear();
    const auto [at, isNew] = m_groupNames.try_emplace(group);
    if (isNew) at->second = base::GroupName(group);
    return at->second;
}

AccessUser Sessions::UserOf(const ipc::PeerCredentials& peer, const std::string& name)
{
    AccessUser user{name, peer.uid, {NameOfGroup(peer.gid)}};
    for (const std::uint32_t group : peer.groups) user.groups.push_back(NameOfGroup(group));
    return user;
}

std::string Sessions::Admit(std::uint32_t uid, const std::string& user)
{
    const std::size_t most = m_options.most + (uid == 0 ? kReservedForRoot : 0);
    if (m_sessions.size() >= most)
        return "too many sessions: " + std::to_string(m_sessions.size()) +
               " are open; close one, or raise cdbd's --max-sessions";
    if (!m_quota.Take(uid))
        return "too many sessions: " + user + " has " + std::to_string(m_quota.Most()) +
               "; close one, or raise cdbd's --max-sessions-per-user";
    return {};
}

/// NETCONF defines no refusal before the hello. A client that awaits a hello gets an error instead, and then
/// the end of the connection.
void Sessions::TurnAway(Session::Socket socket, const ipc::PeerCredentials& peer, const std::string& user,
                        const std::string& reason)
{
    slog::Error("{} (process {}) gets no NETCONF session: {}", user, peer.pid, reason);
    ++m_past.turnedAway;
    if (m_turnedAway >= kMaxTurnedAway) return;  // the socket closes
    ++m_turnedAway;
    const auto closed = [self = std::weak_ptr<Sessions*>(m_self)](const auto&, const std::string&) {
        if (const auto there = self.lock()) --(*there)->m_turnedAway;
    };
    const auto session =
        std::make_shared<Session>(std::move(socket), m_timers, Session::Identity{0, user, peer.uid, {}},
                                  m_hello, m_options.times, Session::Handlers{nullptr, nullptr, closed});
    session->Finish(RefusalText({}, MakeError(Layer::kProtocol, cdb::ErrorTag::kResourceDenied, reason)));
}

void Sessions::Add(Session::Socket socket)
{
    const auto peer = ipc::PeerOf(socket.native_handle());
    if (!peer) return slog::Error("a NETCONF client is turned away: the kernel does not say whose it is");
    const std::string user = base::UserName(peer->uid);
    if (const std::string refusal = Admit(peer->uid, user); !refusal.empty())
        return TurnAway(std::move(socket), *peer, user, refusal);
    do {
        ++m_last;
    } while (m_last == 0 || m_sessions.contains(m_last));
    ++m_past.inSessions;
    Session::Identity identity{m_last, user, peer->uid, m_access.Grant(UserOf(*peer, user)), m_options.now()};
    netconf::Hello hello = m_hello;
    hello.sessionId = m_last;
    const auto whileThere = [self = std::weak_ptr<Sessions*>(m_self)](auto member) {
        return [self, member](const std::shared_ptr<Session>& session, std::string text) {
            if (const auto there = self.lock()) ((*there)->*member)(session, std::move(text));
        };
    };
    auto session = std::make_shared<Session>(
        std::move(socket), m_timers, std::move(identity), std::move(hello), m_options.times,
        Session::Handlers{whileThere(&Sessions::OnMessage), whileThere(&Sessions::OnBroken),
                          whileThere(&Sessions::OnClosed),
                          [self = std::weak_ptr<Sessions*>(m_self)](const std::shared_ptr<Session>& begun) {
                              if (const auto there = self.lock()) (*there)->m_operations.TellBegin(*begun);
                          }});
    m_sessions.emplace(m_last, session);
    session->SetMaxMessage(m_options.maxMessage);
    session->Start();
}

NetconfFacts Sessions::Facts() const
{
    NetconfFacts facts = m_past;
    for (const auto& [id, session] : m_sessions) {
        const Session::Identity& who = session->Who();
        const auto& origin = session->Origin();
        facts.sessions.push_back({id, who.user, origin.has_value(), origin ? origin->host : std::string(),
                                  who.loginUs, session->Counters()});
        AddUp(session->Counters(), facts.counters);
    }
    return facts;
}

bool Sessions::End(std::uint32_t session, const std::string& reason, std::uint32_t killer)
{
    const auto found = m_sessions.find(session);
    if (found == m_sessions.end()) return false;
    const auto ended = found->second;
    ended->Close(reason, SessionEnd::kKilled, killer);
    return true;
}

void Sessions::OnMessage(const std::shared_ptr<Session>& session, std::string message)
{
    // No request is under way here: the one before has been answered.
    if (session->Who().access->Generation() != m_access.Generation())
        session->SetAccess(m_access.Grant(session->Who().access->User()));
    if (message.size() <= kReadAtOnce)
        return OnRead(session,
                      ReadRpc(m_index, std::move(message), session->SpeaksBase11(), m_options.limits));
    struct BeingRead {
        std::string message;
        std::variant<Rpc, BadRpc> read;
    };
    const auto reading = std::make_shared<BeingRead>(BeingRead{std::move(message), BadRpc{}});
    const bool speaksBase11 = session->SpeaksBase11();
    m_reads.Do(
        [this, reading, speaksBase11] {
            reading->read = ReadRpc(m_index, std::move(reading->message), speaksBase11, m_options.limits);
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
        NetconfCounters& counters = session->Counters();
        ++(bad->isRpc ? counters.inRpcs : counters.inBadRpcs);
        ++counters.outRpcErrors;
        return session->Send(RefusalText(bad->attributes, bad->error));
    }
    ++session->Counters().inRpcs;
    auto rpc = std::get<Rpc>(std::move(read));
    Request::Discard discard;
    if (rpc.isLong)  // it takes long to free
        discard = [self = std::weak_ptr<Sessions*>(m_self)](Rpc used) {
            if (const auto there = self.lock()) (*there)->m_reads.Free(std::move(used));
        };
    m_operations.Handle(std::make_shared<Request>(session, std::move(rpc), discard));
}

void Sessions::OnBroken(const std::shared_ptr<Session>& session, const std::string& problem)
{
    slog::Error("session {} ({}): {}", session->Who().id, session->Who().user, problem);
    const auto tag =
        session->SpeaksBase11() ? cdb::ErrorTag::kMalformedMessage : cdb::ErrorTag::kOperationFailed;
    ++session->Counters().inBadRpcs;
    ++session->Counters().outRpcErrors;
    session->Finish(RefusalText({}, MakeError(Layer::kRpc, tag, problem + "; the session ends")));
}

void Sessions::OnClosed(const std::shared_ptr<Session>& session, const std::string& reason)
{
    slog::Info("session {} ({}) has ended: {}", session->Who().id, session->Who().user, reason);
    const std::uint32_t id = session->Who().id;
    const SessionEnd end = session->EndedBy();
    if (end == SessionEnd::kBadHello)
        ++m_past.inBadHellos;
    else if (end != SessionEnd::kClosed && end != SessionEnd::kKilled)
        ++m_past.droppedSessions;
    AddUp(session->Counters(), m_past.counters);
    m_sessions.erase(id);
    m_quota.GiveBack(session->Who().uid);
    m_operations.SessionEnded(id);
    m_operations.TellEnd(*session);
}

}  // namespace agent
