// SPDX-License-Identifier: Apache-2.0
// tcx links by the bpf system call itself: libbpf knows them only from 1.3 on.

#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <unordered_map>
#include <utility>

#include <fcntl.h>
#include <linux/bpf.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "capture/ebpf/hooks.h"
#include "capture/ebpf/ports.h"
#include "capture/ebpf/program.h"

namespace capture {
namespace {

constexpr std::uint32_t kTcxIngress = 46;  // BPF_TCX_INGRESS
constexpr std::uint32_t kTcxEgress = 47;   // BPF_TCX_EGRESS
// BPF_F_BEFORE: ahead of programs whose verdict ends the chain or drops the packet.
constexpr std::uint32_t kFirst = 1U << 3;

// Returns a link's file, or a negative errno.
int CreateLink(int program, std::uint32_t ifIndex, bool egress)
{
    bpf_attr attributes;
    std::memset(&attributes, 0, sizeof(attributes));
    attributes.link_create.prog_fd = static_cast<std::uint32_t>(program);
    attributes.link_create.target_ifindex = ifIndex;
    attributes.link_create.attach_type = egress ? kTcxEgress : kTcxIngress;
    attributes.link_create.flags = kFirst;
    const long file = ::syscall(SYS_bpf, BPF_LINK_CREATE, &attributes, sizeof(attributes));
    return file < 0 ? -errno : static_cast<int>(file);  // is closed on exec, as all files of bpf
}

// A file of the same program: a call of the thread may outlast the source.
base::UniqueFd Duplicate(int program)
{
    base::UniqueFd copy(::fcntl(program, F_DUPFD_CLOEXEC, 0));
    if (!copy) throw Refusal("attaching to interfaces needs a file", errno);
    return copy;
}

class TcxMaker final : public HookMaker {
public:
    TcxMaker(int ingress, int egress) : m_programs{Duplicate(ingress), Duplicate(egress)} {}

    [[nodiscard]] std::string Kind() const override { return "ebpf-tcx"; }

    std::optional<Unavailable> Make(std::uint32_t ifIndex, bool egress) override
    {
        const int made = CreateLink(m_programs[egress].Get(), ifIndex, egress);
        if (made < 0) return Refusal("the program can't be attached to the interface (tcx)", made);
        const std::scoped_lock lock(m_mutex);
        m_links[KeyOf(ifIndex, egress)] = base::UniqueFd(made);
        return std::nullopt;
    }

    std::string Unmake(std::uint32_t ifIndex, bool egress) override
    {
        base::UniqueFd link;
        {
            const std::scoped_lock lock(m_mutex);
            if (const auto at = m_links.find(KeyOf(ifIndex, egress)); at != m_links.end()) {
                link = std::move(at->second);
                m_links.erase(at);
            }
        }
        return "";  // closes the link: waits for the program's last run
    }

    LeftHooks TakeLeft() override
    {
        const auto links = std::make_shared<Links>();
        {
            const std::scoped_lock lock(m_mutex);
            links->swap(m_links);
        }
        LeftHooks left;
        left.count = links->size();
        for (const auto& [key, link] : *links) left.files.push_back(link.Get());
        left.letGo = left.unmake = [links] { links->clear(); };
        return left;
    }

private:
    using Links = std::unordered_map<std::uint32_t, base::UniqueFd>;  // by KeyOf

    const std::array<base::UniqueFd, 2> m_programs;  // [1] egress
    std::mutex m_mutex;                              // not held while the kernel makes or closes a link
    Links m_links;
};

}  // namespace

std::shared_ptr<HookMaker> MakeTcxMaker(int ingress, int egress)
{
    return std::make_shared<TcxMaker>(ingress, egress);
}

bool TcxSupported(int program)
{
    // No interface has this index. A kernel with tcx looks for it and answers ENODEV; another refuses the
    // hook.
    constexpr std::uint32_t kNowhere = 0x7fffffff;
    const base::UniqueFd link(CreateLink(program, kNowhere, false));
    return link || link.Get() == -ENODEV;
}

}  // namespace capture
