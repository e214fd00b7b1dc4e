// SPDX-License-Identifier: Apache-2.0
// Where the sampling program is attached: the two kinds of hooks at an interface's ingress and egress, tcx
// and clsact, behind one interface. Used by the eBPF source.

#ifndef CAPTURE_EBPF_HOOKS_H
#define CAPTURE_EBPF_HOOKS_H

#include <cstdint>
#include <memory>
#include <string>

#include "capture/ebpf/clsact_claim.h"

namespace capture {

class EbpfHooks {
public:
    EbpfHooks() = default;
    EbpfHooks(const EbpfHooks&) = delete;
    EbpfHooks& operator=(const EbpfHooks&) = delete;
    virtual ~EbpfHooks() = default;

    [[nodiscard]] virtual std::string Kind() const = 0;
    /// Throws Unavailable.
    virtual void Attach(std::uint32_t ifIndex, bool egress) = 0;
    /// No packet is in the program any more when this returns. Does nothing if it is not attached or the
    /// interface is gone.
    virtual void Detach(std::uint32_t ifIndex, bool egress) = 0;
    /// Tries again what could not be done. To be called about twice a second.
    virtual void Tend() {}
};

/// tcx links: the kernel takes them away with the process, however it ends. `ingress`, `egress`: the
/// programs.
std::unique_ptr<EbpfHooks> MakeTcxHooks(int ingress, int egress);
/// Whether the kernel has tcx. `program`: either of the two.
[[nodiscard]] bool TcxSupported(int program);

/// Filters at the clsact qdisc, which outlive a process that is killed. Without CAP_NET_ADMIN they can't be
/// detached, which is logged. Throws Unavailable.
std::unique_ptr<EbpfHooks> MakeClsactHooks(int ingress, int egress, ClsactClaim claim);
/// Removes the filters that an earlier process left at any interface of this namespace, unless another
/// running manager has the claim: some of them are its own.
void SweepClsact(const ClsactClaim& claim);

}  // namespace capture

#endif
