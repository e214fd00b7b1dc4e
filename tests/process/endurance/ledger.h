// SPDX-License-Identifier: Apache-2.0
// The accounts of samples: what is wrong with a row of samples that should be whole. Each function returns
// the first fault as text, with what stands around it; empty if there is none. For tests of loss and of
// doubling: samples against their own sequence, against the pool, and against the frames that were sent.

#ifndef ENDURANCE_LEDGER_H
#define ENDURANCE_LEDGER_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/decoding_collector.h"
#include "support/network.h"

namespace endurance {

using Flows = std::vector<support::DecodedFlow>;

/// Frames of one flow, each with the next number in its payload, from 0 on; sent over and over, the number of
/// a frame says where in the row it stood.
std::vector<support::Bytes> NumberedFrames(std::uint8_t from, std::uint8_t to, std::size_t size = 200);
inline constexpr std::uint64_t kNumbers = 250;

/// The number in a sampled header; 0 if the header is too short.
std::uint64_t NumberOf(const support::DecodedFlow& flow);

/// Sequence numbers that grow by one from `first` on, and drops that are 0.
std::string FaultInSequence(const Flows& flows, std::uint32_t first = 1);

/// Sequence numbers that grow, with no sample twice: what a collector has that was away in between. `gaps`:
/// how often they may skip.
std::string FaultInPart(const Flows& flows, unsigned gaps);

/// How a source counts: eBPF knows the pool at each sample; packet sockets share what the kernel has counted
/// out over the samples that are looked at together.
enum class Pool { kExact, kShared };

/// Where each sample's frame stood among the numbered frames, the first being 1, by the numbers in them:
/// right if less than kNumbers frames lie between two samples.
std::vector<std::uint64_t> Positions(const Flows& flows);

/// The numbers in the frames follow each other, none missing and none twice.
std::string FaultInNumbers(const Flows& flows);

/// Every frame, from the first on, each once, at 1:1: the sequence counts them, the numbers in the frames
/// follow each other, and the pool is theirs.
std::string FaultInWhole(const Flows& flows, std::uint64_t frames, Pool pool);

/// The pool never goes back and is never less than the samples; an exact one counts what the numbers in the
/// frames count.
std::string FaultInPool(const Flows& flows, Pool pool);

/// The datagrams' sequence grows by one from `first` on.
std::string FaultInDatagrams(const std::vector<support::Arrival>& arrivals, std::uint32_t first = 1);

}  // namespace endurance

#endif
