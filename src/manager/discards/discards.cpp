// SPDX-License-Identifier: Apache-2.0
#include "manager/discards/discards.h"

#include <algorithm>
#include <chrono>
#include <tuple>
#include <utility>

#include <fmt/format.h>

#include "base/timers.h"
#include "log/log.h"
#include "manager/discards/discard_sample.h"
#include "manager/export/exporter.h"
#include "manager/settings/own_settings.h"
#include "net/links/links.h"

namespace manager {
namespace {

/// Of packets at interfaces that the configuration does not have.
constexpr std::uint16_t kUsualHeader = 128;
/// Interfaces with a reason of which the newest notification is remembered. The source has as many.
constexpr std::size_t kMostTold = 16384;

}  // namespace

Discards::Discards(const Parts& parts, MakeSource make, WallClock clock)
    : m_timers(parts.timers),
      m_links(parts.links),
      m_own(parts.own),
      m_exporter(parts.exporter),
      m_make(std::move(make)),
      m_clock(std::move(clock))
{
}

// ---- what there is ----

void Discards::SetInterface(std::uint32_t ifIndex, const std::string& name, std::uint16_t headerSize)
{
    Port& port = m_ports[ifIndex];
    if (port.name == name && port.headerSize == headerSize) return;
    const bool isNew = port.name.empty();
    const std::uint16_t largest = LargestHeader();
    ++m_headerSizes[headerSize];
    if (!isNew && --m_headerSizes[port.headerSize] == 0) m_headerSizes.erase(port.headerSize);
    port.name = name;
    port.headerSize = headerSize;
    if (!m_source) return;
    if (isNew) AddToSource(ifIndex);
    if (largest != LargestHeader()) ApplySoon();
}

void Discards::UnsetInterface(std::uint32_t ifIndex)
{
    const auto at = m_ports.find(ifIndex);
    if (at == m_ports.end() || at->second.name.empty()) return;
    TakeFromSource(ifIndex);
    if (--m_headerSizes[at->second.headerSize] == 0) m_headerSizes.erase(at->second.headerSize);
    at->second.name.clear();
}

void Discards::Forget(std::uint32_t ifIndex)
{
    UnsetInterface(ifIndex);
    TakeFromSource(ifIndex);  // it may be looked at without being configured
    m_ports.erase(ifIndex);
    m_told.erase(m_told.lower_bound({ifIndex, 0}), m_told.upper_bound({ifIndex, UINT32_MAX}));
}

void Discards::SetCollector(const std::string& name, Stream* stream)
{
    const auto at = m_wanting.find(name);
    if ((at == m_wanting.end() ? nullptr : at->second) == stream) return;
    if (stream == nullptr && m_source) m_source->Drain();
    if (stream == nullptr)
        m_wanting.erase(at);
    else
        m_wanting.insert_or_assign(name, stream);
    m_streams.clear();
    for (const auto& [collector, its] : m_wanting) m_streams.push_back(its);
    ApplySoon();
}

void Discards::Reconcile() { ApplySoon(); }

void Discards::Restart()
{
    if (m_source) m_source->Drain();
    for (auto& [ifIndex, port] : m_ports) port.sequence = 0;
}

void Discards::End()
{
    m_soon.reset();
    Stop();
}

// ---- the source ----

/// Once for all that one commit changes, and not while the commit waits: to load the program takes a while.
void Discards::ApplySoon()
{
    if (m_soon == nullptr) m_soon = m_timers.After(std::chrono::milliseconds(0), [this] { Apply(); });
}

void Discards::Apply()
{
    m_soon.reset();
    if (m_streams.empty()) return Stop();
    if (!m_source) Start();
    if (!m_source) return;
    m_source->Change({.limit = m_own.DiscardLimit(),
                      .headerSize = LargestHeader(),
                      .everyInterface = m_own.DiscardsEverywhere()});
    if (std::exchange(m_everywhere, m_own.DiscardsEverywhere()) && !m_everywhere) TakeUnconfigured();
}

void Discards::TakeUnconfigured()
{
    for (const capture::InterfaceDrops& drops : m_source->ReadAll()) {
        const auto at = m_ports.find(drops.ifIndex);
        if (at == m_ports.end() || at->second.name.empty()) TakeFromSource(drops.ifIndex);
    }
}

void Discards::Start()
{
    try {
        m_source = m_make(*this);
    } catch (const capture::Unavailable& reason) {
        if (m_error != reason.what()) slog::Error("dropped packets can't be seen: {}", reason.what());
        m_error = reason.what();
        return;
    }
    m_error.clear();
    m_everywhere = false;
    m_rates.emplace(m_timers.Now());
    LookLater();
    for (const auto& [ifIndex, port] : m_ports)
        if (!port.name.empty()) AddToSource(ifIndex);
}

void Discards::Stop()
{
    m_error.clear();
    if (!m_source) return;
    m_source->Drain();
    for (const capture::InterfaceDrops& drops : m_source->ReadAll())
        if (const auto at = m_ports.find(drops.ifIndex); at != m_ports.end())
            at->second.untold += drops.counts.untold;
    m_look.reset();
    m_rates.reset();
    m_source.reset();
    m_told.clear();
}

void Discards::AddToSource(std::uint32_t ifIndex)
{
    try {
        m_source->Add(ifIndex);
    } catch (const capture::Unavailable& reason) {
        slog::Error("interface {}: dropped packets are not seen: {}", m_ports[ifIndex].name, reason.what());
    }
}

void Discards::TakeFromSource(std::uint32_t ifIndex)
{
    if (!m_source) return;
    m_source->Drain();
    const auto drops = m_source->Read(ifIndex);
    m_source->Remove(ifIndex);
    if (drops) m_ports[ifIndex].untold += drops->counts.untold;
}

void Discards::LookLater()
{
    m_look = m_timers.After(DropRates::kEvery, [this] {
        m_rates->Look(m_source->ReadAll(), m_timers.Now());
        LookLater();
    });
}

std::uint16_t Discards::LargestHeader() const
{
    const std::uint16_t largest = m_headerSizes.empty() ? std::uint16_t{0} : m_headerSizes.rbegin()->first;
    return std::max(largest, kUsualHeader);
}

// ---- the packets ----

void Discards::OnDrops(std::span<const capture::Drop> drops) noexcept
{
    for (const capture::Drop& drop : drops) Tell(drop);
}

void Discards::OnDrained() noexcept { m_exporter.Flush(); }

void Discards::Tell(const capture::Drop& drop)
{
    Port& port = m_ports[drop.ifIndex];
    DescribeDiscard(drop, port.name.empty() ? kUsualHeader : port.headerSize, m_discard);
    m_discard.sequence = ++port.sequence;
    // Collectors see 32 bits of it.
    m_discard.drops = static_cast<std::uint32_t>(port.untold + drop.untold);
    PutInAll(m_streams, Stream::Sample::kDiscard, m_encoded,
             [this](std::span<std::byte> room) { return wire::Encode(m_discard, room); });
    const Reason reason{drop.ifIndex, drop.reason};
    const auto at = m_told.find(reason);
    if (at == m_told.end() && m_told.size() >= kMostTold) return;
    DropsByReason::Told& told = at == m_told.end() ? m_told[reason] : at->second;
    told.code = m_discard.reason;
    told.function = drop.function;
}

// ---- status ----

DiscardSource Discards::Source() const
{
    DiscardSource status;
    status.running = m_source != nullptr;
    if (m_source) {
        const capture::UncountedDrops uncounted = m_source->ReadUncounted();
        status.uncounted = uncounted.beyond + uncounted.missed;
    } else {
        status.reason = !m_error.empty() ? m_error : "no collector wants notifications of them";
    }
    return status;
}

std::string Discards::NameOf(std::uint32_t ifIndex) const
{
    if (ifIndex == 0) return "n/a";
    if (const auto at = m_ports.find(ifIndex); at != m_ports.end() && !at->second.name.empty())
        return at->second.name;
    if (const net::Link* link = m_links.Find(ifIndex); link != nullptr) return link->name;
    return fmt::format("index {}", ifIndex);
}

DropsByReason Discards::StatusOf(std::uint32_t ifIndex, const capture::ReasonCount& count) const
{
    const std::chrono::steady_clock::time_point now = m_timers.Now();
    const auto since = now.time_since_epoch() - std::chrono::nanoseconds(count.last);
    DropsByReason status;
    status.name = m_source->NameOf(count.reason);
    status.packets = count.drops;
    status.rate = m_rates->Of(ifIndex, count, now);
    status.last = m_clock() - std::chrono::duration_cast<WallTime::duration>(since);
    if (const auto at = m_told.find({ifIndex, count.reason}); at != m_told.end()) status.told = at->second;
    return status;
}

std::vector<DropsAtInterface> Discards::Drops() const
{
    std::vector<DropsAtInterface> all;
    if (!m_source) return all;
    for (const capture::InterfaceDrops& drops : m_source->ReadAll()) {
        DropsAtInterface& at = all.emplace_back();
        at.name = NameOf(drops.ifIndex);
        at.ifIndex = drops.ifIndex;
        at.packets = drops.counts.drops;
        at.untold = drops.counts.untold + drops.counts.own;
        for (const capture::ReasonCount& count : drops.reasons)
            at.reasons.push_back(StatusOf(drops.ifIndex, count));
        std::ranges::sort(at.reasons, {}, &DropsByReason::name);
    }
    // One may have a name by which the configuration knows another.
    std::ranges::sort(all, [](const auto& left, const auto& right) {
        return std::tie(left.name, left.ifIndex) < std::tie(right.name, right.ifIndex);
    });
    for (std::size_t i = all.size(); i-- > 1;)
        if (all[i].name == all[i - 1].name) all[i].name += fmt::format(" (index {})", all[i].ifIndex);
    std::ranges::sort(all, {}, &DropsAtInterface::name);
    return all;
}

}  // namespace manager
