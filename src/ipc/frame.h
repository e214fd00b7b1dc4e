// SPDX-License-Identifier: Apache-2.0
// Frames over a Unix stream socket: a 4-byte length in network byte order, then that many bytes of one
// protobuf message. Both ends of cdb.sock and manager.sock are built on this. It knows no message.

#ifndef IPC_FRAME_H
#define IPC_FRAME_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <boost/asio/local/stream_protocol.hpp>

#include "base/timers.h"
#include "ipc/frame_impl.h"
#include "ipc/peer.h"

namespace ipc {

inline constexpr std::uint32_t kProtocolVersion = 1;

/// One connection. Lives while a reference to it is held or an operation is under way. Every handler is
/// called from the loop, never from inside Send, Start or Close.
class Channel : public std::enable_shared_from_this<Channel> {
public:
    using Socket = boost::asio::local::stream_protocol::socket;

    struct Handlers {
        /// One whole frame's content. The view is valid during the call.
        std::function<void(std::string_view frame)> onFrame;
        /// The connection has ended: closed by the peer, an error, a frame over the limit, or a full queue.
        /// Called once; not after Close.
        std::function<void(std::string_view reason)> onClosed;
    };

    /// Takes ownership of a connected socket. `timers` are used by calls until Close has returned.
    static std::shared_ptr<Channel> Create(Socket socket, base::Timers& timers);

    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /// Begins to read. No effect on a closed channel.
    void Start(Handlers handlers);

    /// Queues one message; small ones queued in one turn of the loop go out together. Returns false if the
    /// connection has ended or the queue is full (which ends it).
    bool Send(const google::protobuf::MessageLite& message);

    /// Bytes queued and not yet taken by the kernel.
    [[nodiscard]] std::size_t QueuedBytes() const { return m_writer.Queued(); }
    /// Whether bytes are queued and the kernel has taken none of them for `limit`.
    [[nodiscard]] bool Stuck(std::chrono::milliseconds limit) const;

    /// The process at the other end, as the kernel named it when the channel was made. If the kernel does not
    /// say, user and group are (uint32_t)-1.
    [[nodiscard]] const PeerCredentials& Peer() const { return m_peer; }

    /// Ends the connection after the queue has been written, for which it has 10 s (at once with `discard`).
    /// No handler is called any more.
    void Close(bool discard = false);

private:
    Channel(Socket socket, base::Timers& timers);

    void Receive();
    void Deliver();
    void Flush();
    void Written(const boost::system::error_code& error, std::size_t bytes);
    void WriteFailed();
    void End(const std::string& reason);
    void Release();

    Socket m_socket;
    base::Timers& m_timers;
    const PeerCredentials m_peer;
    std::shared_ptr<Handlers> m_handlers;  // null before Start, and when no handler may be called any more
    FrameReader m_reader;
    FrameWriter m_writer;
    std::chrono::steady_clock::time_point m_progress;
    std::shared_ptr<void> m_drain;  // closed by us, queue not empty yet: the timer that ends this
    bool m_open = true;             // more may be queued
    bool m_flushing = false;        // a flush is posted or a write under way
};

/// Connects to the socket at the path without waiting. Null, with `reason` set, if no process listens there
/// or its backlog is full.
std::shared_ptr<Channel> Connect(boost::asio::io_context& loop, base::Timers& timers, const std::string& path,
                                 std::string& reason);

/// Writes one frame to a blocking socket and waits until the kernel has it, for at most `timeout`. For
/// processes that are about to end. Returns false if it could not be written.
bool SendBlocking(const std::string& socketPath, const google::protobuf::MessageLite& message,
                  std::chrono::milliseconds timeout);

/// Opens a listening socket at the path with the given permissions, owned by `group` or else by the process's
/// own. If the file can't be given to the group, that is logged and the process's own stays. A socket file on
/// which no process listens is replaced. Throws std::system_error, whose text names the path and says if
/// another process listens there already.
boost::asio::local::stream_protocol::acceptor Listen(boost::asio::io_context& loop, const std::string& path,
                                                     unsigned permissions,
                                                     std::optional<std::uint32_t> group = std::nullopt);

}  // namespace ipc

#endif
