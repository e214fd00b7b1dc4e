// Where the sampling program hangs: the two kinds of hooks at an interface's ingress and egress, tcx and
// clsact, behind one interface. Used by the eBPF source.

#ifndef CAPTURE_EBPF_HOOKS_H
#define CAPTURE_EBPF_HOOKS_H

#include <cstdint>
#include <memory>
#include <string>

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
    /// No packet is in the program any more when this returns. What is not attached, or whose interface
    /// is gone, is fine.
    virtual void Detach(std::uint32_t ifIndex, bool egress) = 0;
};

/// tcx links: the kernel takes them away with the process, however it ends. `ingress`, `egress`: the
/// programs.
std::unique_ptr<EbpfHooks> MakeTcxHooks(int ingress, int egress);
/// Whether the kernel has tcx. `program`: any of the two.
[[nodiscard]] bool TcxSupported(int program);

/// Filters at the clsact qdisc, which outlive a process that is killed.
std::unique_ptr<EbpfHooks> MakeClsactHooks(int ingress, int egress);
/// Removes the filters that an earlier process left at any interface of this namespace.
void SweepClsact();

}  // namespace capture

#endif
