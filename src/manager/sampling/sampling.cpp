// SPDX-License-Identifier: Apache-2.0
#include "manager/sampling/sampling.h"

#include <algorithm>
#include <utility>

#include "base/timers.h"
#include "capture/packet_source.h"
#include "log/log.h"
#include "manager/export/exporter.h"
#include "manager/export/poller.h"
#include "manager/sampling/configured_interface.h"
#include "manager/sampling/flow_sample_pipeline.h"
#include "net/links/links.h"

namespace manager {
namespace {

bool Includes(Direction direction, Direction wanted)
{
    return direction == wanted || direction == Direction::kBoth;
}

}  // namespace

Sampling::Sampling(const Parts& parts, std::optional<Direction> added, WallClock clock)
    : m_timers(parts.timers),
      m_links(parts.links),
      m_exporter(parts.exporter),
      m_poller(parts.poller),
      m_added(added),
      m_flows(parts.forwarding, parts.exporter, clock),
      m_traffic(parts.timers, m_flows.Sources(), clock)
{
    m_links.AddObserver(*this);
    m_flows.WhenRefused([this](DataSource& source, const std::string& reason) {
        if (source.boundTo == nullptr || !source.sampledWith) return;
        source.changeRefused = true;
        Refused(*source.boundTo, reason);
    });
}

void Sampling::SetSource(capture::PacketSource* source, SourceStatus status)
{
    m_source = source;
    m_sourceStatus = std::move(status);
    m_traffic.SetSource(source);
    for (auto& [name, interface] : m_interfaces) Refresh(interface);
}

// ---- what the configuration says ----

void Sampling::AgentAddressChanged(std::optional<std::uint32_t> address)
{
    m_exporter.SetAgentAddress(address.value_or(0));
}

void Sampling::CollectorChanged(const std::string& name, const CollectorSettings& settings)
{
    const bool isNew = m_exporter.Find(name) == nullptr;
    m_exporter.Set(name, settings);
    if (!isNew) return;
    if (const auto users = m_users.find(name); users != m_users.end())
        for (ConfiguredInterface* interface : users->second) Refresh(*interface);
}

void Sampling::CollectorRemoved(const std::string& name)
{
    Stream* gone = m_exporter.Find(name);
    if (gone == nullptr) return;
    // What has been sampled already was sampled for it as well.
    if (m_source != nullptr) m_source->Drain();
    if (const auto users = m_users.find(name); users != m_users.end()) {
        for (ConfiguredInterface* interface : users->second) {
            for (auto& streams : interface->streams) std::erase(streams, gone);
            ApplySampling(*interface);
            ApplyPolling(*interface);
        }
    }
    m_exporter.Remove(name);
}

void Sampling::InterfaceChanged(const std::string& name, const InterfaceSettings& settings)
{
    ConfiguredInterface& interface = m_interfaces[name];
    interface.name = name;
    interface.settings = settings;
    Refresh(interface);
}

void Sampling::InterfaceRemoved(const std::string& name)
{
    const auto at = m_interfaces.find(name);
    if (at == m_interfaces.end()) return;
    ConfiguredInterface& interface = at->second;
    const std::uint32_t released = interface.source != nullptr ? interface.source->ifIndex : 0;
    Unbind(interface);
    WaitFor(interface, 0);
    for (auto& collectors : interface.collectors)
        for (const std::string& collector : std::exchange(collectors, {})) RemoveUser(collector, interface);
    m_interfaces.erase(at);
    if (const net::Link* link = m_links.Find(released); link != nullptr) RefreshNamed(*link);
}

void Sampling::Attached(const std::string& interface, Kind kind, const std::string& collector)
{
    const auto at = m_interfaces.find(interface);
    if (at == m_interfaces.end()) return;
    at->second.Of(kind).insert(collector);
    m_users[collector].insert(&at->second);
    Refresh(at->second);
}

void Sampling::Detached(const std::string& interface, Kind kind, const std::string& collector)
{
    const auto at = m_interfaces.find(interface);
    if (at == m_interfaces.end()) return;
    // What has been sampled already was sampled for it as well.
    if (kind == Kind::kFlow && m_source != nullptr) m_source->Drain();
    at->second.Of(kind).erase(collector);
    RemoveUser(collector, at->second);
    Refresh(at->second);
}

/// Does nothing if the collector is still attached, for the other kind.
void Sampling::RemoveUser(const std::string& collector, ConfiguredInterface& interface)
{
    const auto users = m_users.find(collector);
    if (users == m_users.end()) return;
    const bool left = std::any_of(interface.collectors.begin(), interface.collectors.end(),
                                  [&](const auto& names) { return names.contains(collector); });
    if (left) return;
    users->second.erase(&interface);
    if (users->second.empty()) m_users.erase(users);
}

// ---- what the kernel says ----

void Sampling::LinkChanged(const net::Link& link)
{
    if (link.index >= wire::kFirstExpandedIndex) UseExpandedEncoding();
    const auto source = m_flows.Sources().find(link.index);
    if (source != m_flows.Sources().end()) {
        source->second.hardwareType = link.hardwareType;
        if (source->second.boundTo != nullptr) Refresh(*source->second.boundTo);
    }
    RefreshNamed(link);
    RefreshWaiting(link.index);
}

void Sampling::LinkRemoved(const net::Link& link)
{
    const auto at = m_flows.Sources().find(link.index);
    if (at == m_flows.Sources().end()) return;
    ConfiguredInterface* interface = at->second.boundTo;
    if (interface != nullptr) Unbind(*interface);
    m_flows.Sources().erase(at);
    m_poller.Forget(link.index);
    if (interface != nullptr) Refresh(*interface);  // another one may have the name
    RefreshWaiting(link.index);
}

/// Refreshes the interfaces of the configuration that this one could serve now.
void Sampling::RefreshNamed(const net::Link& link)
{
    const auto refresh = [this](const std::string& name) {
        if (const auto at = m_interfaces.find(name); at != m_interfaces.end()) Refresh(at->second);
    };
    refresh(link.name);
    for (const std::string& name : link.altNames) refresh(name);
    if (!link.alias.empty()) refresh(link.alias);
}

/// Refreshes those whose name it had and may have no longer.
void Sampling::RefreshWaiting(std::uint32_t ifIndex)
{
    const auto at = m_waiting.find(ifIndex);
    if (at == m_waiting.end()) return;
    for (ConfiguredInterface* interface : std::set(at->second)) Refresh(*interface);
}

void Sampling::WaitFor(ConfiguredInterface& interface, std::uint32_t ifIndex)
{
    if (interface.waitsFor == ifIndex) return;
    if (const auto at = m_waiting.find(interface.waitsFor); at != m_waiting.end()) {
        at->second.erase(&interface);
        if (at->second.empty()) m_waiting.erase(at);
    }
    if (ifIndex != 0) m_waiting[ifIndex].insert(&interface);
    interface.waitsFor = ifIndex;
}

/// An agent's session has one encoding: with the first index that needs it, everything begins anew.
void Sampling::UseExpandedEncoding()
{
    if (m_flows.Encoding() == wire::Encoding::kExpanded) return;
    slog::Notice(
        "an interface index needs more than 24 bits: expanded samples from now on, all sequences anew");
    if (m_source != nullptr) m_source->Drain();
    m_exporter.Restart();
    m_flows.Restart(wire::Encoding::kExpanded);
    m_poller.Restart(wire::Encoding::kExpanded);
}

// ---- bringing both together ----

/// Compares what an interface should do with what it does, and changes what differs.
void Sampling::Refresh(ConfiguredInterface& interface)
{
    const net::Link* link = LinkFor(interface);
    const std::uint32_t index = link != nullptr ? link->index : 0;
    const std::uint32_t bound = interface.source != nullptr ? interface.source->ifIndex : 0;
    const net::Link* named = index == 0 ? m_links.Find(interface.name) : nullptr;
    WaitFor(interface, named != nullptr ? named->index : 0);
    if (bound != 0 && bound != index) Unbind(interface);
    if (index != 0 && bound != index) Bind(interface, *link);

    // A collector that goes gets what was sampled for it: sampling ends before its stream does.
    auto flowStreams = ExistingStreams(interface.Of(Kind::kFlow));
    if (flowStreams.empty() && interface.source != nullptr) EndSampling(*interface.source);
    interface.StreamsOf(Kind::kFlow) = std::move(flowStreams);
    interface.StreamsOf(Kind::kCounter) = ExistingStreams(interface.Of(Kind::kCounter));
    ApplySampling(interface);
    ApplyPolling(interface);

    // Another name may wait for the kernel interface that this one no longer has.
    const net::Link* released = bound != 0 && bound != index ? m_links.Find(bound) : nullptr;
    if (released != nullptr) RefreshNamed(*released);
}

/// Null also if the kernel interface serves another name already: the first one keeps it.
const net::Link* Sampling::LinkFor(const ConfiguredInterface& interface) const
{
    const net::Link* link = m_links.Find(interface.name);
    if (link == nullptr) return nullptr;
    const DataSource* source = m_flows.Find(link->index);
    const bool taken = source != nullptr && source->boundTo != nullptr && source->boundTo != &interface;
    return taken ? nullptr : link;
}

std::vector<Stream*> Sampling::ExistingStreams(const std::set<std::string>& collectors) const
{
    std::vector<Stream*> streams;
    for (const std::string& name : collectors)
        if (Stream* stream = m_exporter.Find(name); stream != nullptr) streams.push_back(stream);
    return streams;
}

void Sampling::Bind(ConfiguredInterface& interface, const net::Link& link)
{
    DataSource& source = m_flows.Sources()[link.index];
    source.ifIndex = link.index;
    source.hardwareType = link.hardwareType;
    source.boundTo = &interface;
    interface.source = &source;
    slog::Info("interface {} is {}, index {}", interface.name, link.name, link.index);
}

void Sampling::Unbind(ConfiguredInterface& interface)
{
    m_poller.Remove(interface.name);
    if (interface.source == nullptr) return;
    EndSampling(*interface.source);
    interface.source->error.clear();
    m_refused.erase(&interface);
    interface.source->boundTo = nullptr;
    interface.source = nullptr;
}

std::optional<capture::Settings> Sampling::WantedSampling(const ConfiguredInterface& interface) const
{
    if (m_source == nullptr || interface.StreamsOf(Kind::kFlow).empty() || interface.settings.rate == 0)
        return std::nullopt;
    const auto includes = [&](Direction direction) {
        return Includes(interface.settings.direction, direction) ||
               (m_added && Includes(*m_added, direction));
    };
    return capture::Settings{.rate = interface.settings.rate,
                             .headerSize = static_cast<std::uint16_t>(std::min<std::size_t>(
                                 interface.settings.maxHeaderSize, capture::kMaxHeader)),
                             .ingress = includes(Direction::kIngress),
                             .egress = includes(Direction::kEgress)};
}

void Sampling::ApplySampling(ConfiguredInterface& interface)
{
    if (interface.source == nullptr) return;
    DataSource& source = *interface.source;
    const auto wanted = WantedSampling(interface);
    if (!wanted) EndSampling(source);
    if (!wanted || (source.sampledWith == wanted && !source.changeRefused)) {
        source.error.clear();
        m_refused.erase(&interface);
        return;
    }
    try {
        if (source.sampledWith)
            m_source->Change(source.ifIndex, *wanted);
        else
            m_source->Add(source.ifIndex, *wanted);
        source.sampledWith = wanted;
        m_traffic.Begin(source);
        source.changeRefused = false;
        source.error.clear();
        m_refused.erase(&interface);
    } catch (const capture::Unavailable& reason) {
        source.changeRefused = source.sampledWith.has_value();
        Refused(interface, reason.what());
    }
}

void Sampling::Refused(ConfiguredInterface& interface, const std::string& reason)
{
    if (interface.source->error != reason)
        slog::Error("interface {}: packets can't be sampled: {}", interface.name, reason);
    interface.source->error = reason;
    m_refused.insert(&interface);
    if (m_retry != nullptr) return;
    m_retry = m_timers.After(kRetry, [this] {
        m_retry.reset();
        for (ConfiguredInterface* refused : std::set(m_refused)) ApplySampling(*refused);
    });
}

void Sampling::EndSampling(DataSource& source)
{
    if (!source.sampledWith) return;
    const capture::Counts last = m_source->Remove(source.ifIndex);
    source.before.pool += last.pool;
    source.before.drops += last.drops;
    source.sampledWith.reset();
    source.changeRefused = false;
}

/// While the kernel interface is bound, polling keeps its rhythm and counts, even without a collector.
void Sampling::ApplyPolling(ConfiguredInterface& interface)
{
    if (interface.source == nullptr) return m_poller.Remove(interface.name);
    m_poller.Set(interface.name, {interface.source->ifIndex, interface.settings.interval, interface.name,
                                  interface.StreamsOf(Kind::kCounter)});
}

void Sampling::End()
{
    for (auto& [ifIndex, source] : m_flows.Sources()) EndSampling(source);
    m_exporter.Flush();
    m_source = nullptr;
    m_traffic.SetSource(nullptr);
    m_retry.reset();
}

// ---- status ----

InterfaceStatus Sampling::StatusOf(const ConfiguredInterface& interface, const capture::Counts& counts) const
{
    InterfaceStatus status;
    m_poller.Fill(interface.name, status);
    const DataSource* source = interface.source;
    if (source == nullptr) {
        if (const net::Link* link = m_links.Find(interface.name); link != nullptr)
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
    status.samplingError = source->error;
    status.packetsSeen = source->before.pool + counts.pool;
    status.quiet = m_traffic.QuietFor(*source);
    status.dropsBuffer = source->before.drops + counts.drops;
    status.samples = source->samples;
    status.dropsNoCollector = source->dropsNoCollector;
    status.lastSample = source->lastSample;
    return status;
}

std::map<std::string, InterfaceStatus> Sampling::Interfaces()
{
    const TrafficWatch::Counts counts = m_traffic.Look();
    std::map<std::string, InterfaceStatus> all;
    for (const auto& [name, interface] : m_interfaces) {
        const auto at = interface.source != nullptr ? counts.find(interface.source->ifIndex) : counts.end();
        all.emplace(name, StatusOf(interface, at != counts.end() ? at->second : capture::Counts{}));
    }
    return all;
}

InterfaceStatus Sampling::Interface(const std::string& name)
{
    const auto at = m_interfaces.find(name);
    if (at == m_interfaces.end()) return {};
    const DataSource* source = at->second.source;
    return StatusOf(at->second, source == nullptr ? capture::Counts{} : m_traffic.Look(*source));
}

}  // namespace manager
