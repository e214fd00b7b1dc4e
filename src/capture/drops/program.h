// SPDX-License-Identifier: Apache-2.0
// The program that sees drops, loaded into the kernel and running, with its maps. Knows nothing of sinks and
// batches. Used by the source of drops.

#ifndef CAPTURE_DROPS_PROGRAM_H
#define CAPTURE_DROPS_PROGRAM_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "capture/bpf/drop_records.h"
#include "capture/drop_source.h"
#include "capture/drops/reasons.h"

struct bpf_link;
struct drops;  // libbpf's skeleton

namespace capture {

class DropProgram {
public:
    /// Loads it and makes it run, for the network namespace of the calling thread. Throws Unavailable.
    DropProgram(const DropOptions& options, const DropReasons& reasons);
    ~DropProgram();
    DropProgram(const DropProgram&) = delete;
    DropProgram& operator=(const DropProgram&) = delete;

    [[nodiscard]] int RingFile() const;
    [[nodiscard]] std::size_t RingSize() const { return m_ringSize; }
    [[nodiscard]] volatile WakeWords& Wake();

    void Change(const DropSettings& settings);
    /// Throws Unavailable.
    void Add(std::uint32_t ifIndex);
    void Remove(std::uint32_t ifIndex);

    /// Nothing if the interface had no drops.
    [[nodiscard]] std::optional<DropCounts> ReadCounts(std::uint32_t ifIndex);
    [[nodiscard]] std::optional<InterfaceDrops> Read(std::uint32_t ifIndex);
    [[nodiscard]] std::vector<InterfaceDrops> ReadAll();
    [[nodiscard]] UncountedDrops ReadUncounted() const;

    /// The name of the kernel's function that dropped a packet, as the sources have it; empty if the kernel
    /// does not say. Valid until the next call.
    [[nodiscard]] std::string_view FunctionAt(std::uint64_t location);

private:
    struct Close {
        void operator()(drops* skeleton) const;
    };
    struct Detach {
        void operator()(bpf_link* link) const;
    };
    void Prepare(const DropOptions& options);
    void Start();
    void Renew();
    [[nodiscard]] InterfaceDrops SumOf(std::uint32_t ifIndex, const DropInterface* cpus) const;
    [[nodiscard]] std::optional<ReasonCount> ReadReason(const DropReasonKey& key);
    [[nodiscard]] ReasonCount SumOfReason(std::uint32_t reason, const DropReasonCount* cpus) const;
    [[nodiscard]] std::string AskForFunction(std::uint64_t location);

    const DropReasons& m_reasons;
    std::unique_ptr<drops, Close> m_skeleton;
    std::unique_ptr<bpf_link, Detach> m_link;
    std::size_t m_ringSize;
    std::size_t m_cpus;
    std::vector<DropInterface> m_interface;  // as they were read last, by CPU
    std::vector<DropReasonCount> m_reason;
    std::unordered_map<std::uint64_t, std::string> m_functions;  // by location
};

}  // namespace capture

#endif
