// SPDX-License-Identifier: Apache-2.0
// One scenario: a switch on a configuration, one commit, and the calls that must reach the sFlow
// manager for it. Tables of these are in the files beside; scenario_test.cpp plays them against real
// processes. What the calls must be was worked out by hand from what the daemon promises, never
// copied from a run.

#ifndef SCENARIO_SCENARIO_H
#define SCENARIO_SCENARIO_H

#include <ostream>
#include <string>
#include <vector>

namespace scenario {

struct Scenario {
    std::string name;
    std::string before;              // configuration, RFC 7951 JSON
    std::string commands;            // of swcli, separated by ";", committed at the end
    std::vector<std::string> edits;  // or: contents of <config>, one edit-config each, then one commit
    std::vector<std::string> calls;  // all of them, in order (as support::Calls writes them)
};

/// The initial load of a configuration.
struct Load {
    std::string name;
    std::string configuration;
    std::vector<std::string> calls;  // between the session's opening and its mark
};

inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }
inline void PrintTo(const Load& load, std::ostream* out) { *out << load.name; }

/// A configuration with this content of the sflow container, and of the list mgmt.
std::string Switch(const std::string& sflow, const std::string& mgmt = R"({"name":"mgmt0",
    "ipv4":{"address":{"ip":"192.0.2.10/24"}}})");

/// The one that most scenarios begin with: agent 192.0.2.9, management 192.0.2.10/24;
///   c1 198.51.100.1 with defaults; c2 198.51.100.2:7000, datagrams of 1200 bytes; c3 disabled
///   eth1 at rate 1024: flow c1 c2, counter c1
///   eth2 at the default rate: flow c3, counter c2
///   eth3 at rate 2048, no collectors
std::string Usual();

/// <config> with this content of the sflow container, in XML; `attributes` on the element sflow.
std::string SflowXml(const std::string& content, const std::string& attributes = {});

std::vector<Load> Loads();
std::vector<Scenario> AgentScenarios();
std::vector<Scenario> CollectorScenarios();
std::vector<Scenario> InterfaceScenarios();
std::vector<Scenario> DefaultRateScenarios();
std::vector<Scenario> CombinedScenarios();

}  // namespace scenario

#endif
