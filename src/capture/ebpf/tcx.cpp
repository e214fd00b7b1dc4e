// SPDX-License-Identifier: Apache-2.0
// tcx links by the bpf system call itself: libbpf knows them only from 1.3 on.

#include <cerrno>
#include <cstring>
#include <unordered_map>

#include <linux/bpf.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "capture/bpf/records.h"
#include "capture/ebpf/hooks.h"
#include "capture/ebpf/program.h"

namespace capture {
namespace {

constexpr std::uint32_t kTcxIngress = 46;  // BPF_TCX_INGRESS
constexpr std::uint32_t kTcxEgress = 47;   // BPF_TCX_EGRESS
// BPF_F_BEFORE: ahead of programs whose verdict ends the chain or drops the packet.
constexpr std::uint32_t kFirst = 1U << 3;

// Returns a link's file, or a negative errno.
int CreateLink(int program, std::uint32_t ifIndex, std::uint32_t type)
{
    bpf_attr attributes;
    std::memset(&attributes, 0, sizeof(attributes));
    attributes.link_create.prog_fd = static_cast<std::uint32_t>(program);
    attributes.link_create.target_ifindex = ifIndex;
    attributes.link_create.attach_type = type;
    attributes.link_create.flags = kFirst;
    const long file = ::syscall(SYS_bpf, BPF_LINK_CREATE, &attributes, sizeof(attributes));
    return file < 0 ? -errno : static_cast<int>(file);  // is closed on exec, as all files of bpf
}

class TcxHooks final : public EbpfHooks {
public:
    TcxHooks(int ingress, int egress) : m_ingress(ingress), m_egress(egress) {}
    ~TcxHooks() override
    {
        for (const auto& [key, file] : m_links) ::close(file);
    }

    [[nodiscard]] std::string Kind() const override { return "ebpf-tcx"; }

    void Attach(std::uint32_t ifIndex, bool egress) override
    {
        Detach(ifIndex, egress);
        const int file =
            CreateLink(egress ? m_egress : m_ingress, ifIndex, egress ? kTcxEgress : kTcxIngress);
        if (file < 0) throw Refusal("the program can't be attached to the interface (tcx)", file);
        m_links[Key(ifIndex, egress)] = file;
    }

    void Detach(std::uint32_t ifIndex, bool egress) override
    {
        const auto link = m_links.find(Key(ifIndex, egress));
        if (link == m_links.end()) return;
        ::close(link->second);  // waits for the program's last run
        m_links.erase(link);
    }

private:
    static std::uint32_t Key(std::uint32_t ifIndex, bool egress)
    {
        return ifIndex | (egress ? static_cast<std::uint32_t>(kEgressBit) : 0);
    }

    int m_ingress;
    int m_egress;
    std::unordered_map<std::uint32_t, int> m_links;
};

}  // namespace

std::unique_ptr<EbpfHooks> MakeTcxHooks(int ingress, int egress)
{
    return std::make_unique<TcxHooks>(ingress, egress);
}

bool TcxSupported(int program)
{
    // No interface has this index. A kernel with tcx looks for it and answers ENODEV; another refuses the
    // hook.
    constexpr std::uint32_t kNowhere = 0x7fffffff;
    const int file = CreateLink(program, kNowhere, kTcxIngress);
    if (file >= 0) ::close(file);
    return file >= 0 || file == -ENODEV;
}

}  // namespace capture
