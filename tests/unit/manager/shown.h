// SPDX-License-Identifier: Apache-2.0
// A manager at which everything flows, as records, for the tests of what is shown of it: each of them
// changes what it is about.

#ifndef TESTS_UNIT_MANAGER_SHOWN_H
#define TESTS_UNIT_MANAGER_SHOWN_H

#include <chrono>
#include <set>
#include <string>
#include <vector>

#include "manager/recorder.h"
#include "manager/status/configured.h"
#include "manager/status/diagnosis.h"
#include "manager/status/snapshot.h"

namespace manager {

inline constexpr WallTime kNow{std::chrono::milliseconds{1'795'240'811'123}};  // 2026-11-21T06:00:11.123Z

inline Snapshot::Collector SendingCollector(const std::string& name)
{
    Snapshot::Collector collector{name, {Address("192.0.2.1"), 6343, 1400}, {}};
    collector.stream.datagrams = 12;
    collector.stream.bytes = 16'000;
    collector.stream.flowSamples = 80;
    collector.stream.counterSamples = 4;
    collector.stream.sending = true;
    collector.stream.lastDatagram = kNow - std::chrono::milliseconds{1'500};
    return collector;
}

inline Snapshot::Interface FlowingInterface(const std::string& name,
                                            const std::vector<std::string>& flow = {"c1"},
                                            const std::vector<std::string>& counter = {"c1"})
{
    Snapshot::Interface interface;
    interface.name = name;
    interface.settings = {512, Direction::kIngress, 128, 20};
    interface.collectors = {flow, counter};
    interface.status.present = true;
    interface.status.ifIndex = 7;
    interface.status.kernelName = "k-" + name;
    interface.status.adminUp = interface.status.operUp = true;
    interface.status.sampled = true;
    interface.status.packetsSeen = 40'960;
    interface.status.samples = 80;
    interface.status.lastSample = kNow - std::chrono::seconds{3};
    interface.status.countersSent = 4;
    interface.status.lastCounters = kNow - std::chrono::seconds{61};
    return interface;
}

/// Collector c1 and interface eth1.
inline Snapshot Flowing()
{
    Snapshot snapshot;
    snapshot.now = kNow;
    snapshot.pid = 4711;
    snapshot.session = Service::Session::kLoaded;
    snapshot.since = kNow - std::chrono::hours{1};
    snapshot.operations = 9;
    snapshot.source.kind = "ebpf-tcx";
    snapshot.agentAddress = Address("192.0.2.9");
    snapshot.collectors.push_back(SendingCollector("c1"));
    snapshot.interfaces.push_back(FlowingInterface("eth1"));
    return snapshot;
}

/// What the daemon would have been given for Flowing().
inline Configured FlowingConfigured()
{
    Configured configured;
    configured.collectors["c1"].enabled = true;
    configured.interfaces["eth1"].ownRate = true;
    configured.interfaces["eth1"].collectors = {std::vector<std::string>{"c1"}, {"c1"}};
    return configured;
}

/// What does not flow of all that the snapshot and the configuration have.
inline std::vector<Problem> DiagnoseAll(Snapshot snapshot, const Configured* configured)
{
    std::set<std::string> collectors, interfaces;
    snapshot.anyInterface = !snapshot.interfaces.empty();
    for (const auto& interface : snapshot.interfaces) {
        interfaces.insert(interface.name);
        for (const auto& names : interface.collectors) snapshot.attached.insert(names.begin(), names.end());
    }
    for (const auto& collector : snapshot.collectors) collectors.insert(collector.name);
    collectors.insert(snapshot.attached.begin(), snapshot.attached.end());
    if (configured != nullptr) {
        for (const auto& [name, collector] : configured->collectors) collectors.insert(name);
        for (const auto& [name, interface] : configured->interfaces) interfaces.insert(name);
    }
    return Diagnose({true, {collectors.begin(), collectors.end()}, {interfaces.begin(), interfaces.end()}},
                    snapshot, configured);
}

}  // namespace manager

#endif
