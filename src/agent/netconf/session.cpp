// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/session.h"

#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/completion_condition.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>

namespace agent {
namespace {

using boost::system::error_code;

/// How long a client may take to read the last answer of its session.
constexpr std::chrono::seconds kLastAnswer{10};

}  // namespace

Session::Session(Socket socket, base::Timers& timers, Identity identity, netconf::Hello hello,
                 SessionTimes times, Handlers handlers)
    : m_socket(std::move(socket)),
      m_timers(timers),
      m_identity(std::move(identity)),
      m_ours(std::move(hello)),
      m_times(times),
      m_handlers(std::move(handlers))
{
}

Session::~Session() = default;

void Session::SetAccess(std::shared_ptr<const AccessGrant> access) { m_identity.access = std::move(access); }

void Session::Send(std::string message, std::shared_ptr<AnswerPlace> place)
{
    Write(std::move(message), false, std::move(place));
}

void Session::Finish(std::string message) { Write(std::move(message), true); }

void Session::Start()
{
    Limit(m_times.hello, "no hello in time");
    Write(netconf::ToXml(m_ours), false);
}

void Session::Limit(std::chrono::milliseconds time, std::string reason)
{
    m_timer = m_timers.After(time, [weak = weak_from_this(), why = std::move(reason)] {
        if (const auto self = weak.lock()) self->Close(why);
    });
}

void Session::Write(std::string message, bool last, std::shared_ptr<AnswerPlace> place)
{
    if (!m_open) return;
    m_place = std::move(place);
    m_header = netconf::FrameHeader(m_framing, message.size());
    m_message = std::move(message);
    const std::string_view trailer = netconf::FrameTrailer(m_framing);
    const std::array<boost::asio::const_buffer, 3> parts{boost::asio::buffer(m_header),
                                                         boost::asio::buffer(m_message),
                                                         boost::asio::buffer(trailer.data(), trailer.size())};
    m_taken = m_timers.Now();
    // Before the client's hello, the timer for that hello runs instead.
    if (m_greeted || last) AwaitWriting(last);
    const auto more = [this](const error_code& error, std::size_t) {
        m_taken = m_timers.Now();
        return boost::asio::transfer_all()(error, 0);
    };
    boost::asio::async_write(m_socket, parts, more,
                             [this, self = shared_from_this(), last](const error_code& error, std::size_t) {
                                 m_message = std::string();
                                 m_place.reset();
                                 if (!m_open) return;
                                 if (m_greeted) m_timer.reset();
                                 if (error) return Close(error.message());
                                 if (last) return Close("closed");
                                 Next();
                             });
}

/// A client may read slowly, but it has to read.
void Session::AwaitWriting(bool last)
{
    const auto limit = last ? std::chrono::milliseconds(kLastAnswer) : m_times.write;
    m_timer = m_timers.At(m_taken + limit, [this, weak = weak_from_this(), last, limit] {
        const auto self = weak.lock();
        if (!self) return;
        if (m_timers.Now() < m_taken + limit) return AwaitWriting(last);
        Close("the client does not read its answer");
    });
}

void Session::Next()
{
    if (auto message = m_reader.Next()) return Handle(*std::move(message));
    if (m_reader.Problem().empty()) return Receive();
    if (m_greeted) return m_handlers.onBroken(shared_from_this(), m_reader.Problem());
    Close(m_reader.Problem());
}

void Session::Receive()
{
    if (m_greeted && m_times.idle.count() > 0) Limit(m_times.idle, "no request for too long");
    m_socket.async_read_some(boost::asio::buffer(m_received),
                             [this, self = shared_from_this()](const error_code& error, std::size_t bytes) {
                                 if (!m_open) return;
                                 if (error == boost::asio::error::eof) return Close("closed by the client");
                                 if (error) return Close(error.message());
                                 if (m_greeted) m_timer.reset();
                                 m_reader.Append({m_received.data(), bytes});
                                 Next();
                             });
}

void Session::Handle(std::string message)
{
    if (m_greeted) return m_handlers.onMessage(shared_from_this(), std::move(message));
    TakeHello(std::move(message));
}

void Session::TakeHello(std::string message)
{
    m_origin = netconf::TakeOrigin(message);
    const auto theirs = netconf::ParseHello(message);
    m_badHello = true;
    if (!theirs) return Close(theirs.error());
    if (theirs->sessionId != 0) return Close("the client's hello has a session-id");
    const auto framing = netconf::CommonFraming(m_ours, *theirs);
    if (!framing) return Close("the client knows no NETCONF version that we know");
    m_badHello = false;
    m_timer.reset();
    m_greeted = true;
    m_framing = *framing;
    m_base11 = theirs->Has(netconf::kBase11);
    m_reader.SetFraming(m_framing);
    m_reader.SetLimit(m_maxMessage);
    Next();
}

void Session::Close(const std::string& reason)
{
    if (!m_open) return;
    m_open = false;
    m_timer.reset();
    error_code ignored;  // nothing depends on the result
    m_socket.close(ignored);
    // Posted, because the caller may be in the middle of something.
    boost::asio::post(m_socket.get_executor(), [this, self = shared_from_this(), reason] {
        const Handlers handlers = std::exchange(m_handlers, {});
        handlers.onClosed(self, reason);
    });
}

}  // namespace agent
