// SPDX-License-Identifier: Apache-2.0
#include "manager/status/snapshot.h"

#include <algorithm>

#include "manager/service/journal.h"
#include "manager/service/state.h"
#include "manager/status/in_order.h"

namespace manager {
namespace {

Snapshot::Interface Taken(const std::string& name, const State::Interface& held, const StatusSources& sources)
{
    Snapshot::Interface interface;
    interface.name = name;
    interface.settings = held.settings;
    for (std::size_t kind = 0; kind < interface.collectors.size(); ++kind)
        for (const auto& [collector, mark] : held.attachments[kind])
            interface.collectors[kind].push_back(collector);
    if (sources.interface) interface.status = sources.interface(name);
    return interface;
}

Snapshot::Collector Taken(const std::string& name, const State::Collector& held, const StatusSources& sources)
{
    Snapshot::Collector collector{name, held.settings, {}};
    const StreamStatus* stream = sources.collector ? sources.collector(name) : nullptr;
    if (stream != nullptr) collector.stream = *stream;
    return collector;
}

void Shift(Snapshot& snapshot, WallTime::duration by)
{
    const auto shift = [by](std::optional<WallTime>& time) {
        if (time) *time += by;
    };
    snapshot.now += by;
    snapshot.since += by;
    for (Snapshot::Collector& collector : snapshot.collectors) {
        shift(collector.stream.lastErrorTime);
        shift(collector.stream.lastDatagram);
    }
    for (Snapshot::Interface& interface : snapshot.interfaces) {
        shift(interface.status.lastSample);
        shift(interface.status.lastCounters);
    }
}

/// What concerns the manager as a whole.
Snapshot TakeManager(const Service& service, const StatusSources& sources)
{
    Snapshot snapshot;
    if (sources.now) snapshot.now = sources.now();
    snapshot.pid = sources.pid;
    snapshot.session = service.CurrentSession();
    snapshot.since = service.Since();
    snapshot.operations = service.Operations();
    snapshot.refused = service.Refused();
    if (const Journal* journal = service.CurrentJournal(); journal != nullptr)
        snapshot.journal = {journal->Path(), journal->Errors()};
    if (sources.source) snapshot.source = sources.source();
    snapshot.addedDirection = sources.addedDirection;
    if (sources.limitations) snapshot.limitations = sources.limitations();
    snapshot.agentAddress = service.CurrentState().AgentAddress();
    snapshot.anyInterface = !service.CurrentState().Interfaces().empty();
    return snapshot;
}

void ShiftToWall(const StatusSources& sources, Snapshot& snapshot)
{
    if (sources.wall) Shift(snapshot, sources.wall() - snapshot.now);
}

/// The element of that name, or null; the elements stand in ascending order.
template <typename Element>
const Element* Find(const std::vector<Element>& elements, const std::string& name)
{
    const auto less = [](const Element& each, const std::string& wanted) { return each.name < wanted; };
    const auto found = std::lower_bound(elements.begin(), elements.end(), name, less);
    return found != elements.end() && found->name == name ? &*found : nullptr;
}

}  // namespace

const Snapshot::Collector* Snapshot::FindCollector(const std::string& name) const
{
    return Find(collectors, name);
}

const Snapshot::Interface* Snapshot::FindInterface(const std::string& name) const
{
    return Find(interfaces, name);
}

Snapshot TakeSnapshot(const Service& service, const StatusSources& sources)
{
    Snapshot snapshot = TakeManager(service, sources);
    const State& state = service.CurrentState();
    snapshot.collectors.reserve(state.Collectors().size());
    for (const auto& [name, collector] : state.Collectors())
        snapshot.collectors.push_back(Taken(name, collector, sources));
    snapshot.interfaces.reserve(state.Interfaces().size());
    for (const auto& [name, interface] : state.Interfaces())
        snapshot.interfaces.push_back(Taken(name, interface, sources));
    for (const auto& [name, uses] : state.AttachedCollectors()) snapshot.attached.insert(name);
    ShiftToWall(sources, snapshot);
    return snapshot;
}

Snapshot TakeSnapshot(const Service& service, const StatusSources& sources,
                      const std::vector<std::string>& collectors, const std::vector<std::string>& interfaces)
{
    Snapshot snapshot = TakeManager(service, sources);
    const State& state = service.CurrentState();
    InOrder heldCollectors(state.Collectors());
    for (const std::string& name : collectors) {
        if (const auto* held = heldCollectors.Find(name))
            snapshot.collectors.push_back(Taken(name, *held, sources));
        if (state.AttachedCollectors().contains(name)) snapshot.attached.insert(name);
    }
    snapshot.interfaces.reserve(interfaces.size());
    InOrder heldInterfaces(state.Interfaces());
    for (const std::string& name : interfaces)
        if (const auto* held = heldInterfaces.Find(name))
            snapshot.interfaces.push_back(Taken(name, *held, sources));
    ShiftToWall(sources, snapshot);
    return snapshot;
}

}  // namespace manager
