// SPDX-License-Identifier: Apache-2.0
// Says to other managers that one lives whose filters hang at clsact. A filter does not tell whose it is, nor
// whether that process lives. So a manager with clsact hooks holds a Unix socket of an abstract name: there
// is one such name a network namespace, and the kernel takes it back however the process ends. Nothing is
// sent. Used by the eBPF source.

#ifndef CAPTURE_EBPF_CLSACT_CLAIM_H
#define CAPTURE_EBPF_CLSACT_CLAIM_H

#include <optional>

#include <sys/types.h>

namespace capture {

class ClsactClaim {
public:
    /// Tries to have it.
    ClsactClaim() { Tend(); }
    ClsactClaim(ClsactClaim&& other) noexcept;
    ClsactClaim& operator=(ClsactClaim&&) = delete;
    ~ClsactClaim();

    /// The process that has it, where that is another one, which root or our own user has started: anybody
    /// may use the name, and nobody else shall keep us from our work. Nothing where we have it, and where
    /// that can't be told.
    [[nodiscard]] std::optional<pid_t> Other() const { return m_other; }

    /// Tries again, where we don't have it; else makes room for others to ask. To be called now and then.
    void Tend();

private:
    void Take();

    int m_file = -1;  // listens, where we have it
    std::optional<pid_t> m_other;
};

}  // namespace capture

#endif
