// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/session.h"

#include <array>
#include <utility>
#include <variant>

#include <boost/asio/buffer.hpp>
#include <boost/asio/completion_condition.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>

#include "agent/netconf/answer_place.h"

namespace agent {
namespace {

using boost::system::error_code;
using netconf::Framing;
using Clock = std::chrono::steady_clock;

/// How long a client may take to read the last answer of its session.
constexpr std::chrono::seconds kLastAnswer{10};

}  // namespace

class Session::Impl {
public:
    Impl(Socket connected, Identity identity, netconf::Hello hello, SessionTimes times, Handlers handlers)
        : m_socket(std::move(connected)),
          m_timer(m_socket.get_executor()),
          m_identity(std::move(identity)),
          m_ours(std::move(hello)),
          m_times(times),
          m_handlers(std::move(handlers))
    {
    }

    void Start(const std::shared_ptr<Session>& self);
    void Write(const std::shared_ptr<Session>& self, std::string message, bool last,
               std::shared_ptr<AnswerPlace> place = nullptr);
    void Close(const std::shared_ptr<Session>& self, const std::string& reason);

    Socket m_socket;
    boost::asio::steady_timer m_timer;
    Identity m_identity;
    netconf::Hello m_ours;
    SessionTimes m_times;
    Handlers m_handlers;
    std::size_t m_maxMessage = netconf::kMaxMessage;
    bool m_base11 = false;
    bool m_open = true;

private:
    void Next(const std::shared_ptr<Session>& self);
    void Receive(const std::shared_ptr<Session>& self);
    void Handle(const std::shared_ptr<Session>& self, std::string message);
    void TakeHello(const std::shared_ptr<Session>& self, const std::string& message);
    void Limit(const std::shared_ptr<Session>& self, std::chrono::milliseconds time, std::string reason);
    void AwaitWriting(const std::shared_ptr<Session>& self, bool last);

    netconf::MessageReader m_reader{kMaxHello};
    std::array<char, 65536> m_received;
    Framing m_framing = Framing::kEndOfMessage;
    bool m_greeted = false;  // the client has said hello
    // The answer being written, and when the client last took some of it.
    Clock::time_point m_taken;
    std::string m_header;
    std::string m_message;
    std::shared_ptr<AnswerPlace> m_place;  // of that answer, in the room for answers
};

void Session::Impl::Start(const std::shared_ptr<Session>& self)
{
    Limit(self, m_times.hello, "no hello in time");
    Write(self, netconf::ToXml(m_ours), false);
}

void Session::Impl::Limit(const std::shared_ptr<Session>& self, std::chrono::milliseconds time,
                          std::string reason)
{
    m_timer.expires_after(time);
    m_timer.async_wait([this, self, why = std::move(reason)](const error_code& error) {
        // A timer that expired just before it was set again is not cancelled any more.
        if (!error && Clock::now() >= m_timer.expiry()) Close(self, why);
    });
}

void Session::Impl::Write(const std::shared_ptr<Session>& self, std::string message, bool last,
                          std::shared_ptr<AnswerPlace> place)
{
    if (!m_open) return;
    m_place = std::move(place);
    m_header = netconf::FrameHeader(m_framing, message.size());
    m_message = std::move(message);
    const std::string_view trailer = netconf::FrameTrailer(m_framing);
    const std::array<boost::asio::const_buffer, 3> parts{boost::asio::buffer(m_header),
                                                         boost::asio::buffer(m_message),
                                                         boost::asio::buffer(trailer.data(), trailer.size())};
    m_taken = Clock::now();
    // Before the client's hello, the timer for that hello runs instead.
    if (m_greeted || last) AwaitWriting(self, last);
    const auto more = [this](const error_code& error, std::size_t) {
        m_taken = Clock::now();
        return boost::asio::transfer_all()(error, 0);
    };
    boost::asio::async_write(m_socket, parts, more, [this, self, last](const error_code& error, std::size_t) {
        m_message = std::string();
        m_place.reset();
        if (!m_open) return;
        if (m_greeted) m_timer.cancel();
        if (error) return Close(self, error.message());
        if (last) return Close(self, "closed");
        Next(self);
    });
}

/// A client may read slowly, but it has to read.
void Session::Impl::AwaitWriting(const std::shared_ptr<Session>& self, bool last)
{
    const auto limit = last ? std::chrono::milliseconds(kLastAnswer) : m_times.write;
    m_timer.expires_at(m_taken + limit);
    m_timer.async_wait([this, self, last, limit](const error_code& error) {
        if (error || !m_open) return;
        if (Clock::now() < m_taken + limit) return AwaitWriting(self, last);
        Close(self, "the client does not read its answer");
    });
}

void Session::Impl::Next(const std::shared_ptr<Session>& self)
{
    if (auto message = m_reader.Next()) return Handle(self, *std::move(message));
    if (m_reader.Problem().empty()) return Receive(self);
    if (m_greeted) return m_handlers.onBroken(self, m_reader.Problem());
    Close(self, m_reader.Problem());
}

void Session::Impl::Receive(const std::shared_ptr<Session>& self)
{
    if (m_greeted && m_times.idle.count() > 0) Limit(self, m_times.idle, "no request for too long");
    m_socket.async_read_some(boost::asio::buffer(m_received),
                             [this, self](const error_code& error, std::size_t bytes) {
                                 if (!m_open) return;
                                 if (error == boost::asio::error::eof)
                                     return Close(self, "closed by the client");
                                 if (error) return Close(self, error.message());
                                 if (m_greeted) m_timer.cancel();
                                 m_reader.Append({m_received.data(), bytes});
                                 Next(self);
                             });
}

void Session::Impl::Handle(const std::shared_ptr<Session>& self, std::string message)
{
    if (m_greeted) return m_handlers.onMessage(self, std::move(message));
    TakeHello(self, message);
}

void Session::Impl::TakeHello(const std::shared_ptr<Session>& self, const std::string& message)
{
    const auto theirs = netconf::ParseHello(message);
    if (!theirs) return Close(self, theirs.error());
    if (theirs->sessionId != 0) return Close(self, "the client's hello has a session-id");
    const auto framing = netconf::CommonFraming(m_ours, *theirs);
    if (!framing) return Close(self, "the client knows no NETCONF version that we know");
    m_timer.cancel();
    m_greeted = true;
    m_framing = *framing;
    m_base11 = theirs->Has(netconf::kBase11);
    m_reader.SetFraming(m_framing);
    m_reader.SetLimit(m_maxMessage);
    Next(self);
}

void Session::Impl::Close(const std::shared_ptr<Session>& self, const std::string& reason)
{
    if (!m_open) return;
    m_open = false;
    m_timer.cancel();
    error_code ignored;  // nothing depends on the result
    m_socket.close(ignored);
    // Posted, because the caller may be in the middle of something.
    boost::asio::post(m_socket.get_executor(), [this, self, reason] {
        const Handlers handlers = std::exchange(m_handlers, {});
        handlers.onClosed(self, reason);
    });
}

Session::Session(Socket socket, Identity identity, netconf::Hello hello, SessionTimes times,
                 Handlers handlers)
    : m_impl(std::make_unique<Impl>(std::move(socket), std::move(identity), std::move(hello), times,
                                    std::move(handlers)))
{
}

Session::~Session() = default;

void Session::Start() { m_impl->Start(shared_from_this()); }

void Session::TurnAway(std::string message) { Finish(std::move(message)); }

const Session::Identity& Session::Who() const { return m_impl->m_identity; }

void Session::SetAccess(std::shared_ptr<const AccessGrant> access)
{
    m_impl->m_identity.access = std::move(access);
}

bool Session::IsOpen() const { return m_impl->m_open; }

bool Session::SpeaksBase11() const { return m_impl->m_base11; }

void Session::SetMaxMessage(std::size_t bytes) { m_impl->m_maxMessage = bytes; }

void Session::Send(std::string message, std::shared_ptr<AnswerPlace> place)
{
    m_impl->Write(shared_from_this(), std::move(message), false, std::move(place));
}

void Session::Finish(std::string message) { m_impl->Write(shared_from_this(), std::move(message), true); }

void Session::Close(const std::string& reason) { m_impl->Close(shared_from_this(), reason); }

}  // namespace agent
