// SPDX-License-Identifier: Apache-2.0
// The running kernel's reasons of drops: names and meanings, read from the kernel's own types (BTF). Numbers
// differ from kernel to kernel and are never known beforehand. Used by the source of drops.

#ifndef CAPTURE_DROPS_REASONS_H
#define CAPTURE_DROPS_REASONS_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "capture/bpf/drop_records.h"

struct btf;

namespace capture {

/// What the kernel's own text says that a reason of this name (without SKB_DROP_REASON_) stands for.
[[nodiscard]] DropMeaning MeaningOf(std::string_view name);

class DropReasons {
public:
    /// `folder`: with the file "vmlinux", and one for each module. Throws Unavailable if the kernel does not
    /// describe its types there, or tells no reasons.
    explicit DropReasons(std::string folder);

    /// As the kernel's traces have it: "NO_SOCKET". The upper 16 bits of a number are the subsystem that it
    /// is of; without names of its own: "OPENVSWITCH_3"; else "17". Reads the module's types if it has come
    /// since. The same view for the same number, valid as long as this.
    [[nodiscard]] std::string_view NameOf(std::uint32_t reason);

    /// All that have a name, and those that NameOf was asked for.
    [[nodiscard]] const std::map<std::uint32_t, std::string>& All() const { return m_names; }

    /// Whether the tracepoint tells the receiving socket.
    [[nodiscard]] bool HasSocket() const { return m_hasSocket; }

private:
    void ReadTracepoint(const btf* types);
    void ReadSubsystems(const btf* types, std::uint32_t firstType);
    void ReadModule(std::uint32_t subsystem);

    std::string m_folder;
    std::map<std::uint32_t, std::string> m_names;
    std::map<std::uint32_t, std::string> m_subsystems;  // "OPENVSWITCH"
    bool m_hasSocket = false;
};

}  // namespace capture

#endif
