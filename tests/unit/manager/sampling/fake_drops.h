// SPDX-License-Identifier: Apache-2.0
// A source of drops that notes what it is told; packets are dropped when the test says so.

#ifndef TESTS_UNIT_MANAGER_SAMPLING_FAKE_DROPS_H
#define TESTS_UNIT_MANAGER_SAMPLING_FAKE_DROPS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "capture/drop_source.h"

namespace manager {

/// What outlives the source that it makes.
struct FakeDrops {
    std::vector<std::string> calls;
    std::string refusal;         // why no source can be made
    std::string refusalOfPorts;  // why no interface can be added
    bool running = false;
    std::map<std::uint32_t, capture::InterfaceDrops> counts;
    std::vector<capture::Drop> waiting;
    std::uint64_t time = 0;  // of the newest drop, as the source tells it
    std::vector<std::byte> frame{std::vector<std::byte>(100, std::byte{7})};

    std::unique_ptr<capture::DropSource> Make(capture::DropSink& sink);

    /// A packet is dropped for reason 3 ("NO_SOCKET"); `told`: it waits to be handed over.
    void Drop(std::uint32_t ifIndex, bool told = true)
    {
        capture::InterfaceDrops& at = counts[ifIndex];
        at.ifIndex = ifIndex;
        ++at.counts.drops;
        if (at.reasons.empty()) at.reasons.push_back({.reason = 3, .drops = 0, .last = 0});
        ++at.reasons[0].drops;
        at.reasons[0].last = time;
        if (!told) {
            ++at.counts.untold;
            return;
        }
        capture::Drop drop;
        drop.ifIndex = drop.input = ifIndex;
        drop.reason = 3;
        drop.reasonName = "NO_SOCKET";
        drop.function = "udp_rcv";
        drop.length = 100;
        drop.etherType = 0x0800;
        drop.start = capture::HeaderStart::kEthernet;
        drop.header = frame;
        waiting.push_back(drop);
    }
};

class FakeDropSource final : public capture::DropSource {
public:
    FakeDropSource(FakeDrops& drops, capture::DropSink& sink) : m_drops(drops), m_sink(sink)
    {
        m_drops.running = true;
        m_drops.counts.clear();
    }
    ~FakeDropSource() override
    {
        m_drops.running = false;
        m_drops.calls.emplace_back("end");
    }
    FakeDropSource(const FakeDropSource&) = delete;
    FakeDropSource& operator=(const FakeDropSource&) = delete;

    void Change(const capture::DropSettings& settings) override
    {
        m_drops.calls.push_back("change " + std::to_string(settings.limit) + " " +
                                std::to_string(settings.headerSize) +
                                (settings.everyInterface ? " all" : ""));
    }
    void Add(std::uint32_t ifIndex) override
    {
        if (!m_drops.refusalOfPorts.empty())
            throw capture::Unavailable(capture::Unavailable::Cause::kOther, m_drops.refusalOfPorts);
        m_drops.calls.push_back("add " + std::to_string(ifIndex));
    }
    void Remove(std::uint32_t ifIndex) override
    {
        Drain();
        m_drops.calls.push_back("remove " + std::to_string(ifIndex));
        m_drops.counts.erase(ifIndex);
    }
    [[nodiscard]] std::vector<capture::InterfaceDrops> ReadAll() override
    {
        std::vector<capture::InterfaceDrops> all;
        for (const auto& [ifIndex, one] : m_drops.counts) all.push_back(one);
        return all;
    }
    [[nodiscard]] std::optional<capture::InterfaceDrops> Read(std::uint32_t ifIndex) override
    {
        const auto at = m_drops.counts.find(ifIndex);
        return at == m_drops.counts.end() ? std::nullopt : std::optional(at->second);
    }
    [[nodiscard]] capture::UncountedDrops ReadUncounted() override
    {
        return {.beyond = 2, .beyondUntold = 2, .missed = 3};
    }
    [[nodiscard]] std::string_view NameOf(std::uint32_t) override { return "NO_SOCKET"; }
    void Drain() override
    {
        auto drops = std::exchange(m_drops.waiting, {});
        for (capture::Drop& drop : drops) drop.untold = m_drops.counts[drop.ifIndex].counts.untold;
        if (!drops.empty()) m_sink.OnDrops(drops);
        m_sink.OnDrained();
    }

private:
    FakeDrops& m_drops;
    capture::DropSink& m_sink;
};

inline std::unique_ptr<capture::DropSource> FakeDrops::Make(capture::DropSink& sink)
{
    if (!refusal.empty()) throw capture::Unavailable(capture::Unavailable::Cause::kKernel, refusal);
    calls.emplace_back("begin");
    return std::make_unique<FakeDropSource>(*this, sink);
}

}  // namespace manager

#endif
