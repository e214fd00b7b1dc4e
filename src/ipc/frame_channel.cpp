// SPDX-License-Identifier: Apache-2.0
// The connection itself: reading, writing in turns of the loop, and its two ways of ending.

#include <cstdint>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>

#include "ipc/frame.h"

namespace ipc {
namespace {

using boost::system::error_code;

/// How long a closed channel keeps trying to hand its last frames to a peer that reads nothing.
constexpr std::chrono::seconds kDrainTime{10};

/// A peer that the kernel does not name: no user and no group has this number.
const PeerCredentials kUnknownPeer{0, static_cast<std::uint32_t>(-1), static_cast<std::uint32_t>(-1), {}};

}  // namespace

Channel::Channel(Socket socket, base::Timers& timers)
    : m_socket(std::move(socket)),
      m_timers(timers),
      m_peer(PeerOf(m_socket.native_handle()).value_or(kUnknownPeer))
{
}

std::shared_ptr<Channel> Channel::Create(Socket socket, base::Timers& timers)
{
    return std::shared_ptr<Channel>(new Channel(std::move(socket), timers));
}

void Channel::Start(Handlers handlers)
{
    if (!m_socket.is_open()) return;
    m_handlers = std::make_shared<Handlers>(std::move(handlers));
    Receive();
}

void Channel::Receive()
{
    m_socket.async_read_some(boost::asio::buffer(m_reader.FreeSpace(), m_reader.FreeSize()),
                             [this, self = shared_from_this()](const error_code& error, std::size_t bytes) {
                                 if (m_handlers == nullptr) return;
                                 // Only WriteFailed cancels; bytes that have arrived by then can still be
                                 // read.
                                 if (error == boost::asio::error::operation_aborted) return Receive();
                                 if (error == boost::asio::error::eof) return End("closed by the peer");
                                 if (error) return End(error.message());
                                 m_reader.Received(bytes);
                                 Deliver();
                             });
}

void Channel::Deliver()
{
    while (const auto frame = m_reader.Next()) {
        const auto handlers = m_handlers;  // keeps the handler alive if it calls Close
        handlers->onFrame(*frame);
        if (m_handlers == nullptr) return;
    }
    if (m_reader.Oversized())
        return End("a frame of more than " + std::to_string(kMaxFrame) + " bytes was announced");
    m_reader.MakeRoom();
    Receive();
}

bool Channel::Send(const google::protobuf::MessageLite& message)
{
    if (!m_open) return false;
    if (m_writer.Queued() == 0) m_progress = m_timers.Now();
    if (!m_writer.Append(message)) {
        m_open = false;
        boost::asio::post(m_socket.get_executor(),
                          [this, self = shared_from_this()] { End("too much is waiting to be sent"); });
        return false;
    }
    if (!std::exchange(m_flushing, true))
        boost::asio::post(m_socket.get_executor(), [this, self = shared_from_this()] { Flush(); });
    return true;
}

bool Channel::Stuck(std::chrono::milliseconds limit) const
{
    return m_writer.Queued() > 0 && m_timers.Now() - m_progress >= limit;
}

void Channel::Flush()
{
    if (!m_socket.is_open()) m_writer.Clear();
    const std::string_view chunk = m_writer.Chunk();
    if (chunk.empty()) {
        m_flushing = false;
        if (m_drain != nullptr) Release();
        return;
    }
    m_socket.async_write_some(boost::asio::buffer(chunk.data(), chunk.size()),
                              [this, self = shared_from_this()](const error_code& error, std::size_t bytes) {
                                  Written(error, bytes);
                              });
}

void Channel::Written(const error_code& error, std::size_t bytes)
{
    if (error) {
        m_flushing = false;
        return WriteFailed();
    }
    if (m_open) m_progress = m_timers.Now();
    m_writer.Written(bytes);
    Flush();
}

/// The peer takes nothing any more, but what it has sent before (a refusal, say) is still read. The end of
/// that ends the channel.
void Channel::WriteFailed()
{
    m_open = false;
    m_writer.Clear();
    if (m_handlers == nullptr) return Release();
    error_code ignored;  // a socket that can't be shut down ends its reader by itself
    m_socket.shutdown(Socket::shutdown_receive, ignored);
    m_socket.cancel(ignored);  // shutdown does not wake the reader
}

void Channel::End(const std::string& reason)
{
    const auto handlers = std::exchange(m_handlers, nullptr);
    Release();
    if (handlers != nullptr) handlers->onClosed(reason);
}

void Channel::Release()
{
    m_open = false;
    m_drain.reset();
    error_code ignored;  // the socket is given up either way
    m_socket.close(ignored);
    if (!m_flushing) m_writer.Clear();  // else the write under way still uses the buffer
}

void Channel::Close(bool discard)
{
    m_handlers = nullptr;
    m_open = false;
    if (discard || m_writer.Queued() == 0 || !m_socket.is_open()) return Release();
    if (m_drain == nullptr) m_drain = m_timers.After(kDrainTime, [this] { Release(); });
}

}  // namespace ipc
