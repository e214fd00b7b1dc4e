// SPDX-License-Identifier: Apache-2.0
// Filters at the clsact qdisc, for kernels before tcx. They stay when the process is killed, so they have a
// place and a name by which the next start finds them, and the program a heartbeat without which it passes
// everything on. All of this takes CAP_NET_ADMIN and nothing more: a running manager has given up the
// capability to open a program by its number.

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <net/if.h>

#include "base/unique_fd.h"
#include "capture/ebpf/hooks.h"
#include "capture/ebpf/program.h"
#include "capture/ebpf/tc_dump.h"
#include "log/log.h"

namespace capture {
namespace {

// Our place at a hook: ahead of other filters, whose verdict may end the chain.
constexpr std::uint32_t kPriority = 1;
constexpr std::uint32_t kHandle = 0x5f10;
constexpr std::string_view kOurName = "sflow_";  // all our programs' names begin so

bpf_tc_hook HookOf(int ifIndex, bool egress)
{
    bpf_tc_hook hook{};
    hook.sz = sizeof(hook);
    hook.ifindex = ifIndex;
    hook.attach_point = egress ? BPF_TC_EGRESS : BPF_TC_INGRESS;
    return hook;
}

bpf_tc_hook QdiscOf(int ifIndex)
{
    auto hook = HookOf(ifIndex, false);
    hook.attach_point = static_cast<bpf_tc_attach_point>(BPF_TC_INGRESS | BPF_TC_EGRESS);
    return hook;
}

bpf_tc_opts Place()
{
    bpf_tc_opts options{};
    options.sz = sizeof(options);
    options.handle = kHandle;
    options.priority = kPriority;
    return options;
}

// Finds our program at our place: one at most, of this process or another. Returns 0 or a negative errno.
int FindOurs(int ifIndex, bool egress, std::optional<std::uint32_t>& program)
{
    std::vector<TcFilter> filters;
    const int error = ListFilters(ifIndex, egress, kPriority, filters);
    for (const TcFilter& filter : filters)
        if (filter.handle == kHandle && filter.name.starts_with(kOurName)) program = filter.program;
    return error;
}

std::string PlaceName(int ifIndex, bool egress)
{
    std::array<char, IF_NAMESIZE> name{};
    const bool named = ::if_indextoname(static_cast<unsigned>(ifIndex), name.data()) != nullptr;
    return fmt::format("interface {}, {}", named ? name.data() : std::to_string(ifIndex),
                       egress ? "egress" : "ingress");
}

std::uint32_t NumberOf(int program)
{
    bpf_prog_info info{};
    std::uint32_t length = sizeof(info);
    const int error = bpf_obj_get_info_by_fd(program, &info, &length);
    if (error != 0) throw Refusal("the kernel does not tell the program's number", error);
    return info.id;
}

// Returns 0, also if the filter is gone already, or a negative errno.
int DetachFilter(int ifIndex, bool egress)
{
    const auto hook = HookOf(ifIndex, egress);
    const auto place = Place();
    const int error = bpf_tc_detach(&hook, &place);
    return error == -ENOENT || error == -ENODEV ? 0 : error;
}

class ClsactMaker final : public HookMaker {
public:
    ClsactMaker(int ingress, int egress, ClsactClaim claim)
        : m_claim(std::move(claim)), m_programs{ProgramOf(ingress), ProgramOf(egress)}
    {
    }

    [[nodiscard]] std::string Kind() const override { return "ebpf-clsact"; }

    std::optional<Unavailable> Make(std::uint32_t ifIndex, bool egress) override
    {
        const int index = static_cast<int>(ifIndex);
        Interface interface = Known(index);
        try {
            MakeQdisc(index, egress, interface);
            interface.filters[egress] = true;
            Know(index, interface);  // so that an end amid the call finds it
            MakeFilter(index, egress);
        } catch (const Unavailable& reason) {
            interface.filters[egress] = false;
            Settle(index, interface);
            return reason;
        }
        return std::nullopt;
    }

    std::string Unmake(std::uint32_t ifIndex, bool egress) override
    {
        const int index = static_cast<int>(ifIndex);
        Interface interface = Known(index);
        const int error = Remove(index, egress, interface);
        if (error != 0) return std::strerror(-error);
        Settle(index, interface);
        return "";
    }

    void Tend() override
    {
        const std::scoped_lock lock(m_mutex);
        m_claim.Tend();
    }

    // The child keeps the claim, so that no other manager takes these filters for left ones meanwhile. It
    // leaves our qdiscs: another manager may have come to use one when it looks.
    LeftHooks TakeLeft() override
    {
        const auto all = std::make_shared<Interfaces>();
        LeftHooks left;
        const std::scoped_lock lock(m_mutex);
        *all = m_interfaces;
        for (const auto& [ifIndex, interface] : *all)
            left.count += static_cast<std::size_t>(std::ranges::count(interface.filters, true));
        if (m_claim.File() >= 0) left.files.push_back(m_claim.File());
        left.letGo = [] {};
        // Takes no lock: in the child, the thread that may hold it is missing.
        left.unmake = [this, all, end = std::chrono::steady_clock::now() + kQdiscTime] {
            for (auto& [ifIndex, interface] : *all) {
                for (const bool egress : {false, true}) (void)Remove(ifIndex, egress, interface);
                if (std::chrono::steady_clock::now() < end) RemoveQdisc(ifIndex, interface);
            }
        };
        return left;
    }

private:
    // At the end, qdiscs are removed so long: as long as the process surely exists.
    static constexpr std::chrono::milliseconds kQdiscTime{1000};

    struct Interface {
        bool madeQdisc = false;
        std::array<bool, 2> filters{};  // [1] egress
    };
    struct Program {
        base::UniqueFd file;  // a call of the thread may outlast the source
        std::uint32_t number;
    };
    using Interfaces = std::unordered_map<int, Interface>;

    static Program ProgramOf(int program)
    {
        Program own{base::UniqueFd(::fcntl(program, F_DUPFD_CLOEXEC, 0)), NumberOf(program)};
        if (!own.file) throw Refusal("attaching to interfaces needs a file", errno);
        return own;
    }

    Interface Known(int ifIndex)
    {
        const std::scoped_lock lock(m_mutex);
        const auto at = m_interfaces.find(ifIndex);
        return at == m_interfaces.end() ? Interface{} : at->second;
    }

    void Know(int ifIndex, const Interface& interface)
    {
        const std::scoped_lock lock(m_mutex);
        if (interface.filters == std::array<bool, 2>{})
            m_interfaces.erase(ifIndex);
        else
            m_interfaces[ifIndex] = interface;
    }

    static void MakeQdisc(int ifIndex, bool egress, Interface& interface)
    {
        auto hook = QdiscOf(ifIndex);
        const int made = bpf_tc_hook_create(&hook);
        if (made != 0 && made != -EEXIST) throw Refusal("the interface takes no clsact qdisc", made);
        if (made == 0) interface.madeQdisc = true;
        // An "ingress" qdisc also takes a filter for what leaves, but shows it what enters.
        if (made != 0 && egress && FilterQdisc(ifIndex) != "clsact")
            throw Unavailable(Unavailable::Cause::kOther,
                              "the interface has an \"ingress\" qdisc, which sees nothing that leaves");
    }

    void MakeFilter(int ifIndex, bool egress)
    {
        const auto hook = HookOf(ifIndex, egress);
        auto place = Place();
        place.prog_fd = m_programs[egress].file.Get();
        int error = bpf_tc_attach(&hook, &place);
        if (error == -EEXIST && MayReplace(ifIndex, egress)) {
            place = Place();
            place.prog_fd = m_programs[egress].file.Get();
            place.flags = BPF_TC_F_REPLACE;
            error = bpf_tc_attach(&hook, &place);
        }
        if (error != 0) throw Refusal("the program can't be attached to the interface (clsact)", error);
    }

    // Whether what is at our place is ours, or left by an earlier process.
    bool MayReplace(int ifIndex, bool egress)
    {
        std::optional<std::uint32_t> program;
        if (FindOurs(ifIndex, egress, program) != 0 || !program) return false;
        if (*program == m_programs[egress].number) return true;
        const std::scoped_lock lock(m_mutex);
        m_claim.Tend();
        if (!m_claim.Other()) return true;
        throw Unavailable(Unavailable::Cause::kOther,
                          fmt::format("process {}, another sFlow manager, may be sampling there (clsact)",
                                      *m_claim.Other()));
    }

    // Removes exactly what we have attached, not what another manager has put in its place. Returns 0 or a
    // negative errno.
    int Remove(int ifIndex, bool egress, Interface& interface) const
    {
        if (!interface.filters[egress]) return 0;
        std::optional<std::uint32_t> program;
        int error = FindOurs(ifIndex, egress, program);
        const bool there = program == m_programs[egress].number;
        if (error == 0 && there) error = DetachFilter(ifIndex, egress);
        if (error != 0) return error;
        interface.filters[egress] = false;
        // Another process has changed the hook: the qdisc may be its own now.
        if (!there) interface.madeQdisc = false;
        return 0;
    }

    void Settle(int ifIndex, const Interface& interface)
    {
        Know(ifIndex, interface);
        RemoveQdisc(ifIndex, interface);
    }

    // After our last filter there, if we made it and it has no filter of others. If it stays, it is not ours
    // any more.
    static void RemoveQdisc(int ifIndex, const Interface& interface)
    {
        if (interface.filters != std::array<bool, 2>{} || !interface.madeQdisc) return;
        if (!ClsactIsEmpty(ifIndex)) return;
        auto hook = QdiscOf(ifIndex);
        (void)bpf_tc_hook_destroy(&hook);
    }

    std::mutex m_mutex;  // of claim and interfaces; not held while the kernel is asked
    ClsactClaim m_claim;
    const std::array<Program, 2> m_programs;  // [1] egress
    Interfaces m_interfaces;                  // with a filter of ours
};

}  // namespace

std::shared_ptr<HookMaker> MakeClsactMaker(int ingress, int egress, ClsactClaim claim)
{
    return std::make_shared<ClsactMaker>(ingress, egress, std::move(claim));
}

void SweepClsact(const ClsactClaim& claim)
{
    if (claim.Other()) {
        slog::Notice("process {} is an sFlow manager with filters at interfaces, which stay", *claim.Other());
        return;
    }
    for (const int ifIndex : InterfacesWithFilters()) {
        for (const bool egress : {false, true}) {
            std::optional<std::uint32_t> program;
            int error = FindOurs(ifIndex, egress, program);
            if (error == 0 && program) error = DetachFilter(ifIndex, egress);
            if (error != 0)
                slog::Error("what an earlier manager left may stay at {}: {}", PlaceName(ifIndex, egress),
                            std::strerror(-error));
        }
    }
}

}  // namespace capture
