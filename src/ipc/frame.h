// SPDX-License-Identifier: Apache-2.0
// Frames over a Unix stream socket: a 4-byte length in network byte order, then that many bytes of
// one protobuf message. What both ends of cdb.sock and manager.sock are built on; knows no message.

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

/// A frame's content is at most this long; a longer one ends the connection, whoever sends it.
inline constexpr std::size_t kMaxFrame = std::size_t{64} << 20;

/// What may wait unsent in one channel; one more frame ends the connection.
inline constexpr std::size_t kMaxQueue = std::size_t{64} << 20;

/// One connection. Lives as long as somebody holds it or an operation is under way; every handler
/// is called from the loop, never from inside Send, Start or Close.
class Channel : public std::enable_shared_from_this<Channel> {
public:
    using Socket = boost::asio::local::stream_protocol::socket;

    struct Handlers {
        /// One whole frame's content. The view is valid during the call.
        std::function<void(std::string_view frame)> onFrame;
        /// The connection has ended, for the reason given: by the peer, by an error, by a frame over
        /// the limit, by a full queue. Called once; not after Close.
        std::function<void(std::string_view reason)> onClosed;
    };

    /// Takes over a connected socket.
    static std::shared_ptr<Channel> Create(Socket socket);

    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    ~Channel();

    /// Begins to read.
    void Start(Handlers handlers);

    /// Queues one message; small ones queued in one turn of the loop go out together. False when the
    /// connection has ended or the queue is full (which ends it).
    bool Send(const google::protobuf::MessageLite& message);

    /// Bytes queued and not yet taken by the kernel, and when the kernel last took some (or the
    /// queue was last empty), on the steady clock.
    [[nodiscard]] std::size_t QueuedBytes() const;
    [[nodiscard]] std::chrono::steady_clock::time_point LastProgress() const;

    /// Who is at the other end: asked of the kernel once, when the channel is made.
    [[nodiscard]] const PeerCredentials& Peer() const;

    /// Ends the connection after what is queued has been written (at once with `discard`). No
    /// handler is called any more.
    void Close(bool discard = false);

private:
    class Impl;
    explicit Channel(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

/// Connects to the socket at the path without waiting. Null, with `reason` set, when nobody listens
/// there, or too many wait to be accepted.
std::shared_ptr<Channel> Connect(boost::asio::io_context& loop, const std::string& path, std::string& reason);

/// Writes one frame to a blocking socket and waits until the kernel has it, for at most
/// `timeout`. For processes that are about to end. False when it could not be written.
bool SendBlocking(const std::string& socketPath, const google::protobuf::MessageLite& message,
                  std::chrono::milliseconds timeout);

/// Opens a listening socket at the path with the given permissions, for the group given, else for the
/// process's own. A group that the file can't be given to is named in the log, and the process's own
/// stays. A socket file that nobody listens on is replaced. Throws std::system_error, its text naming the
/// path and, where another process listens there already, saying so.
boost::asio::local::stream_protocol::acceptor Listen(boost::asio::io_context& loop, const std::string& path,
                                                     unsigned permissions,
                                                     std::optional<std::uint32_t> group = std::nullopt);

}  // namespace ipc

#endif
