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

/// Bytes of notifications that are written at a time; an answer waits for no more than these.
constexpr std::size_t kNewsAtOnce = std::size_t{64} << 10;

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

void Session::Finish(std::string message, SessionEnd why)
{
    m_finishing = true;
    m_endedBy = why;
    m_subscription.reset();
    Write(std::move(message), true);
}

void Session::Start()
{
    Limit(m_times.hello, "no hello in time");
    Write(netconf::ToXml(m_ours), false);
}

void Session::Limit(std::chrono::milliseconds time, std::string reason)
{
    m_timer = m_timers.After(time, [weak = weak_from_this(), why = std::move(reason)] {
        if (const auto self = weak.lock()) self->Close(why, SessionEnd::kTimeout);
    });
}

void Session::Write(std::string message, bool last, std::shared_ptr<AnswerPlace> place)
{
    if (!m_open) return;
    if (m_isNewsOut) {
        m_nextAnswer = [this, last, text = std::move(message), kept = std::move(place)]() mutable {
            Write(std::move(text), last, std::move(kept));
        };
        return;
    }
    m_answering = true;
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
    boost::asio::async_write(
        m_socket, parts, more, [this, self = shared_from_this(), last](const error_code& error, std::size_t) {
            m_message = std::string();
            m_place.reset();
            m_answering = false;
            if (!m_open) return;
            if (m_greeted) m_timer.reset();
            if (error) return Close(error.message(), SessionEnd::kDropped);
            if (last) return Close("closed");
            SendNews();  // first: a client that has sent many requests hears of events too
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
        Close("the client does not read its answer", SessionEnd::kTimeout);
    });
}

void Session::Subscribe(std::unique_ptr<EventSubscription> subscription)
{
    if (!m_open) return;
    m_subscription = std::move(subscription);
    SendNews();
}

void Session::SendNews()
{
    if (!m_open || m_answering || m_isNewsOut || !m_subscription) return;
    const auto texts = m_subscription->Take(kNewsAtOnce);
    if (m_subscription->IsOver()) {
        m_subscription.reset();
        if (m_receiving) AwaitRequest();
    }
    if (texts.empty()) return;
    m_counters.outNotifications += static_cast<std::uint32_t>(texts.size());
    m_news.clear();
    for (const auto& text : texts)
        m_news.append(netconf::FrameHeader(m_framing, text->size()))
            .append(*text)
            .append(netconf::FrameTrailer(m_framing));
    m_isNewsOut = true;
    m_taken = m_timers.Now();
    AwaitNewsTaken();
    const auto more = [this](const error_code& error, std::size_t) {
        m_taken = m_timers.Now();
        return boost::asio::transfer_all()(error, 0);
    };
    boost::asio::async_write(
        m_socket, boost::asio::buffer(m_news), more,
        [this, self = shared_from_this()](const error_code& error, std::size_t) { NewsWritten(error); });
}

void Session::NewsWritten(const boost::system::error_code& error)
{
    m_isNewsOut = false;
    m_newsTimer.reset();
    if (m_news.capacity() > 2 * kNewsAtOnce) m_news = std::string();
    if (!m_open) return;
    if (error) return Close(error.message(), SessionEnd::kDropped);
    if (m_nextAnswer) return std::exchange(m_nextAnswer, nullptr)();
    SendNews();
}

void Session::AwaitNewsTaken()
{
    m_newsTimer = m_timers.At(m_taken + m_times.write, [this, weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        if (m_timers.Now() < m_taken + m_times.write) return AwaitNewsTaken();
        Close("the client does not read its notifications", SessionEnd::kTimeout);
    });
}

void Session::Next()
{
    if (auto message = m_reader.Next()) return Handle(*std::move(message));
    if (m_reader.Problem().empty()) return Receive();
    if (m_greeted) return m_handlers.onBroken(shared_from_this(), m_reader.Problem());
    Close(m_reader.Problem(), SessionEnd::kBadHello);
}

void Session::AwaitRequest()
{
    if (m_greeted && !m_subscription && m_times.idle.count() > 0)
        Limit(m_times.idle, "no request for too long");
}

void Session::Receive()
{
    AwaitRequest();
    m_receiving = true;
    m_socket.async_read_some(boost::asio::buffer(m_received),
                             [this, self = shared_from_this()](const error_code& error, std::size_t bytes) {
                                 m_receiving = false;
                                 if (!m_open) return;
                                 if (error == boost::asio::error::eof)
                                     return Close("closed by the client", SessionEnd::kDropped);
                                 if (error) return Close(error.message(), SessionEnd::kDropped);
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
    if (!theirs) return Close(theirs.error(), SessionEnd::kBadHello);
    if (theirs->sessionId != 0) return Close("the client's hello has a session-id", SessionEnd::kBadHello);
    const auto framing = netconf::CommonFraming(m_ours, *theirs);
    if (!framing) return Close("the client knows no NETCONF version that we know", SessionEnd::kBadHello);
    m_timer.reset();
    m_greeted = true;
    m_framing = *framing;
    m_base11 = theirs->Has(netconf::kBase11);
    m_reader.SetFraming(m_framing);
    m_reader.SetLimit(m_maxMessage);
    if (m_handlers.onBegun) m_handlers.onBegun(shared_from_this());
    Next();
}

void Session::Close(const std::string& reason, SessionEnd why, std::uint32_t killer)
{
    if (!m_open) return;
    m_open = false;
    if (!m_finishing || why == SessionEnd::kKilled) m_endedBy = why;
    m_killer = killer;
    m_timer.reset();
    m_newsTimer.reset();
    m_nextAnswer = nullptr;
    m_subscription.reset();
    error_code ignored;  // nothing depends on the result
    m_socket.close(ignored);
    // Posted, because the caller may be in the middle of something.
    boost::asio::post(m_socket.get_executor(), [this, self = shared_from_this(), reason] {
        const Handlers handlers = std::exchange(m_handlers, {});
        handlers.onClosed(self, reason);
    });
}

}  // namespace agent
