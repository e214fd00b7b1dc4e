// SPDX-License-Identifier: Apache-2.0
// Where the sampling program is attached: the two kinds of hooks at an interface's ingress and egress, tcx
// and clsact, behind one interface. Used by the eBPF source.
//
// The kernel holds its lock of links while a hook is made or unmade, and waits for it as long as other
// programs hold it: seconds, where they delete thousands of links. So a thread makes and unmakes hooks, one
// after the other in the order of the calls, and the loop never waits.

#ifndef CAPTURE_EBPF_HOOKS_H
#define CAPTURE_EBPF_HOOKS_H

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/worker.h"
#include "capture/ebpf/clsact_claim.h"
#include "capture/ebpf/last_process.h"
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

/// One kind of hooks, as it is made and unmade. Make and Unmake are called from one thread, which is not the
/// loop's; they neither throw nor write to the log.
class HookMaker {
public:
    HookMaker() = default;
    HookMaker(const HookMaker&) = delete;
    HookMaker& operator=(const HookMaker&) = delete;
    virtual ~HookMaker() = default;

    [[nodiscard]] virtual std::string Kind() const = 0;
    /// Returns why the kernel refuses, if it does.
    virtual std::optional<Unavailable> Make(std::uint32_t ifIndex, bool egress) = 0;
    /// Returns why the hook stays, empty if it does not; for operators. One that is gone already is none.
    virtual std::string Unmake(std::uint32_t ifIndex, bool egress) = 0;
    /// To be called from the loop about twice a second.
    virtual void Tend() {}
    /// All that was made and not unmade. Called once, from the loop; a call of the thread may be under way
    /// still, and what it makes is not among them.
    [[nodiscard]] virtual LeftHooks TakeLeft() = 0;
};

class EbpfHooks {
public:
    /// Loop and `grace` must outlive it. Throws Unavailable.
    EbpfHooks(boost::asio::io_context& loop, GracePeriods& grace, std::shared_ptr<HookMaker> maker,
              HookEvents events);
    EbpfHooks(const EbpfHooks&) = delete;
    EbpfHooks& operator=(const EbpfHooks&) = delete;
    /// Unmakes all hooks. Returns after some 1.5 s at most: what is not unmade by then is by a process that
    /// outlives this one, which the log names.
    ~EbpfHooks();

    [[nodiscard]] std::string Kind() const { return m_maker->Kind(); }
    /// Asks for it; what is still to be detached there stays. Throws Unavailable if there is no such
    /// interface.
    void Attach(std::uint32_t ifIndex, bool egress);
    /// Returns true if no packet is in the program any more; else `detached` tells, unless it is attached
    /// again before.
    bool Detach(std::uint32_t ifIndex, bool egress);
    [[nodiscard]] bool IsAttached(std::uint32_t ifIndex, bool egress) const;
    /// Tries again to unmake what the kernel has not let go. To be called about twice a second.
    void Tend();

private:
    struct Hook {
        bool made = false;    // and not being unmade
        bool wanted = false;  // else it is to be detached, and forgotten then
        bool queued = false;  // in m_queue or m_work
        bool stays = false;   // could not be unmade, and is tried again by Tend
    };
    struct Step {
        std::uint32_t ifIndex;
        bool egress;
        bool make;
        std::optional<Unavailable> refusal = std::nullopt;
        std::string stays{};  // why it could not be unmade
        bool done = false;    // else there was no time for it
    };
    struct Work;

    void Ask(std::uint32_t ifIndex, bool egress);
    void Next();
    void Take();
    void TakeStep(const Step& step);
    void Settle(std::uint32_t ifIndex, bool egress);

    GracePeriods& m_grace;
    const std::shared_ptr<HookMaker> m_maker;
    const HookEvents m_events;
    std::unordered_map<std::uint32_t, Hook> m_hooks;  // by KeyOf
    std::deque<std::pair<std::uint32_t, bool>> m_queue;
    std::shared_ptr<Work> m_work;  // that the thread has
    std::unique_ptr<base::Worker> m_worker;
    std::shared_ptr<void> m_task;
};

/// tcx links: the kernel takes them away with the process, however it ends. `ingress`, `egress`: the
/// programs. Throws Unavailable.
std::shared_ptr<HookMaker> MakeTcxMaker(int ingress, int egress);
/// Whether the kernel has tcx. `program`: either of the two.
[[nodiscard]] bool TcxSupported(int program);

/// Filters at the clsact qdisc, which outlive a process that is killed. Without CAP_NET_ADMIN they can't be
/// unmade. Throws Unavailable.
std::shared_ptr<HookMaker> MakeClsactMaker(int ingress, int egress, ClsactClaim claim);
/// Removes the filters that an earlier process left at any interface of this namespace, unless another
/// running manager has the claim: some of them are its own.
void SweepClsact(const ClsactClaim& claim);

}  // namespace capture

#endif
