// SPDX-License-Identifier: Apache-2.0
// A client's connection to a Unix socket, made again when it fails or ends, until Stop, with a back-off of
// 100 ms to 2 s. Knows no message: its owner greets the peer and says when it is accepted. Used by the
// database framework, the sFlow service client and sflow-mgr's state provider.

#ifndef IPC_LINK_H
#define IPC_LINK_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "base/timers.h"

namespace google::protobuf {
class MessageLite;
}

namespace ipc {

class Channel;

class Link {
public:
    static constexpr std::chrono::milliseconds kFirstDelay{100};
    static constexpr std::chrono::milliseconds kLastDelay{2000};

    /// All called from the loop, never from inside an operation of this class.
    struct Handlers {
        std::function<void()> onConnected;  // greet the peer
        std::function<void(std::string_view frame)> onFrame;
        std::function<void(std::string_view reason)> onClosed;  // by the peer or an error; connects again
    };

    /// `loop` and `timers` must outlive it.
    Link(boost::asio::io_context& loop, base::Timers& timers, std::string path, Handlers handlers);
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    ~Link();

    /// Begins to connect, from the loop. No effect if it is started already.
    void Start();

    /// Ends the connection after the queue has been written, and makes no other.
    void Stop();

    /// Ends the connection without a call of onClosed, drops the queue, and connects again: Retry after the
    /// back-off, Renew at once.
    void Retry();
    void Renew();

    /// The peer has accepted us: the next failure is tried again after the first delay.
    void Accepted();

    /// Returns false if there is no connection, or the queue is full (which ends it).
    bool Send(const google::protobuf::MessageLite& message);

    /// Bytes sent and not yet taken by the kernel.
    [[nodiscard]] std::size_t QueuedBytes() const;

    /// Whether bytes are queued and the peer has taken none of them for `limit`.
    [[nodiscard]] bool Stuck(std::chrono::milliseconds limit) const;

private:
    void Attempt();
    void RetryLater(std::chrono::milliseconds delay);
    void DropChannel(bool discard);

    boost::asio::io_context& m_loop;
    base::Timers& m_timers;
    const std::string m_path;
    const Handlers m_handlers;
    std::shared_ptr<Channel> m_channel;
    std::shared_ptr<void> m_attempt;  // the timer of the next attempt
    std::chrono::milliseconds m_delay = kFirstDelay;
    bool m_started = false;
    bool m_failureLogged = false;
};

}  // namespace ipc

#endif
