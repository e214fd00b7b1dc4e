// Writes sFlow version 5 in XDR (RFC 4506: big-endian, everything in units of four bytes) into buffers
// of the caller's. Allocates nothing. A test decoder that shares no code with this file checks it.

#ifndef WIRE_ENCODE_H
#define WIRE_ENCODE_H

#include <cstddef>
#include <span>

#include "wire/sample.h"

namespace wire {

inline constexpr std::size_t kDatagramHeaderSize = 28;  // with an IPv4 agent address
/// Room that any sample needs at most.
inline constexpr std::size_t kMaxFlowSample = 1024;
inline constexpr std::size_t kMaxCountersSample = 512;
/// Room in which a flow sample always fits once its header is cut: that of the smallest datagram, 200.
inline constexpr std::size_t kLeastSampleRoom = 200 - kDatagramHeaderSize;

/// Writes the sample with its type and length. `out` may be smaller than the sample: then the sampled
/// header is cut so that it fits. Returns the bytes written; 0 where not even a sample without a header
/// fits, which never happens in kLeastSampleRoom.
inline std::size_t Encode(const FlowSample& sample, Encoding encoding, std::span<std::byte> out);

/// Likewise; records that do not fit are left out from the last one on. 0 where not even the generic
/// counters fit.
inline std::size_t Encode(const CountersSample& sample, Encoding encoding, std::span<std::byte> out);

/// Writes kDatagramHeaderSize bytes; `out` has room for them.
inline void Encode(const DatagramHeader& header, std::span<std::byte> out);

}  // namespace wire

#endif
