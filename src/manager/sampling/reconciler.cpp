// SPDX-License-Identifier: Apache-2.0
#include "manager/sampling/reconciler.h"

#include <algorithm>
#include <utility>

#include "base/timers.h"
#include "log/log.h"
#include "manager/discards/discards.h"
#include "manager/export/exporter.h"
#include "manager/export/poller.h"

namespace manager {
namespace {

bool Includes(Direction direction, Direction wanted)
{
    return direction == wanted || direction == Direction::kBoth;
}

}  // namespace

Reconciler::Reconciler(const Parts& parts, const WallClock& clock)
    : m_table(parts.table),
      m_own(parts.own),
      m_timers(parts.timers),
      m_links(parts.links),
      m_exporter(parts.exporter),
      m_poller(parts.poller),
      m_discards(parts.discards),
      m_flows(parts.forwarding, parts.exporter, clock),
      m_traffic(parts.timers, m_flows.Sources(), clock)
{
    m_links.AddObserver(*this);
    m_flows.WhenRefused([this](DataSource& source, const std::string& reason) {
        if (source.boundTo.empty() || !source.sampledWith) return;
        source.changeRefused = true;
        Refused(source, reason);
    });
}

void Reconciler::SetSource(capture::PacketSource* source, SourceStatus status)
{
    m_source = source;
    m_sourceStatus = std::move(status);
    m_traffic.SetSource(source);
    for (const auto& [name, interface] : m_table.AllInterfaces()) ReconcileInterface(name);
}

void Reconciler::Reconcile(const Touched& touched)
{
    m_drained = false;
    for (const std::string& name : touched.interfaces) ReconcileInterface(name);
    for (const std::string& name : touched.collectors) ReconcileCollector(name);
    if (touched.agentAddress) m_exporter.SetAgentAddress(m_table.AgentAddress().value_or(0));
}

void Reconciler::Reconcile(const OwnChange& change)
{
    m_drained = false;
    if (change.subAgent) {
        slog::Notice("the sub-agent is {} from now on, all sequences anew", m_own.SubAgent());
        BeginAnew(m_flows.Encoding());
    }
    for (const std::string& name : change.collectors) ReconcileCollector(name);
    if (change.discards) m_discards.Reconcile();
    if (!change.direction) return;
    m_turned.clear();
    TurnInterfaces();
}

/// Gives the next interfaces the added direction.
void Reconciler::TurnInterfaces()
{
    const auto& interfaces = m_table.AllInterfaces();
    m_turn.reset();
    for (std::size_t n = 0; n < kTurned; ++n) {
        const auto next = interfaces.upper_bound(m_turned);
        if (next == interfaces.end()) return;
        m_turned = next->first;
        ReconcileInterface(m_turned);
    }
    m_turn = m_timers.After(std::chrono::milliseconds(0), [this] { TurnInterfaces(); });
}

// ---- what the kernel says ----

void Reconciler::LinkChanged(const net::Link& link)
{
    if (link.index >= wire::kFirstExpandedIndex) UseExpandedEncoding();
    const auto source = m_flows.Sources().find(link.index);
    if (source != m_flows.Sources().end()) {
        source->second.hardwareType = link.hardwareType;
        if (!source->second.boundTo.empty()) ReconcileInterface(source->second.boundTo);
    }
    ReconcileNamed(link);
    ReconcileWaiting(link.index);
}

void Reconciler::LinkRemoved(const net::Link& link)
{
    m_discards.Forget(link.index);
    const auto at = m_flows.Sources().find(link.index);
    if (at == m_flows.Sources().end()) return;
    const std::string name = at->second.boundTo;
    if (!name.empty()) Unbind(m_bindings[name]);
    m_flows.Sources().erase(at);
    m_poller.Forget(link.index);
    if (!name.empty()) ReconcileInterface(name);  // another one may have the name
    ReconcileWaiting(link.index);
}

/// The interfaces of the table that this one could serve now.
void Reconciler::ReconcileNamed(const net::Link& link)
{
    const auto reconcile = [this](const std::string& name) {
        if (m_table.FindInterface(name) != nullptr) ReconcileInterface(name);
    };
    reconcile(link.name);
    for (const std::string& name : link.altNames) reconcile(name);
    if (!link.alias.empty()) reconcile(link.alias);
}

/// Those whose name it had and may have no longer.
void Reconciler::ReconcileWaiting(std::uint32_t ifIndex)
{
    const auto at = m_waiting.find(ifIndex);
    if (at == m_waiting.end()) return;
    for (const std::string& name : std::set(at->second)) ReconcileInterface(name);
}

void Reconciler::WaitFor(const std::string& name, Binding& binding, std::uint32_t ifIndex)
{
    if (binding.waitsFor == ifIndex) return;
    if (const auto at = m_waiting.find(binding.waitsFor); at != m_waiting.end()) {
        at->second.erase(name);
        if (at->second.empty()) m_waiting.erase(at);
    }
    if (ifIndex != 0) m_waiting[ifIndex].insert(name);
    binding.waitsFor = ifIndex;
}

/// An agent's session has one encoding: with the first index that needs it, everything begins anew.
void Reconciler::UseExpandedEncoding()
{
    if (m_flows.Encoding() == wire::Encoding::kExpanded) return;
    slog::Notice(
        "an interface index needs more than 24 bits: expanded samples from now on, all sequences anew");
    BeginAnew(wire::Encoding::kExpanded);
}

/// All that has been sampled so far is sent as it would have been.
void Reconciler::BeginAnew(wire::Encoding encoding)
{
    if (m_source != nullptr) m_source->Drain();
    m_discards.Restart();
    m_exporter.Restart(m_own.SubAgent());
    m_flows.Restart(encoding);
    m_poller.Restart(encoding);
}

// ---- bringing both together ----

// The name is a copy: what holds the caller's may go in the call.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void Reconciler::ReconcileInterface(std::string name)
{
    const ServiceTable::Interface* wanted = m_table.FindInterface(name);
    Binding& binding = m_bindings[name];
    const net::Link* named = wanted != nullptr ? m_links.Find(name) : nullptr;
    const bool taken = named != nullptr && IsTaken(*named, name);
    const std::uint32_t index = named != nullptr && !taken ? named->index : 0;
    const std::uint32_t bound = binding.source != nullptr ? binding.source->ifIndex : 0;
    WaitFor(name, binding, taken ? named->index : 0);
    if (bound != 0 && bound != index) Unbind(binding);
    if (index != 0 && bound != index) Bind(name, binding, *named);
    if (wanted != nullptr && binding.source != nullptr) {
        DataSource& source = *binding.source;
        ApplyStreams(*wanted, source);
        ApplySampling(wanted->settings, source);
        // While the kernel interface is bound, polling keeps its rhythm and counts, even without a collector.
        m_discards.SetInterface(source.ifIndex, name, wanted->settings.maxHeaderSize);
        m_poller.Set(name, {source.ifIndex, wanted->settings.interval, &source.StreamsOf(Kind::kCounter)});
    }
    if (wanted == nullptr) m_bindings.erase(name);
    // Another name may wait for the kernel interface that this one no longer has.
    const net::Link* released = bound != 0 && bound != index ? m_links.Find(bound) : nullptr;
    if (released != nullptr) ReconcileNamed(*released);
}

void Reconciler::ReconcileCollector(const std::string& name)
{
    const ServiceTable::Collector* wanted = m_table.FindCollector(name);
    const bool exists = m_exporter.Find(name) != nullptr;
    Stream* stream = nullptr;
    if (wanted != nullptr) stream = &m_exporter.Set(name, wanted->settings, m_own.Of(name).send);
    m_discards.SetCollector(name, m_own.Of(name).discards ? stream : nullptr);
    if (exists == (wanted != nullptr)) return;
    for (const std::string_view interface : m_table.UsersOf(name)) ReconcileInterface(std::string(interface));
    if (wanted == nullptr) m_exporter.Remove(name);
}

/// Whether the kernel interface serves another name already: the first one keeps it.
bool Reconciler::IsTaken(const net::Link& link, const std::string& by) const
{
    const DataSource* source = m_flows.Find(link.index);
    return source != nullptr && !source->boundTo.empty() && source->boundTo != by;
}

void Reconciler::Bind(const std::string& name, Binding& binding, const net::Link& link)
{
    DataSource& source = m_flows.Sources()[link.index];
    source.ifIndex = link.index;
    source.hardwareType = link.hardwareType;
    source.boundTo = name;
    binding.source = &source;
    slog::Info("interface {} is {}, index {}", name, link.name, link.index);
}

void Reconciler::Unbind(Binding& binding)
{
    if (binding.source == nullptr) return;
    DataSource& source = *std::exchange(binding.source, nullptr);
    EndSampling(source);
    source.error.clear();
    m_refused.erase(source.boundTo);
    m_poller.Remove(source.boundTo);
    m_discards.UnsetInterface(source.ifIndex);
    source.boundTo.clear();
    source.streams = {};
}

void Reconciler::ApplyStreams(const ServiceTable::Interface& interface, DataSource& source)
{
    std::vector<Stream*> flow = WantedStreams(interface.Of(Kind::kFlow));
    std::vector<Stream*>& now = source.StreamsOf(Kind::kFlow);
    const auto stays = [&](Stream* stream) { return std::ranges::find(flow, stream) != flow.end(); };
    // A collector that goes gets what was sampled for it: that comes before its stream goes.
    if (flow.empty())
        EndSampling(source);
    else if (!std::ranges::all_of(now, stays))
        DrainOnce();
    now = std::move(flow);
    source.StreamsOf(Kind::kCounter) = WantedStreams(interface.Of(Kind::kCounter));
}

std::vector<Stream*> Reconciler::WantedStreams(const ServiceTable::Attachments& attachments) const
{
    std::vector<Stream*> streams;
    for (const auto& [name, mark] : attachments) {
        Stream* stream = m_exporter.Find(name);
        if (stream != nullptr && m_table.FindCollector(name) != nullptr) streams.push_back(stream);
    }
    return streams;
}

/// Once for all that one change of the table touches: what is sampled later is not for a collector that goes.
void Reconciler::DrainOnce()
{
    if (m_source != nullptr && !std::exchange(m_drained, true)) m_source->Drain();
}

std::optional<capture::Settings> Reconciler::WantedSampling(const InterfaceSettings& settings,
                                                            const DataSource& source) const
{
    if (m_source == nullptr || source.StreamsOf(Kind::kFlow).empty() || settings.rate == 0)
        return std::nullopt;
    const std::optional<Direction> added = m_own.AddedDirection();
    const auto includes = [&](Direction direction) {
        return Includes(settings.direction, direction) || (added && Includes(*added, direction));
    };
    return capture::Settings{.rate = settings.rate,
                             .headerSize = static_cast<std::uint16_t>(
                                 std::min<std::size_t>(settings.maxHeaderSize, capture::kMaxHeader)),
                             .ingress = includes(Direction::kIngress),
                             .egress = includes(Direction::kEgress)};
}

void Reconciler::ApplySampling(const InterfaceSettings& settings, DataSource& source)
{
    const auto wanted = WantedSampling(settings, source);
    if (!wanted) EndSampling(source);
    if (!wanted || (source.sampledWith == wanted && !source.changeRefused)) {
        source.error.clear();
        m_refused.erase(source.boundTo);
        return;
    }
    // Samples may come while the source is called.
    const auto before = std::exchange(source.sampledWith, wanted);
    try {
        if (before)
            m_source->Change(source.ifIndex, *wanted);
        else
            m_source->Add(source.ifIndex, *wanted);
        m_traffic.Begin(source);
        source.changeRefused = false;
        source.error.clear();
        m_refused.erase(source.boundTo);
    } catch (const capture::Unavailable& reason) {
        source.sampledWith = before;
        source.changeRefused = before.has_value();
        Refused(source, reason.what());
    }
}

void Reconciler::Refused(DataSource& source, const std::string& reason)
{
    if (source.error != reason)
        slog::Error("interface {}: packets can't be sampled: {}", source.boundTo, reason);
    source.error = reason;
    m_refused.insert(source.boundTo);
    if (m_retry != nullptr) return;
    m_retry = m_timers.After(kRetry, [this] {
        m_retry.reset();
        for (const std::string& name : std::set(m_refused)) ReconcileInterface(name);
    });
}

void Reconciler::EndSampling(DataSource& source)
{
    if (!source.sampledWith) return;
    const capture::Counts last = m_source->Remove(source.ifIndex);
    source.before.pool += last.pool;
    source.before.drops += last.drops;
    source.sampledWith.reset();
    source.changeRefused = false;
}

void Reconciler::End()
{
    for (auto& [ifIndex, source] : m_flows.Sources()) EndSampling(source);
    m_discards.End();
    m_exporter.Flush();
    m_source = nullptr;
    m_traffic.SetSource(nullptr);
    m_retry.reset();
    m_turn.reset();
}

// ---- status ----

const DataSource* Reconciler::SourceOf(const std::string& name) const
{
    const auto at = m_bindings.find(name);
    return at == m_bindings.end() ? nullptr : at->second.source;
}

InterfaceStatus Reconciler::StatusOf(const std::string& name, const DataSource* source,
                                     const capture::Counts& counts) const
{
    InterfaceStatus status;
    m_poller.Fill(name, status);
    if (source == nullptr) {
        if (const net::Link* link = m_links.Find(name); link != nullptr)
            status.samplingError =
                "kernel interface " + link->name + " is in use under another name; configure one of the two";
        return status;
    }
    status.ifIndex = source->ifIndex;
    if (const net::Link* link = m_links.Find(source->ifIndex); link != nullptr) {
        status.present = true;
        status.kernelName = link->name;
        status.adminUp = link->up;
        status.operUp = link->running;
    }
    status.sampled = source->sampledWith && m_source != nullptr && m_source->Sampled(source->ifIndex);
    status.pending = source->sampledWith && !status.sampled && source->error.empty();
    status.samplingError = source->error;
    status.packetsSeen = source->before.pool + counts.pool;
    status.quiet = m_traffic.QuietFor(*source);
    status.dropsBuffer = source->before.drops + counts.drops;
    status.samples = source->samples;
    status.sampledBytes = source->sampledBytes;
    status.dropsNoCollector = source->dropsNoCollector;
    status.lastSample = source->lastSample;
    return status;
}

std::map<std::string, InterfaceStatus> Reconciler::Interfaces()
{
    const TrafficWatch::Counts counts = m_traffic.Look();
    std::map<std::string, InterfaceStatus> all;
    for (const auto& [name, interface] : m_table.AllInterfaces()) {
        const DataSource* source = SourceOf(name);
        const auto at = source != nullptr ? counts.find(source->ifIndex) : counts.end();
        all.emplace_hint(all.end(), name,
                         StatusOf(name, source, at != counts.end() ? at->second : capture::Counts{}));
    }
    return all;
}

InterfaceStatus Reconciler::Interface(const std::string& name)
{
    if (m_table.FindInterface(name) == nullptr) return {};
    const DataSource* source = SourceOf(name);
    return StatusOf(name, source, source == nullptr ? capture::Counts{} : m_traffic.Look(*source));
}

}  // namespace manager
