// SPDX-License-Identifier: Apache-2.0
// A manager at which everything flows, for the tests of what is shown of it: each of them changes what it is
// about.

#ifndef TESTS_UNIT_MANAGER_SHOWN_H
#define TESTS_UNIT_MANAGER_SHOWN_H

#include <algorithm>
#include <chrono>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "manager/recorder.h"
#include "manager/status/configured.h"
#include "manager/status/diagnosis.h"
#include "manager/status/view.h"

namespace manager {

inline constexpr WallTime kNow{std::chrono::milliseconds{1'795'240'811'123}};  // 2026-11-21T06:00:11.123Z

inline StreamStatus SendingStream()
{
    StreamStatus stream;
    stream.datagrams = 12;
    stream.bytes = 16'000;
    stream.flowSamples = 80;
    stream.counterSamples = 4;
    stream.discards = 9;
    stream.sending = true;
    stream.lastDatagram = kNow - std::chrono::milliseconds{1'500};
    return stream;
}

inline InterfaceStatus FlowingStatus(const std::string& name)
{
    InterfaceStatus status;
    status.present = true;
    status.ifIndex = 7;
    status.kernelName = "k-" + name;
    status.adminUp = status.operUp = true;
    status.sampled = true;
    status.packetsSeen = 40'960;
    status.samples = 80;
    status.sampledBytes = 8320;
    status.lastSample = kNow - std::chrono::seconds{3};
    status.countersSent = 4;
    status.lastCounters = kNow - std::chrono::seconds{61};
    return status;
}

/// Of two reasons at eth1, and of packets that had no interface.
inline std::vector<DropsAtInterface> TwoDrops()
{
    DropsByReason socket{
        .name = "NO_SOCKET", .packets = 10, .rate = 2, .last = kNow - std::chrono::seconds{3}};
    socket.told = {wire::DropReason::kPortUnreachable, "udp_rcv"};
    DropsByReason other{.name = "OTHERHOST", .packets = 2, .rate = 0, .last = kNow - std::chrono::seconds{1}};
    return {{.name = "eth1", .ifIndex = 7, .packets = 12, .untold = 3, .reasons = {socket, other}},
            {.name = "n/a", .ifIndex = 0, .packets = 1, .untold = 0, .reasons = {}}};
}

/// A manager as it is shown: its table, and what the other parts say.
struct Shown {
    ServiceTable table;
    OwnSettings own;
    ManagerStatus manager;
    std::map<std::string, InterfaceStatus> interfaces;
    std::map<std::string, StreamStatus> collectors;
    std::vector<DropsAtInterface> drops;
    WallTime now = kNow;

    void Apply(const Operation& operation) { EXPECT_EQ("", ReasonOf(table.Apply(operation))); }
    void Add(const std::string& collector)
    {
        Apply(manager::Add(collector));
        collectors[collector] = SendingStream();
    }
    /// With collector c1 for both kinds, if no other is named.
    void Update(const std::string& interface, const std::string& flow = "c1",
                const std::string& counter = "c1",
                const InterfaceSettings& settings = {512, Direction::kIngress, 128, 20})
    {
        Apply(UpdateInterface{interface, flow, counter, settings});
        interfaces.try_emplace(interface, FlowingStatus(interface));
    }
    /// What was attached goes, as all that the interface had before.
    void Replace(const std::string& interface, const std::string& flow, const std::string& counter)
    {
        const InterfaceSettings settings = table.FindInterface(interface)->settings;
        Apply(Unset(interface));
        Update(interface, flow, counter, settings);
    }
    void Clear()
    {
        while (!table.AllInterfaces().empty())
            Apply(Unset(std::string(table.AllInterfaces().begin()->first)));
    }
    void ClearCollectors()
    {
        while (!table.AllCollectors().empty())
            Apply(Delete(std::string(table.AllCollectors().begin()->first)));
    }

    /// As a session does that names all but the address.
    void ForgetAddress()
    {
        table.BeginSession();
        for (const auto& [name, collector] : table.AllCollectors())
            Apply(AddCollector{name, collector.settings});
        for (const auto& [name, interface] : table.AllInterfaces()) {
            Apply(UpdateInterface{name, "", "", interface.settings});
            for (const Kind kind : {Kind::kFlow, Kind::kCounter})
                for (const auto& [collector, mark] : interface.Of(kind)) Apply(Attach{kind, name, collector});
        }
        EXPECT_EQ(Texts{"agent"}, Text(table.Sweep()));
    }

    [[nodiscard]] View Look() const
    {
        StatusSources sources{table, own};
        sources.manager = [this] { return manager; };
        sources.interface = [this](const std::string& name) {
            const auto at = interfaces.find(name);
            return at == interfaces.end() ? InterfaceStatus{} : at->second;
        };
        sources.collector = [this](const std::string& name) {
            const auto at = collectors.find(name);
            return at == collectors.end() ? nullptr : &at->second;
        };
        sources.drops = [this] { return drops; };
        sources.now = [this] { return now; };
        return View(std::move(sources));
    }
};

/// Collector c1 and interface eth1.
struct Flowing : Shown {
    Flowing()
    {
        manager.pid = 4711;
        manager.session = Service::Session::kLoaded;
        manager.since = kNow - std::chrono::hours{1};
        manager.operations = 9;
        manager.source.kind = "ebpf-tcx";
        Apply(Agent("192.0.2.9"));
        Add("c1");
        Update("eth1");
    }
};

/// What the daemon would have been given for Flowing.
inline Configured FlowingConfigured()
{
    Configured configured;
    configured.collectors["c1"].enabled = true;
    configured.interfaces["eth1"].ownRate = true;
    configured.interfaces["eth1"].collectors = {std::vector<std::string>{"c1"}, {"c1"}};
    return configured;
}

/// What does not flow of all that the manager and the configuration have.
inline std::vector<Problem> DiagnoseAll(const View& view, const Configured* configured)
{
    const ServiceTable& table = view.Table();
    std::set<std::string> collectors, interfaces;
    for (const auto& [name, interface] : table.AllInterfaces()) interfaces.insert(name);
    for (const auto& [name, collector] : table.AllCollectors()) collectors.insert(name);
    for (const auto& [name, users] : table.AllUsers()) collectors.insert(name);
    for (const auto& [name, settings] : view.Own().AllCollectors()) collectors.insert(name);
    if (configured != nullptr) {
        for (const auto& [name, collector] : configured->collectors) collectors.insert(name);
        for (const auto& [name, interface] : configured->interfaces) interfaces.insert(name);
    }
    std::vector<Problem> all = DiagnoseAgent(view);
    const auto add = [&all](std::vector<Problem> more) { std::ranges::move(more, std::back_inserter(all)); };
    for (const std::string& name : collectors) {
        const auto at = table.AllCollectors().find(name);
        std::optional<View::Collector> held;
        if (at != table.AllCollectors().end()) held.emplace(view.Of(*at));
        add(DiagnoseCollector(name, held ? &*held : nullptr, view, configured));
    }
    for (const std::string& name : interfaces) {
        const auto at = table.AllInterfaces().find(name);
        std::optional<View::Interface> held;
        if (at != table.AllInterfaces().end()) held.emplace(view.Of(*at));
        add(DiagnoseInterface(name, held ? &*held : nullptr, view, configured));
    }
    return all;
}

}  // namespace manager

#endif
