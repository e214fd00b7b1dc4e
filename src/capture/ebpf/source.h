// SPDX-License-Identifier: Apache-2.0
// Packets sampled by an eBPF program at the interfaces' tcx hooks, or at clsact if the kernel has no tcx; one
// ring buffer for all. The kernel wakes the process for the first packet and when the ring fills, never for
// each packet.

#ifndef CAPTURE_EBPF_SOURCE_H
#define CAPTURE_EBPF_SOURCE_H

#include <memory>

#include "capture/packet_source.h"

namespace boost::asio {
class io_context;
}
namespace base {
class Timers;
}  // namespace base

namespace capture {

enum class EbpfHook { kBest, kTcx, kClsact };

/// Loads the program. Removes what an earlier process left at clsact. Throws Unavailable. Loop, timers and
/// sink must outlive it.
std::unique_ptr<PacketSource> MakeEbpfSource(boost::asio::io_context& loop, base::Timers& timers,
                                             SampleSink& sink, const SourceOptions& options,
                                             EbpfHook hook = EbpfHook::kBest);

}  // namespace capture

#endif
