// SPDX-License-Identifier: Apache-2.0
// tcx links by the bpf system call itself: libbpf knows them only from 1.3 on.

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include <linux/bpf.h>
#include <net/if.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "base/worker.h"
#include "capture/ebpf/grace.h"
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

// What the thread does: makes a link or closes one.
struct Step {
    std::uint32_t ifIndex;
    bool egress;
    base::UniqueFd link;  // to be closed; none: one is to be made, and here it is then
    int error = 0;        // why it could not be made
    bool done = false;    // else there was no time for it
};
using Steps = std::vector<Step>;

// As many as the time allows, at least one, so that the loop hears of them soon.
void Do(Steps& steps, const std::array<int, 2>& programs)
{
    constexpr std::chrono::milliseconds kMost{20};
    const auto end = std::chrono::steady_clock::now() + kMost;
    for (Step& step : steps) {
        if (step.link) {
            step.link.Close();  // waits for the program's last run
        } else {
            const int made = CreateLink(programs[step.egress], step.ifIndex, step.egress);
            step.link = base::UniqueFd(std::max(made, -1));
            step.error = std::min(made, 0);
        }
        step.done = true;
        if (std::chrono::steady_clock::now() > end) return;
    }
}

class TcxHooks final : public EbpfHooks {
public:
    TcxHooks(boost::asio::io_context& loop, GracePeriods& grace, int ingress, int egress, HookEvents events)
        : m_grace(grace),
          m_programs{ingress, egress},
          m_events(std::move(events)),
          m_worker(base::MakeWorker(loop, base::kWorkerWaits))
    {
    }
    ~TcxHooks() override
    {
        m_task.reset();
        m_worker.reset();  // waits for the steps under way
        if (m_steps != nullptr)
            for (Step& step : *m_steps) m_hooks[KeyOf(step.ifIndex, step.egress)].link = std::move(step.link);
        for (auto& [key, hook] : m_hooks) {
            if (!hook.link) continue;
            m_grace.Step();
            hook.link.Close();
        }
    }

    [[nodiscard]] std::string Kind() const override { return "ebpf-tcx"; }

    void Attach(std::uint32_t ifIndex, bool egress) override
    {
        std::array<char, IF_NAMESIZE> name{};
        if (::if_indextoname(ifIndex, name.data()) == nullptr && errno == ENXIO) throw Refused(ENODEV);
        m_hooks[KeyOf(ifIndex, egress)].wanted = true;
        Ask(ifIndex, egress);
    }

    bool Detach(std::uint32_t ifIndex, bool egress) override
    {
        const auto at = m_hooks.find(KeyOf(ifIndex, egress));
        if (at == m_hooks.end()) return true;
        at->second.wanted = false;
        Ask(ifIndex, egress);
        return false;
    }

    [[nodiscard]] bool IsAttached(std::uint32_t ifIndex, bool egress) const override
    {
        const auto at = m_hooks.find(KeyOf(ifIndex, egress));
        return at != m_hooks.end() && at->second.wanted && at->second.link;
    }

private:
    struct Hook {
        base::UniqueFd link;  // none also while the thread has it
        bool wanted = false;  // else it is to be detached, and forgotten then
        bool queued = false;  // in m_queue or m_steps
    };

    static Unavailable Refused(int error)
    {
        return Refusal("the program can't be attached to the interface (tcx)", error);
    }

    void Ask(std::uint32_t ifIndex, bool egress)
    {
        if (std::exchange(m_hooks[KeyOf(ifIndex, egress)].queued, true)) return;
        m_queue.emplace_back(ifIndex, egress);
        Next();
    }

    void Next()
    {
        constexpr std::size_t kMost = 256;
        if (m_task != nullptr) return;
        const auto steps = std::make_shared<Steps>();
        for (; !m_queue.empty() && steps->size() < kMost; m_queue.pop_front()) {
            const auto [ifIndex, egress] = m_queue.front();
            Hook& hook = m_hooks[KeyOf(ifIndex, egress)];
            hook.queued = hook.wanted != static_cast<bool>(hook.link);
            if (!hook.queued) {
                Settle(ifIndex, egress);
                continue;
            }
            m_grace.Step();
            steps->push_back({ifIndex, egress, std::move(hook.link)});
        }
        if (steps->empty()) return;
        m_steps = steps;
        m_task = m_worker->Do([steps, programs = m_programs] { Do(*steps, programs); }, [this] { Take(); });
    }

    void Take()
    {
        m_task.reset();
        Steps steps = std::move(*std::exchange(m_steps, nullptr));
        for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
            if (step->done) continue;
            m_hooks[KeyOf(step->ifIndex, step->egress)].link = std::move(step->link);
            m_queue.emplace_front(step->ifIndex, step->egress);
        }
        for (Step& step : steps) {
            if (!step.done) continue;
            m_grace.Step();
            Hook& hook = m_hooks[KeyOf(step.ifIndex, step.egress)];
            hook.queued = false;
            hook.link = std::move(step.link);
            if (step.error != 0 && std::exchange(hook.wanted, false))
                m_events.refused(step.ifIndex, step.egress, Refused(step.error));
            Settle(step.ifIndex, step.egress);
        }
        Next();
    }

    // Asks for what is wanted by now, or forgets the hook.
    void Settle(std::uint32_t ifIndex, bool egress)
    {
        const auto at = m_hooks.find(KeyOf(ifIndex, egress));
        if (at == m_hooks.end() || at->second.queued) return;
        if (at->second.wanted != static_cast<bool>(at->second.link)) {
            at->second.queued = true;
            m_queue.emplace_back(ifIndex, egress);
        } else if (!at->second.wanted) {
            m_hooks.erase(at);
            m_events.detached(ifIndex, egress);
        }
    }

    GracePeriods& m_grace;
    const std::array<int, 2> m_programs;  // [1] egress
    const HookEvents m_events;
    std::unordered_map<std::uint32_t, Hook> m_hooks;
    std::deque<std::pair<std::uint32_t, bool>> m_queue;
    std::shared_ptr<Steps> m_steps;  // that the thread has
    std::unique_ptr<base::Worker> m_worker;
    std::shared_ptr<void> m_task;
};

}  // namespace

std::unique_ptr<EbpfHooks> MakeTcxHooks(boost::asio::io_context& loop, GracePeriods& grace, int ingress,
                                        int egress, HookEvents events)
{
    try {
        return std::make_unique<TcxHooks>(loop, grace, ingress, egress, std::move(events));
    } catch (const std::system_error& error) {
        throw Refusal("attaching to interfaces needs an event", error.code().value());
    }
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
