// SPDX-License-Identifier: Apache-2.0
// Filters at the clsact qdisc, for kernels before tcx. They stay when the process is killed, so they have a
// place and a name by which the next start finds them, and the program a heartbeat without which it passes
// everything on. All of this takes CAP_NET_ADMIN and nothing more: a running manager has given up the
// capability to open a program by its number.

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <fmt/format.h>
#include <net/if.h>

#include "capture/ebpf/grace.h"
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

std::string HookName(int ifIndex, bool egress)
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

class ClsactHooks final : public EbpfHooks {
public:
    ClsactHooks(GracePeriods& grace, int ingress, int egress, ClsactClaim claim)
        : m_grace(grace),
          m_claim(std::move(claim)),
          m_programs{
              {{.file = ingress, .number = NumberOf(ingress)}, {.file = egress, .number = NumberOf(egress)}}}
    {
    }
    ~ClsactHooks() override
    {
        std::vector<std::uint32_t> all;
        for (const auto& [ifIndex, interface] : m_interfaces)
            all.push_back(static_cast<std::uint32_t>(ifIndex));
        for (const std::uint32_t ifIndex : all)
            for (const bool egress : {false, true}) (void)Detach(ifIndex, egress);
        TryAgain();  // the last time
    }

    [[nodiscard]] std::string Kind() const override { return "ebpf-clsact"; }

    void Attach(std::uint32_t ifIndex, bool egress) override
    {
        m_grace.Step();
        const int index = static_cast<int>(ifIndex);
        const auto at = m_interfaces.try_emplace(index).first;
        try {
            MakeQdisc(index, egress, at->second);
            MakeFilter(index, egress);
        } catch (...) {
            Settle(at);
            throw;
        }
        at->second.filters[egress] = Filter::kWanted;
    }

    bool Detach(std::uint32_t ifIndex, bool egress) final
    {
        if (!IsAttached(ifIndex, egress)) return true;
        m_grace.Step();
        const auto at = m_interfaces.find(static_cast<int>(ifIndex));
        at->second.filters[egress] = Filter::kUnwanted;
        if (const int error = Remove(at->first, at->second, egress); error != 0)
            slog::Error("our filter stays at {}, and is tried again: {}", HookName(at->first, egress),
                        std::strerror(-error));
        Settle(at);
        return true;
    }

    [[nodiscard]] bool IsAttached(std::uint32_t ifIndex, bool egress) const final
    {
        const auto at = m_interfaces.find(static_cast<int>(ifIndex));
        return at != m_interfaces.end() && at->second.filters[egress] == Filter::kWanted;
    }

    void Tend() override
    {
        m_claim.Tend();
        TryAgain();
    }

private:
    enum class Filter { kNone, kWanted, kUnwanted };  // kUnwanted: could not be detached
    struct Interface {
        bool madeQdisc = false;
        std::array<Filter, 2> filters{};  // [1] egress
    };
    struct Program {
        int file;
        std::uint32_t number;
    };
    using Interfaces = std::unordered_map<int, Interface>;

    void TryAgain()
    {
        if (!std::exchange(m_filtersStay, false)) return;
        for (auto next = m_interfaces.begin(); next != m_interfaces.end();) {
            const auto at = next++;
            for (const bool egress : {false, true}) {
                if (at->second.filters[egress] != Filter::kUnwanted) continue;
                if (Remove(at->first, at->second, egress) == 0)
                    slog::Notice("our filter is gone from {}", HookName(at->first, egress));
            }
            Settle(at);
        }
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
        place.prog_fd = m_programs[egress].file;
        int error = bpf_tc_attach(&hook, &place);
        if (error == -EEXIST && MayReplace(ifIndex, egress)) {
            place = Place();
            place.prog_fd = m_programs[egress].file;
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
        m_claim.Tend();
        if (!m_claim.Other()) return true;
        throw Unavailable(Unavailable::Cause::kOther,
                          fmt::format("process {}, another sFlow manager, may be sampling there (clsact)",
                                      *m_claim.Other()));
    }

    // Removes exactly what we have attached, not what another manager has put in its place. Returns 0 or a
    // negative errno.
    int Remove(int ifIndex, Interface& interface, bool egress)
    {
        std::optional<std::uint32_t> program;
        int error = FindOurs(ifIndex, egress, program);
        const bool there = program == m_programs[egress].number;
        if (error == 0 && there) error = DetachFilter(ifIndex, egress);
        if (error != 0) {
            m_filtersStay = true;
            return error;
        }
        interface.filters[egress] = Filter::kNone;
        // Another process has changed the hook: the qdisc may be its own now.
        if (!there) interface.madeQdisc = false;
        return 0;
    }

    // Removes the qdisc after our last filter there, if we made it and it has no filter of others. If it
    // stays, it is not ours any more.
    void Settle(Interfaces::iterator at)
    {
        const auto& [ifIndex, interface] = *at;
        if (interface.filters != std::array<Filter, 2>{}) return;
        if (interface.madeQdisc && ClsactIsEmpty(ifIndex)) {
            auto hook = QdiscOf(ifIndex);
            if (const int error = bpf_tc_hook_destroy(&hook); error != 0)
                slog::Error("our clsact qdisc stays at interface {}: {}", ifIndex, std::strerror(-error));
        }
        m_interfaces.erase(at);
    }

    GracePeriods& m_grace;
    ClsactClaim m_claim;
    std::array<Program, 2> m_programs;  // [1] egress
    Interfaces m_interfaces;            // with a filter of ours
    bool m_filtersStay = false;         // some could not be detached
};

}  // namespace

std::unique_ptr<EbpfHooks> MakeClsactHooks(GracePeriods& grace, int ingress, int egress, ClsactClaim claim)
{
    return std::make_unique<ClsactHooks>(grace, ingress, egress, std::move(claim));
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
                slog::Error("what an earlier manager left may stay at {}: {}", HookName(ifIndex, egress),
                            std::strerror(-error));
        }
    }
}

}  // namespace capture
