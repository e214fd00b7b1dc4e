// SPDX-License-Identifier: Apache-2.0
// Scenarios of the agent address: configured, else the first management interface's, else 0.0.0.0.

#include "scenario/scenario.h"

namespace scenario {

namespace {

std::string Management(const std::string& content)
{
    return R"(<config xmlns="urn:switch:yang:switch-config"><interface xmlns="urn:switch:yang:switch-interfaces")"
           R"( xmlns:nc="urn:ietf:params:xml:ns:netconf:base:1.0">)" +
           content + "</interface></config>";
}

std::string WithoutAgent() { return Switch(R"("collector":[{"name":"c1","ip":"198.51.100.1"}])"); }

std::string TwoManagementInterfaces()
{
    return Switch("", R"({"name":"mgmt0","ipv4":{"address":{"ip":"10.0.0.5/24"}}},
                         {"name":"mgmt1","ipv4":{"address":{"ip":"10.0.0.6/24"}}})");
}

}  // namespace

std::vector<Scenario> AgentScenarios()
{
    return {
        {"agent changed", Usual(), "set oam sflow agent ipv4 192.0.2.20", {}, {"SetAgentAddress 192.0.2.20"}},
        {"agent set to what it is", Usual(), "set oam sflow agent ipv4 192.0.2.9", {}, {}},
        {"agent deleted: the management address",
         Usual(),
         "delete oam sflow agent ipv4",
         {},
         {"SetAgentAddress 192.0.2.10"}},
        {"agent deleted without a management address: none",
         Switch(R"("agent":{"ipv4":"192.0.2.9"})", ""),
         "delete oam sflow agent ipv4",
         {},
         {"SetAgentAddress 0.0.0.0"}},
        {"agent set where there was none",
         WithoutAgent(),
         "set oam sflow agent ipv4 192.0.2.20",
         {},
         {"SetAgentAddress 192.0.2.20"}},
        {"management address changed, agent configured: the agent again",
         Usual(),
         "set interface mgmt mgmt0 ipv4 address ip 192.0.2.11/24",
         {},
         {"SetAgentAddress 192.0.2.9"}},
        {"management address changed, no agent",
         WithoutAgent(),
         "set interface mgmt mgmt0 ipv4 address ip 192.0.2.11/24",
         {},
         {"SetAgentAddress 192.0.2.11"}},
        {"only the prefix length changed",
         WithoutAgent(),
         "set interface mgmt mgmt0 ipv4 address ip 192.0.2.10/25",
         {},
         {"SetAgentAddress 192.0.2.10"}},
        {"management interface deleted, no agent",
         WithoutAgent(),
         "delete interface mgmt mgmt0",
         {},
         {"SetAgentAddress 0.0.0.0"}},
        {"management interface created",
         Switch("", ""),
         "set interface mgmt mgmt0 ipv4 address ip 192.0.2.30/24",
         {},
         {"SetAgentAddress 192.0.2.30"}},
        {"a management interface before the first",
         WithoutAgent(),
         "set interface mgmt a0 ipv4 address ip 192.0.2.40/24",
         {},
         {"SetAgentAddress 192.0.2.40"}},
        {"a management interface behind the first",
         WithoutAgent(),
         "set interface mgmt z0 ipv4 address ip 192.0.2.50/24",
         {},
         {"SetAgentAddress 192.0.2.10"}},
        {"first management interface deleted: the second",
         TwoManagementInterfaces(),
         "delete interface mgmt mgmt0",
         {},
         {"SetAgentAddress 10.0.0.6"}},
        {"both management addresses changed: once for each",
         TwoManagementInterfaces(),
         "set interface mgmt mgmt0 ipv4 address ip 10.0.0.7/24; set interface mgmt mgmt1 ipv4 address ip "
         "10.0.0.8/24",
         {},
         {"SetAgentAddress 10.0.0.7", "SetAgentAddress 10.0.0.7"}},
        {"both management interfaces deleted: once for each",
         TwoManagementInterfaces(),
         "",
         {Management(R"(<mgmt nc:operation="delete"><name>mgmt0</name></mgmt>)"
                     R"(<mgmt nc:operation="delete"><name>mgmt1</name></mgmt>)")},
         {"SetAgentAddress 0.0.0.0", "SetAgentAddress 0.0.0.0"}},
        {"agent and management address changed: both points are walked",
         Usual(),
         "set oam sflow agent ipv4 192.0.2.20; set interface mgmt mgmt0 ipv4 address ip 192.0.2.11/24",
         {},
         {"SetAgentAddress 192.0.2.20", "SetAgentAddress 192.0.2.20"}},
    };
}

}  // namespace scenario
