// SPDX-License-Identifier: Apache-2.0
// The sampling program, loaded into the kernel, with its maps. Knows neither hooks nor interfaces: a port is
// a key (records.h). Used by the eBPF source.

#ifndef CAPTURE_EBPF_PROGRAM_H
#define CAPTURE_EBPF_PROGRAM_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <unordered_set>
#include <vector>

#include "capture/bpf/records.h"
#include "capture/packet_source.h"

struct bpf_program;
struct sampler;  // libbpf's skeleton

namespace capture {

/// What the kernel's refusal means to an operator. `error`: an errno, positive or negative.
[[nodiscard]] Unavailable Refusal(const char* what, int error);

class EbpfProgram {
public:
    /// Loads it. With `heartbeat` it passes everything on without counting while the process's last sign
    /// of life (Shared().heartbeat) is older than two seconds. Throws Unavailable.
    EbpfProgram(const SourceOptions& options, bool heartbeat);
    ~EbpfProgram();
    EbpfProgram(const EbpfProgram&) = delete;
    EbpfProgram& operator=(const EbpfProgram&) = delete;

    /// Descriptors; the program closes them.
    [[nodiscard]] int IngressFile() const;
    [[nodiscard]] int EgressFile() const;
    [[nodiscard]] int RingFile() const;
    [[nodiscard]] std::size_t RingSize() const { return m_ringSize; }
    [[nodiscard]] volatile SharedWords& Shared();

    /// A port, if there is none yet. Throws Unavailable.
    void Create(std::uint32_t key);
    /// In effect from the next packet on. The counts begin at zero with each incarnation. Throws Unavailable.
    void Set(std::uint32_t key, const PortSettings& settings);
    /// From the next packet on none is counted or sampled, until Set. The counts stay.
    void Stop(std::uint32_t key);
    /// Removes the port with its counts; does nothing if there is none. The program must be detached there.
    void Erase(std::uint32_t key);

    /// The counts that a port has had in this incarnation, by CPU; zeros if there is no such port. Valid
    /// until the next call.
    [[nodiscard]] std::span<const Counts> ReadCpus(std::uint32_t key, std::uint32_t incarnation);
    /// Their sum.
    [[nodiscard]] Counts Read(std::uint32_t key, std::uint32_t incarnation);

private:
    struct Close {
        void operator()(sampler* skeleton) const;
    };
    [[nodiscard]] std::size_t DirectBytes() const;
    // Only pages with ports are mapped: each mapped page counts as the process's memory.
    [[nodiscard]] PortState* ReserveDirect() const;
    void MapDirect(std::uint32_t key);
    [[nodiscard]] static std::size_t PlaceOf(std::size_t cpu, std::uint32_t key);
    // Makes all CPUs take the settings anew.
    void Renew(std::uint32_t key);
    // Of a port that has been created: its place is mapped.
    [[nodiscard]] bool IsDirect(std::uint32_t key);
    PortState& DirectState(std::size_t cpu, std::uint32_t key);
    // Gives the key's place to `owner`, with counts of zero.
    void Place(std::uint32_t key, std::uint32_t owner);

    std::unique_ptr<sampler, Close> m_skeleton;
    bpf_program* m_ingress = nullptr;
    bpf_program* m_egress = nullptr;
    std::size_t m_ringSize;
    std::size_t m_cpus;
    PortState* m_direct = nullptr;               // the kernel's own memory
    std::unordered_set<std::size_t> m_mapped;    // pages of the first CPU; the others' go with them
    std::unordered_set<std::uint32_t> m_others;  // keys in the map for those that found their place taken
    std::vector<PortState> m_states;             // of one of these, all CPUs
    std::vector<Counts> m_counts;                // likewise, as they were read last
};

}  // namespace capture

#endif
