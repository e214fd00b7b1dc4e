// SPDX-License-Identifier: Apache-2.0
#include "capture/ebpf/hooks.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <system_error>

#include <fmt/format.h>
#include <net/if.h>
#include <boost/asio/io_context.hpp>

#include "capture/ebpf/grace.h"
#include "capture/ebpf/last_process.h"
#include "capture/ebpf/ports.h"
#include "capture/ebpf/program.h"
#include "log/log.h"

namespace capture {
namespace {

// So long the end waits for hooks to be unmade.
constexpr std::chrono::milliseconds kEnd{1400};

std::string HookName(std::uint32_t ifIndex, bool egress)
{
    std::array<char, IF_NAMESIZE> name{};
    const bool named = ::if_indextoname(ifIndex, name.data()) != nullptr;
    return fmt::format("interface {}, {}", named ? name.data() : std::to_string(ifIndex),
                       egress ? "egress" : "ingress");
}

}  // namespace

// The thread has it until all of its steps are done, or there was no time for more.
struct EbpfHooks::Work {
    explicit Work(std::shared_ptr<HookMaker> with) : maker(std::move(with)) {}

    // As many as the time allows, at least one, so that the loop hears of them soon.
    void Do()
    {
        constexpr std::chrono::milliseconds kMost{20};
        const auto end = std::chrono::steady_clock::now() + kMost;
        for (Step& step : steps) {
            if (stop) return;
            if (step.make)
                step.refusal = maker->Make(step.ifIndex, step.egress);
            else
                step.stays = maker->Unmake(step.ifIndex, step.egress);
            step.done = true;
            if (std::chrono::steady_clock::now() > end) return;
        }
    }

    const std::shared_ptr<HookMaker> maker;
    std::vector<Step> steps;
    std::atomic<bool> stop{false};
};

EbpfHooks::EbpfHooks(boost::asio::io_context& loop, GracePeriods& grace, std::shared_ptr<HookMaker> maker,
                     HookEvents events)
    : m_grace(grace), m_maker(std::move(maker)), m_events(std::move(events))
{
    try {
        m_worker = base::MakeWorker(loop);
    } catch (const std::system_error& error) {
        throw Refusal("attaching to interfaces needs an event", error.code().value());
    }
}

EbpfHooks::~EbpfHooks()
{
    if (m_work != nullptr) m_work->stop = true;
    m_task.reset();
    m_worker.reset();  // the step under way may outlast this
    const LeftHooks left = m_maker->TakeLeft();
    if (left.count == 0) return;
    for (std::size_t i = 0; i < left.count; ++i) m_grace.Step();
    const auto process = UnmakeInLastProcess(left, kEnd);
    if (process)
        slog::Notice(
            "other programs change links: process {} goes on detaching from {} hooks, and ends by itself",
            *process, left.count);
}

void EbpfHooks::Attach(std::uint32_t ifIndex, bool egress)
{
    std::array<char, IF_NAMESIZE> name{};
    if (::if_indextoname(ifIndex, name.data()) == nullptr && errno == ENXIO)
        throw Refusal("the program can't be attached to the interface", ENODEV);
    m_hooks[KeyOf(ifIndex, egress)].wanted = true;
    Ask(ifIndex, egress);
}

bool EbpfHooks::Detach(std::uint32_t ifIndex, bool egress)
{
    const auto at = m_hooks.find(KeyOf(ifIndex, egress));
    if (at == m_hooks.end()) return true;
    at->second.wanted = false;
    Ask(ifIndex, egress);
    return false;
}

bool EbpfHooks::IsAttached(std::uint32_t ifIndex, bool egress) const
{
    const auto at = m_hooks.find(KeyOf(ifIndex, egress));
    return at != m_hooks.end() && at->second.wanted && at->second.made;
}

void EbpfHooks::Tend()
{
    m_maker->Tend();
    for (auto& [key, hook] : m_hooks) {
        if (!hook.stays || hook.queued || hook.wanted) continue;
        hook.queued = true;
        m_queue.emplace_back(key & ~std::uint32_t{kEgressBit}, (key & std::uint32_t{kEgressBit}) != 0);
    }
    Next();
}

void EbpfHooks::Ask(std::uint32_t ifIndex, bool egress)
{
    if (std::exchange(m_hooks[KeyOf(ifIndex, egress)].queued, true)) return;
    m_queue.emplace_back(ifIndex, egress);
    Next();
}

void EbpfHooks::Next()
{
    constexpr std::size_t kMost = 256;
    if (m_task != nullptr) return;
    auto work = std::make_shared<Work>(m_maker);
    for (; !m_queue.empty() && work->steps.size() < kMost; m_queue.pop_front()) {
        const auto [ifIndex, egress] = m_queue.front();
        Hook& hook = m_hooks[KeyOf(ifIndex, egress)];
        hook.queued = hook.wanted != hook.made;
        if (!hook.queued) {
            Settle(ifIndex, egress);
            continue;
        }
        m_grace.Step();
        work->steps.push_back({ifIndex, egress, hook.wanted});
        hook.made = false;
    }
    if (work->steps.empty()) return;
    m_work = work;
    m_task = m_worker->Do([work] { work->Do(); }, [this] { Take(); });
}

void EbpfHooks::Take()
{
    m_task.reset();
    const std::shared_ptr<Work> work = std::exchange(m_work, nullptr);
    for (auto step = work->steps.rbegin(); step != work->steps.rend(); ++step) {
        if (step->done) continue;
        m_hooks[KeyOf(step->ifIndex, step->egress)].made = !step->make;
        m_queue.emplace_front(step->ifIndex, step->egress);
    }
    for (const Step& step : work->steps)
        if (step.done) TakeStep(step);
    Next();
}

void EbpfHooks::TakeStep(const Step& step)
{
    m_grace.Step();
    Hook& hook = m_hooks[KeyOf(step.ifIndex, step.egress)];
    hook.queued = false;
    hook.made = step.make ? !step.refusal : !step.stays.empty();
    const bool stayed = std::exchange(hook.stays, !step.stays.empty());
    if (hook.stays && !stayed)
        slog::Error("our filter stays at {}, and is tried again: {}", HookName(step.ifIndex, step.egress),
                    step.stays);
    if (stayed && !hook.made) slog::Notice("our filter is gone from {}", HookName(step.ifIndex, step.egress));
    if (step.refusal && std::exchange(hook.wanted, false))
        m_events.refused(step.ifIndex, step.egress, *step.refusal);
    Settle(step.ifIndex, step.egress);
}

// Asks for what is wanted by now, or forgets the hook.
void EbpfHooks::Settle(std::uint32_t ifIndex, bool egress)
{
    const auto at = m_hooks.find(KeyOf(ifIndex, egress));
    if (at == m_hooks.end() || at->second.queued) return;
    Hook& hook = at->second;
    if (hook.wanted != hook.made) {
        if (!hook.wanted && hook.stays) return;  // until Tend
        hook.queued = true;
        m_queue.emplace_back(ifIndex, egress);
    } else if (!hook.wanted) {
        m_hooks.erase(at);
        m_events.detached(ifIndex, egress);
    }
}

}  // namespace capture
