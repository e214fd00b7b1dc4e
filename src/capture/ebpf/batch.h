// SPDX-License-Identifier: Apache-2.0
// Makes samples of the records in the ring, a batch at a time. Used by the eBPF source.
//
// A record tells what its own CPU had counted. What the other CPUs have counted is read in the kernel at an
// interface's first record in a look, and is told as soon as all records are taken that were in the ring by
// then. The program gives a record its place before it counts the packet, so no record comes later that this
// count has included already: the pool rises with each sample, also if the traffic moves from CPU to CPU.

#ifndef CAPTURE_EBPF_BATCH_H
#define CAPTURE_EBPF_BATCH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "capture/ebpf/ports.h"
#include "capture/ebpf/program.h"
#include "capture/ebpf/ring.h"
#include "capture/packet_source.h"

namespace capture {

class EbpfBatch {
public:
    /// All must outlive it.
    EbpfBatch(EbpfProgram& program, BpfRingBuffer& ring, EbpfPorts& ports)
        : m_program(program), m_ring(ring), m_ports(ports)
    {
    }

    /// To be called before a look hands over.
    void BeginLook() { ++m_look; }
    /// The next samples; empty if the ring gives none. They point into the ring, until its Release.
    [[nodiscard]] std::span<const Sample> Next();

    /// Reads an interface's counts in the kernel for Last. Once all is taken that is in the ring then, Last
    /// returns them with what records have told since; all that was sampled of these packets has been taken.
    void ReadLast(EbpfPorts::Port& port);
    [[nodiscard]] static Counts Last(EbpfPorts::Port& port);

private:
    using Port = EbpfPorts::Port;

    // An interface whose counts were read while the records before `end` were in the ring.
    struct Asked {
        std::uint32_t slot;
        std::uint32_t incarnation;
        unsigned long end;
    };
    struct Taken {
        Port* port;
        std::size_t row;
        Counts counts;
    };

    std::size_t Take();
    void Ask(Port& port);
    void Read(Port& port, Counts Port::Row::*to);
    [[nodiscard]] std::size_t Answered() const;
    void Tell(std::size_t answered, bool untouched);
    static void Describe(const Port& port, const Record& record, Sample& sample);

    static constexpr std::size_t kBatch = 256;

    EbpfProgram& m_program;
    BpfRingBuffer& m_ring;
    EbpfPorts& m_ports;
    std::vector<Asked> m_asked;  // `end` rises; one entry an interface at most
    std::array<Taken, kBatch> m_taken;
    std::array<Sample, kBatch> m_samples;
    std::uint64_t m_look = 0;
    std::uint64_t m_batch = 0;
};

}  // namespace capture

#endif
