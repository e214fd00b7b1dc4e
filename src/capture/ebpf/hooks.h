// SPDX-License-Identifier: Apache-2.0
// Where the sampling program is attached: the two kinds of hooks at an interface's ingress and egress, tcx
// and clsact, behind one interface. Used by the eBPF source.

#ifndef CAPTURE_EBPF_HOOKS_H
#define CAPTURE_EBPF_HOOKS_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "capture/ebpf/clsact_claim.h"
#include "capture/packet_source.h"

namespace boost::asio {
class io_context;
}

namespace capture {

class GracePeriods;

/// What becomes of attachments after the call, told from the loop.
struct HookEvents {
    /// The kernel has refused what Attach asked for.
    std::function<void(std::uint32_t ifIndex, bool egress, const Unavailable& reason)> refused;
    /// No packet is in the program any more at this hook.
    std::function<void(std::uint32_t ifIndex, bool egress)> detached;
};

/// Its end detaches all.
class EbpfHooks {
public:
    EbpfHooks() = default;
    EbpfHooks(const EbpfHooks&) = delete;
    EbpfHooks& operator=(const EbpfHooks&) = delete;
    virtual ~EbpfHooks() = default;

    [[nodiscard]] virtual std::string Kind() const = 0;
    /// Asks for it; what is still to be detached there stays. Throws Unavailable.
    virtual void Attach(std::uint32_t ifIndex, bool egress) = 0;
    /// Returns true if no packet is in the program any more; else `detached` tells, unless it is attached
    /// again before.
    virtual bool Detach(std::uint32_t ifIndex, bool egress) = 0;
    [[nodiscard]] virtual bool IsAttached(std::uint32_t ifIndex, bool egress) const = 0;
    /// Tries again what could not be done. To be called about twice a second.
    virtual void Tend() {}
};

/// tcx links: the kernel takes them away with the process, however it ends. `ingress`, `egress`: the
/// programs, which must outlive it like the loop and `grace`. The kernel waits at each link that is made or
/// closed, so a thread does it, one after the other in the order of the calls.
std::unique_ptr<EbpfHooks> MakeTcxHooks(boost::asio::io_context& loop, GracePeriods& grace, int ingress,
                                        int egress, HookEvents events);
/// Whether the kernel has tcx. `program`: either of the two.
[[nodiscard]] bool TcxSupported(int program);

/// Filters at the clsact qdisc, which outlive a process that is killed. Without CAP_NET_ADMIN they can't be
/// detached, which is logged. Attaches and detaches at once: the kernel waits there only for less than a
/// millisecond. Throws Unavailable.
std::unique_ptr<EbpfHooks> MakeClsactHooks(GracePeriods& grace, int ingress, int egress, ClsactClaim claim);
/// Removes the filters that an earlier process left at any interface of this namespace, unless another
/// running manager has the claim: some of them are its own.
void SweepClsact(const ClsactClaim& claim);

}  // namespace capture

#endif
