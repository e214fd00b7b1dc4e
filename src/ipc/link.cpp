// SPDX-License-Identifier: Apache-2.0
// Attempts, back-off and their log lines.

#include "ipc/link.h"

#include <algorithm>
#include <utility>

#include <boost/asio/io_context.hpp>

#include "ipc/frame.h"
#include "log/log.h"

namespace ipc {

Link::Link(boost::asio::io_context& loop, base::Timers& timers, std::string path, Handlers handlers)
    : m_loop(loop), m_timers(timers), m_path(std::move(path)), m_handlers(std::move(handlers))
{
}

Link::~Link() { Stop(); }

void Link::Start()
{
    if (std::exchange(m_started, true)) return;
    RetryLater(std::chrono::milliseconds{0});
}

void Link::Stop()
{
    m_started = false;
    m_attempt.reset();
    m_delay = kFirstDelay;
    DropChannel(false);
}

void Link::Retry()
{
    DropChannel(true);
    RetryLater(m_delay);
    m_delay = std::min(2 * m_delay, kLastDelay);
}

void Link::Renew()
{
    DropChannel(true);
    RetryLater(std::chrono::milliseconds{0});
}

void Link::Accepted()
{
    m_delay = kFirstDelay;
    m_failureLogged = false;
}

bool Link::Send(const google::protobuf::MessageLite& message)
{
    return m_channel != nullptr && m_channel->Send(message);
}

std::size_t Link::QueuedBytes() const { return m_channel == nullptr ? 0 : m_channel->QueuedBytes(); }

bool Link::Stuck(std::chrono::milliseconds limit) const
{
    return m_channel != nullptr && m_channel->Stuck(limit);
}

void Link::Attempt()
{
    std::string reason;
    m_channel = Connect(m_loop, m_timers, m_path, reason);
    if (m_channel == nullptr) {
        if (!std::exchange(m_failureLogged, true))
            slog::Notice("cannot connect to {}: {}; trying again until it succeeds", m_path, reason);
        return Retry();
    }
    m_channel->Start({m_handlers.onFrame, [this](std::string_view why) {
                          Retry();
                          m_handlers.onClosed(why);
                      }});
    m_handlers.onConnected();
}

void Link::RetryLater(std::chrono::milliseconds delay)
{
    if (m_started) m_attempt = m_timers.After(delay, [this] { Attempt(); });
}

void Link::DropChannel(bool discard)
{
    if (const auto channel = std::exchange(m_channel, nullptr)) channel->Close(discard);
}

}  // namespace ipc
