// SPDX-License-Identifier: Apache-2.0
// Closes pairs of packet sockets without holding up the loop. To close one the kernel waits several times
// until every CPU has passed a quiet moment: some 60 ms. So threads do it, which exist only while there is
// something to close; they wait together, so a few of them close hundreds in a second. If no thread can be
// made, the caller closes. Used by source.cpp.

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

    /// Drops the reference in a thread; the sockets close with the last one. Null is allowed.
    void Close(std::shared_ptr<PacketSocketPair> pair);

private:
    struct Work;
    static void Run(const std::shared_ptr<Work>& work);
    std::shared_ptr<Work> m_work;
};

}  // namespace capture

#endif
