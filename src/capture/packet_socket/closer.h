// SPDX-License-Identifier: Apache-2.0
// Ends pairs of packet sockets without making anybody wait. To close one the kernel waits several times until
// every CPU has passed a quiet moment: some 60 ms in which the loop would stand still. So threads do it,
// which are there only while there is something to close; they wait together, so a few of them close hundreds
// in a second. Where no thread can be made the caller closes. Used by ring_source.cpp.

#ifndef CAPTURE_PACKET_SOCKET_CLOSER_H
#define CAPTURE_PACKET_SOCKET_CLOSER_H

#include <memory>

#include "capture/packet_socket/pair.h"

namespace capture {

class RingCloser {
public:
    RingCloser();
    RingCloser(const RingCloser&) = delete;
    RingCloser& operator=(const RingCloser&) = delete;
    /// Returns when all are closed.
    ~RingCloser();

    void Close(std::shared_ptr<PacketSocketPair> pair);

private:
    struct Work;
    static void Run(const std::shared_ptr<Work>& work);
    std::shared_ptr<Work> m_work;
};

}  // namespace capture

#endif
