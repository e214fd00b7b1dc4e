// SPDX-License-Identifier: Apache-2.0
// One NETCONF session's connection: hello, framing, one request after the other. The session reads the next
// request when the client has the answer to the one before, so a client takes the memory of one request and
// one reply at most, and a client that does not read delays only itself. Knows no operation.

#ifndef AGENT_NETCONF_SESSION_H
#define AGENT_NETCONF_SESSION_H

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <boost/asio/local/stream_protocol.hpp>

#include "agent/events/event_subscription.h"
#include "agent/events/events.h"
#include "agent/state/netconf_state.h"
#include "base/timers.h"
#include "netconf/framing.h"
#include "netconf/hello.h"
#include "netconf/names.h"
#include "netconf/origin.h"

namespace agent {

class AccessGrant;
class AnswerPlace;

/// How long a client may take.
struct SessionTimes {
    std::chrono::milliseconds hello{30'000};
    std::chrono::milliseconds idle{0};        // without a request, and none under way; 0: no limit
    std::chrono::milliseconds write{60'000};  // without reading anything of an answer
};

class Session : public std::enable_shared_from_this<Session> {
public:
    using Socket = boost::asio::local::stream_protocol::socket;

    struct Handlers {
        /// A whole message; to be answered once with Send or Finish. Called from the loop.
        std::function<void(const std::shared_ptr<Session>& session, std::string message)> onMessage;
        /// The framing is broken; to be answered with Finish. Called once.
        std::function<void(const std::shared_ptr<Session>& session, const std::string& problem)> onBroken;
        /// The connection has ended, from either side. Called once, from the loop.
        std::function<void(const std::shared_ptr<Session>& session, const std::string& reason)> onClosed;
        /// The client has said hello: the session has begun. May be null. Called once, from the loop.
        std::function<void(const std::shared_ptr<Session>& session)> onBegun{};
    };

    struct Identity {
        std::uint32_t id = 0;
        std::string user;
        std::uint32_t uid = 0;
        /// What the user may do; not changed while a request is under way. Null for a client that is turned
        /// away, and in some tests.
        std::shared_ptr<const AccessGrant> access{};
        std::int64_t loginUs = 0;  // microseconds since the epoch
    };

    /// The longest hello that is taken from a client, in bytes.
    static constexpr std::size_t kMaxHello = std::size_t{64} << 10;

    /// `timers` must outlive the session's connection.
    Session(Socket socket, base::Timers& timers, Identity identity, netconf::Hello hello, SessionTimes times,
            Handlers handlers);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// How long a message after the client's hello may be. To be called before Start.
    void SetMaxMessage(std::size_t bytes) { m_maxMessage = bytes; }

    /// Says hello and waits for the client's.
    void Start();

    [[nodiscard]] const Identity& Who() const { return m_identity; }
    void SetAccess(std::shared_ptr<const AccessGrant> access);

    /// Where it comes from, as the relay says (netconf/origin.h); nullopt: from the switch itself.
    [[nodiscard]] const std::optional<netconf::Origin>& Origin() const { return m_origin; }

    [[nodiscard]] SessionParty Party() const
    {
        return {m_identity.user, m_identity.id, m_origin ? m_origin->host : std::string()};
    }

    /// What is counted of it: notifications by itself, all else by its owner.
    [[nodiscard]] NetconfCounters& Counters() { return m_counters; }

    [[nodiscard]] bool IsOpen() const { return m_open; }

    /// Whether the client knows base:1.1.
    [[nodiscard]] bool SpeaksBase11() const { return m_base11; }

    /// Sends an answer and goes on with the next request. `place` is released when the client has read the
    /// answer, or the connection has ended.
    void Send(std::string message, std::shared_ptr<AnswerPlace> place = nullptr);

    /// Sends an answer and closes. Instead of Start, it turns a client away.
    void Finish(std::string message, SessionEnd why = SessionEnd::kOther);

    /// Closes at once. `killer`: the session that has it ended, with SessionEnd::kKilled.
    void Close(const std::string& reason, SessionEnd why = SessionEnd::kOther, std::uint32_t killer = 0);

    /// Whether the client has said hello.
    [[nodiscard]] bool HasBegun() const { return m_greeted; }
    /// Of a session that has ended.
    [[nodiscard]] SessionEnd EndedBy() const { return m_endedBy; }
    [[nodiscard]] std::uint32_t Killer() const { return m_killer; }

    /// From now on sends what the subscription has, between answers, until it is over or the session ends.
    /// The subscription's wake has to call SendNews. A session with a subscription may be idle.
    void Subscribe(std::unique_ptr<EventSubscription> subscription);
    [[nodiscard]] bool IsSubscribed() const { return m_subscription != nullptr; }
    void SendNews();

private:
    void Write(std::string message, bool last, std::shared_ptr<AnswerPlace> place = nullptr);
    void Next();
    void Receive();
    void AwaitRequest();
    void Handle(std::string message);
    void TakeHello(std::string message);
    void Limit(std::chrono::milliseconds time, std::string reason);
    void AwaitWriting(bool last);
    void AwaitNewsTaken();
    void NewsWritten(const boost::system::error_code& error);

    Socket m_socket;
    base::Timers& m_timers;
    std::shared_ptr<void> m_timer;
    Identity m_identity;
    netconf::Hello m_ours;
    SessionTimes m_times;
    Handlers m_handlers;
    std::size_t m_maxMessage = netconf::kMaxMessage;
    std::optional<netconf::Origin> m_origin;
    NetconfCounters m_counters;
    bool m_base11 = false;
    bool m_open = true;
    netconf::MessageReader m_reader{kMaxHello};
    std::array<char, 65536> m_received;
    netconf::Framing m_framing = netconf::Framing::kEndOfMessage;
    bool m_greeted = false;  // the client has said hello
    // The answer being written, and when the client last took some of it.
    std::chrono::steady_clock::time_point m_taken;
    std::string m_header;
    std::string m_message;
    std::shared_ptr<AnswerPlace> m_place;  // of that answer, in the room for answers
    bool m_answering = false;
    bool m_receiving = false;
    SessionEnd m_endedBy = SessionEnd::kOther;
    bool m_finishing = false;  // m_endedBy is decided
    std::uint32_t m_killer = 0;
    // Notifications; an answer that comes while some are being written is written next.
    std::unique_ptr<EventSubscription> m_subscription;
    std::string m_news;  // frames
    bool m_isNewsOut = false;
    std::shared_ptr<void> m_newsTimer;
    std::function<void()> m_nextAnswer;
};

}  // namespace agent

#endif
