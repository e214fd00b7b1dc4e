// SPDX-License-Identifier: Apache-2.0
// Makes drops of the records in the ring, a batch at a time. Used by the source of drops.

#ifndef CAPTURE_DROPS_BATCH_H
#define CAPTURE_DROPS_BATCH_H

#include <array>
#include <cstdint>
#include <span>
#include <unordered_map>

#include "capture/drop_source.h"
#include "capture/drops/program.h"
#include "capture/drops/reasons.h"
#include "capture/ebpf/ring.h"

namespace capture {

class DropBatch {
public:
    /// All must outlive it.
    DropBatch(DropProgram& program, DropReasons& reasons, BpfRingBuffer& ring)
        : m_program(program), m_reasons(reasons), m_ring(ring)
    {
    }

    /// To be called before a look hands over: counts are read anew, and told once.
    void BeginLook() { m_untold.clear(); }
    /// The next drops; empty if the ring gives none. They point into the ring, until its Release.
    [[nodiscard]] std::span<const Drop> Next();

private:
    void Describe(const DropRecord& record, Drop& drop);
    [[nodiscard]] std::uint64_t UntoldAt(std::uint32_t ifIndex);

    static constexpr std::size_t kBatch = 64;

    DropProgram& m_program;
    DropReasons& m_reasons;
    BpfRingBuffer& m_ring;
    std::array<Drop, kBatch> m_drops;
    std::unordered_map<std::uint32_t, std::uint64_t> m_untold;  // by interface, of this look
};

}  // namespace capture

#endif
