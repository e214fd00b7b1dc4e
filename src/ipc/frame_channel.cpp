// SPDX-License-Identifier: Apache-2.0
// The connection itself: reading, writing in turns of the loop, and its two ways of ending.

#include <cstdint>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include "ipc/frame.h"
#include "ipc/frame_impl.h"

namespace ipc {
namespace {

using boost::system::error_code;
using Clock = std::chrono::steady_clock;

/// How long a closed channel keeps trying to hand its last frames to a peer that reads nothing.
constexpr std::chrono::seconds kDrainTime{10};

/// A peer that the kernel does not name: no user and no group has this number.
const PeerCredentials kUnknownPeer{0, static_cast<std::uint32_t>(-1), static_cast<std::uint32_t>(-1), {}};

}  // namespace

class Channel::Impl {
public:
    explicit Impl(Socket connected)
        : m_socket(std::move(connected)),
          m_peer(PeerOf(m_socket.native_handle()).value_or(kUnknownPeer)),
          m_drainTimer(m_socket.get_executor())
    {
    }

    void Receive(const std::shared_ptr<Channel>& self);
    void Flush(const std::shared_ptr<Channel>& self);
    bool Send(const std::shared_ptr<Channel>& self, const google::protobuf::MessageLite& message);
    void Close(const std::shared_ptr<Channel>& self, bool discard);

    Socket m_socket;
    const PeerCredentials m_peer;
    boost::asio::steady_timer m_drainTimer;
    std::shared_ptr<Handlers> m_handlers;  // null before Start, and when no handler may be called any more
    FrameReader m_reader;
    FrameWriter m_writer;
    Clock::time_point m_progress = Clock::now();
    bool m_open = true;       // more may be queued
    bool m_draining = false;  // closed by us, queue not empty yet
    bool m_flushing = false;  // a flush is posted or a write under way

private:
    void Deliver(const std::shared_ptr<Channel>& self);
    void Written(const std::shared_ptr<Channel>& self, const error_code& error, std::size_t bytes);
    void WriteFailed();
    void End(const std::string& reason);
    void Release();
};

void Channel::Impl::Receive(const std::shared_ptr<Channel>& self)
{
    m_socket.async_read_some(boost::asio::buffer(m_reader.FreeSpace(), m_reader.FreeSize()),
                             [this, self](const error_code& error, std::size_t bytes) {
                                 if (m_handlers == nullptr) return;
                                 // Only WriteFailed cancels; bytes that have arrived by then can still be
                                 // read.
                                 if (error == boost::asio::error::operation_aborted) return Receive(self);
                                 if (error == boost::asio::error::eof) return End("closed by the peer");
                                 if (error) return End(error.message());
                                 m_reader.Received(bytes);
                                 Deliver(self);
                             });
}

void Channel::Impl::Deliver(const std::shared_ptr<Channel>& self)
{
    while (const auto frame = m_reader.Next()) {
        const auto handlers = m_handlers;  // keeps the handler alive if it calls Close
        handlers->onFrame(*frame);
        if (m_handlers == nullptr) return;
    }
    if (m_reader.Oversized())
        return End("a frame of more than " + std::to_string(kMaxFrame) + " bytes was announced");
    m_reader.MakeRoom();
    Receive(self);
}

bool Channel::Impl::Send(const std::shared_ptr<Channel>& self, const google::protobuf::MessageLite& message)
{
    if (!m_open) return false;
    if (m_writer.Queued() == 0) m_progress = Clock::now();
    if (!m_writer.Append(message)) {
        m_open = false;
        boost::asio::post(m_socket.get_executor(), [this, self] { End("too much is waiting to be sent"); });
        return false;
    }
    if (!m_flushing) {
        m_flushing = true;
        boost::asio::post(m_socket.get_executor(), [this, self] { Flush(self); });
    }
    return true;
}

void Channel::Impl::Flush(const std::shared_ptr<Channel>& self)
{
    if (!m_socket.is_open()) m_writer.Clear();
    const std::string_view chunk = m_writer.Chunk();
    if (chunk.empty()) {
        m_flushing = false;
        if (m_draining) Release();
        return;
    }
    m_socket.async_write_some(
        boost::asio::buffer(chunk.data(), chunk.size()),
        [this, self](const error_code& error, std::size_t bytes) { Written(self, error, bytes); });
}

void Channel::Impl::Written(const std::shared_ptr<Channel>& self, const error_code& error, std::size_t bytes)
{
    if (error) {
        m_flushing = false;
        return WriteFailed();
    }
    m_progress = Clock::now();
    m_writer.Written(bytes);
    Flush(self);
}

/// The peer takes nothing any more, but what it has sent before (a refusal, say) is still read. The end of
/// that ends the channel.
void Channel::Impl::WriteFailed()
{
    m_open = false;
    m_writer.Clear();
    if (m_draining || m_handlers == nullptr) return Release();
    error_code ignored;  // a socket that can't be shut down ends its reader by itself
    m_socket.shutdown(Socket::shutdown_receive, ignored);
    m_socket.cancel(ignored);  // shutdown does not wake the reader
}

void Channel::Impl::End(const std::string& reason)
{
    const auto handlers = std::exchange(m_handlers, nullptr);
    Release();
    if (handlers != nullptr) handlers->onClosed(reason);
}

void Channel::Impl::Release()
{
    m_open = false;
    m_draining = false;
    m_drainTimer.cancel();
    error_code ignored;  // the socket is given up either way
    m_socket.close(ignored);
    if (!m_flushing) m_writer.Clear();  // else the write under way still uses the buffer
}

void Channel::Impl::Close(const std::shared_ptr<Channel>& self, bool discard)
{
    m_handlers = nullptr;
    m_open = false;
    if (discard || m_writer.Queued() == 0 || !m_socket.is_open()) return Release();
    if (m_draining) return;
    m_draining = true;
    m_drainTimer.expires_after(kDrainTime);
    m_drainTimer.async_wait([this, self](const error_code& error) {
        if (!error) Release();
    });
}

Channel::Channel(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}
Channel::~Channel() = default;

std::shared_ptr<Channel> Channel::Create(Socket socket)
{
    return std::shared_ptr<Channel>(new Channel(std::make_unique<Impl>(std::move(socket))));
}

void Channel::Start(Handlers handlers)
{
    if (!m_impl->m_socket.is_open()) return;
    m_impl->m_handlers = std::make_shared<Handlers>(std::move(handlers));
    m_impl->Receive(shared_from_this());
}

bool Channel::Send(const google::protobuf::MessageLite& message)
{
    return m_impl->Send(shared_from_this(), message);
}

std::size_t Channel::QueuedBytes() const { return m_impl->m_writer.Queued(); }

Clock::time_point Channel::LastProgress() const
{
    return m_impl->m_writer.Queued() == 0 ? Clock::now() : m_impl->m_progress;
}

const PeerCredentials& Channel::Peer() const { return m_impl->m_peer; }

void Channel::Close(bool discard) { m_impl->Close(shared_from_this(), discard); }

}  // namespace ipc
