// SPDX-License-Identifier: Apache-2.0
// Shows other managers that a manager with filters at clsact is running. A filter does not say which process
// made it, nor whether that process still runs. So a manager with clsact hooks holds a Unix socket of an
// abstract name: there is one such name in a network namespace, and the kernel takes it back however the
// process ends. Nothing is sent. Used by the eBPF source.

#ifndef CAPTURE_EBPF_CLSACT_CLAIM_H
#define CAPTURE_EBPF_CLSACT_CLAIM_H

#include <optional>

#include <sys/types.h>

#include "base/unique_fd.h"

namespace capture {

class ClsactClaim {
public:
    /// Tries to take the claim.
    ClsactClaim() { Tend(); }

    /// The other process that has the claim. Only a process of root or of our own user counts: any user may
    /// take the name, and must not block the manager by that. Empty if we have it, or if the holder is
    /// unknown.
    [[nodiscard]] std::optional<pid_t> Other() const { return m_other; }

    /// Tries again if we do not have it; else clears the queue of processes that ask for its holder. To be
    /// called regularly.
    void Tend();

    /// The socket; negative if we do not have the claim.
    [[nodiscard]] int File() const { return m_file.Get(); }

private:
    void Take();

    base::UniqueFd m_file;  // listens; none if we do not have the claim
    std::optional<pid_t> m_other;
};

}  // namespace capture

#endif
