// SPDX-License-Identifier: Apache-2.0
// What capture/bpf/gap.h computes with and what can't be computed in the kernel: the table of logarithms
// and the scale that belongs to a rate. For the eBPF source and the tests of the gaps' distribution.

#ifndef CAPTURE_EBPF_GAP_H
#define CAPTURE_EBPF_GAP_H

#include <array>
#include <cstdint>

#include "capture/bpf/gap.h"

namespace capture {

using LogTable = std::array<std::uint32_t, kLogTableSize>;

/// The table that GapOf reads.
[[nodiscard]] LogTable MakeLogTable();

/// The mean gap is `rate`, to a part in ten million. 0 counts as 1.
[[nodiscard]] GapScale MakeGapScale(std::uint32_t rate);

}  // namespace capture

#endif
