// Filters at the clsact qdisc, for kernels before tcx. They stay when the process is killed, so they have
// a place and a name by which the next start finds them, and the program a heartbeat without which it rests.

#include <cerrno>
#include <cstring>
#include <string_view>
#include <unordered_set>

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <unistd.h>

#include "capture/ebpf_hooks.h"
#include "capture/ebpf_program.h"
#include "capture/ebpf_tc_dump.h"
#include "log/log.h"

namespace capture {
namespace {

// Our place at a hook: ahead of other filters, whose verdict may end the row.
constexpr std::uint32_t kPriority = 1;
constexpr std::uint32_t kHandle = 0x5f10;

bpf_tc_hook HookOf(int ifIndex, bool egress)
{
    bpf_tc_hook hook{};
    hook.sz = sizeof(hook);
    hook.ifindex = ifIndex;
    hook.attach_point = egress ? BPF_TC_EGRESS : BPF_TC_INGRESS;
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

bool IsOurs(std::uint32_t programId)
{
    const int file = bpf_prog_get_fd_by_id(programId);
    if (file < 0) return false;
    bpf_prog_info info{};
    std::uint32_t length = sizeof(info);
    const bool told = bpf_obj_get_info_by_fd(file, &info, &length) == 0;
    ::close(file);
    return told && std::string_view(info.name).starts_with("sflow_");
}

void RemoveFilter(int ifIndex, bool egress)
{
    const auto hook = HookOf(ifIndex, egress);
    auto place = Place();
    if (bpf_tc_query(&hook, &place) != 0 || !IsOurs(place.prog_id)) return;
    place = Place();
    if (const int error = bpf_tc_detach(&hook, &place); error != 0 && error != -ENOENT && error != -ENODEV)
        slog::Error("our filter stays at interface {}: {}", ifIndex, std::strerror(-error));
}

class ClsactHooks final : public EbpfHooks {
public:
    ClsactHooks(int ingress, int egress) : m_ingress(ingress), m_egress(egress) {}
    [[nodiscard]] std::string Kind() const override { return "ebpf-clsact"; }

    void Attach(std::uint32_t ifIndex, bool egress) override
    {
        const int index = static_cast<int>(ifIndex);
        auto hook = HookOf(index, false);
        hook.attach_point = static_cast<bpf_tc_attach_point>(BPF_TC_INGRESS | BPF_TC_EGRESS);
        const int made = bpf_tc_hook_create(&hook);
        if (made != 0 && made != -EEXIST) throw Refusal("the interface takes no clsact qdisc", made);
        if (made == 0) m_qdiscs.insert(index);

        hook = HookOf(index, egress);
        auto place = Place();
        place.prog_fd = egress ? m_egress : m_ingress;
        place.flags = BPF_TC_F_REPLACE;
        if (const int error = bpf_tc_attach(&hook, &place); error != 0) {
            RemoveQdisc(index);
            throw Refusal("the program can't be attached to the interface (clsact)", error);
        }
    }

    void Detach(std::uint32_t ifIndex, bool egress) override
    {
        const int index = static_cast<int>(ifIndex);
        RemoveFilter(index, egress);
        RemoveQdisc(index);
    }

private:
    // Only what we made, and only while nobody else has come to use it.
    void RemoveQdisc(int ifIndex)
    {
        if (!m_qdiscs.contains(ifIndex) || !ClsactIsEmpty(ifIndex)) return;
        m_qdiscs.erase(ifIndex);
        auto hook = HookOf(ifIndex, false);
        hook.attach_point = static_cast<bpf_tc_attach_point>(BPF_TC_INGRESS | BPF_TC_EGRESS);
        (void)bpf_tc_hook_destroy(&hook);
    }

    int m_ingress;
    int m_egress;
    std::unordered_set<int> m_qdiscs;  // made by us
};

}  // namespace

std::unique_ptr<EbpfHooks> MakeClsactHooks(int ingress, int egress)
{
    return std::make_unique<ClsactHooks>(ingress, egress);
}

void SweepClsact()
{
    for (const int ifIndex : InterfacesWithClsact()) {
        RemoveFilter(ifIndex, false);
        RemoveFilter(ifIndex, true);
    }
}

}  // namespace capture
