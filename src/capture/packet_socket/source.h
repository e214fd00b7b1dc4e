// SPDX-License-Identifier: Apache-2.0
// Packets sampled by a random filter of packet sockets (packet(7), TPACKET_V3), for kernels and
// privileges that do not allow eBPF. A second socket per interface counts what could have been sampled.

#ifndef CAPTURE_PACKET_SOCKET_SOURCE_H
#define CAPTURE_PACKET_SOCKET_SOURCE_H

#include <memory>

#include "capture/packet_source.h"

namespace boost::asio {
class io_context;
}
namespace base {
class Timers;
}  // namespace base

namespace capture {

/// Throws Unavailable if packet sockets can't be opened. Loop, timers and sink must outlive it.
std::unique_ptr<PacketSource> MakeRingSource(boost::asio::io_context& loop, base::Timers& timers,
                                             SampleSink& sink, const SourceOptions& options);

}  // namespace capture

#endif
