// SPDX-License-Identifier: Apache-2.0
// Packets drawn by a random filter of packet sockets (packet(7), TPACKET_V3), for kernels and
// privileges that do not allow eBPF. A second socket per interface counts what could have been drawn.

#ifndef CAPTURE_RING_SOURCE_H
#define CAPTURE_RING_SOURCE_H

#include <memory>

#include "capture/packet_source.h"

namespace boost::asio {
class io_context;
}
namespace ipc {
class Timers;
}

namespace capture {

/// Throws Unavailable where packet sockets can't be opened. All must outlive it.
std::unique_ptr<PacketSource> MakeRingSource(boost::asio::io_context& loop, ipc::Timers& timers,
                                             SampleSink& sink, const SourceOptions& options);

}  // namespace capture

#endif
