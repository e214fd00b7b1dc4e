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

#include "ipc/peer.h"

namespace google::protobuf {
class MessageLite;
}

namespace ipc {

inline constexpr std::uint32_t kProtocolVersion = 1;

/// The bytes of a frame's content; a longer frame, sent or received, ends the connection.
inline constexpr std::size_t kMaxFrame = std::size_t{64} << 20;

/// The bytes that may wait unsent in one channel; one more frame ends the connection.
inline constexpr std::size_t kMaxQueue = std::size_t{64} << 20;

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

    /// Takes ownership of a connected socket.
    static std::shared_ptr<Channel> Create(Socket socket);

    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    ~Channel();

    /// Begins to read. No effect on a closed channel.
    void Start(Handlers handlers);

    /// Queues one message; small ones queued in one turn of the loop go out together. Returns false if the
    /// connection has ended or the queue is full (which ends it).
    bool Send(const google::protobuf::MessageLite& message);

    /// Bytes queued and not yet taken by the kernel, and when the kernel last took some, on the steady clock;
    /// now if the queue is empty.
    [[nodiscard]] std::size_t QueuedBytes() const;
    [[nodiscard]] std::chrono::steady_clock::time_point LastProgress() const;

    /// The process at the other end, as the kernel named it when the channel was made. If the kernel does not
    /// say, user and group are (uint32_t)-1.
    [[nodiscard]] const PeerCredentials& Peer() const;

    /// Ends the connection after the queue has been written, for which it has 10 s (at once with `discard`).
    /// No handler is called any more.
    void Close(bool discard = false);

private:
    class Impl;
    explicit Channel(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

/// Connects to the socket at the path without waiting. Null, with `reason` set, if no process listens there
/// or its backlog is full.
std::shared_ptr<Channel> Connect(boost::asio::io_context& loop, const std::string& path, std::string& reason);

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
