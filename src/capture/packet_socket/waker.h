// SPDX-License-Identifier: Apache-2.0
// Wakes the process for a ring in which the first block waits, once; after that the ring does not wake it
// until Rearm, however many blocks are added: the source looks by a timer meanwhile. One descriptor of the
// loop for any number of rings. Used by source.cpp.

#ifndef CAPTURE_PACKET_SOCKET_WAKER_H
#define CAPTURE_PACKET_SOCKET_WAKER_H

#include <boost/asio/posix/stream_descriptor.hpp>
#include <cstdint>
#include <functional>
#include <span>

namespace boost::asio {
class io_context;
}

namespace capture {

class RingWaker {
public:
    using Action = std::function<void(std::span<const std::uint32_t> keys)>;

    /// `action` is called from the loop with the keys of the readable descriptors. Throws Unavailable.
    RingWaker(boost::asio::io_context& loop, Action action);
    RingWaker(const RingWaker&) = delete;
    RingWaker& operator=(const RingWaker&) = delete;

    /// Wakes for the descriptor, at once if it is readable. Throws Unavailable.
    void Add(int descriptor, std::uint32_t key);
    /// Wakes again for a descriptor that was added, likewise.
    void Rearm(int descriptor, std::uint32_t key);
    /// To be called before the descriptor is closed.
    void Remove(int descriptor);

private:
    void Wait();
    void Take();

    boost::asio::posix::stream_descriptor m_events;  // an epoll of our own
    Action m_action;
};

}  // namespace capture

#endif
