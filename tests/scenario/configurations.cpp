// SPDX-License-Identifier: Apache-2.0
// The configurations that scenarios begin with, and their initial loads.

#include "scenario/scenario.h"

namespace scenario {

std::string Switch(const std::string& sflow, const std::string& mgmt)
{
    return R"({"switch-config:config":{"switch-interfaces:interface":{"mgmt":[)" + mgmt +
           R"(]},"switch-oam-sflow:oam":{"sflow":{)" + sflow + "}}}}";
}

std::string Usual()
{
    return Switch(R"(
        "agent":{"ipv4":"192.0.2.9"},
        "collector":[
            {"name":"c1","ip":"198.51.100.1"},
            {"name":"c2","ip":"198.51.100.2","port":7000,"datagram-size":1200},
            {"name":"c3","ip":"198.51.100.3","enabled":false}],
        "interface":[
            {"name":"eth1","sampling-rate":1024,
             "flow-sampling-collector":[{"name":"c1"},{"name":"c2"}],
             "counter-sampling-collector":[{"name":"c1"}]},
            {"name":"eth2",
             "flow-sampling-collector":[{"name":"c3"}],
             "counter-sampling-collector":[{"name":"c2"}]},
            {"name":"eth3","sampling-rate":2048}])");
}

std::string SflowXml(const std::string& content, const std::string& attributes)
{
    return R"(<config xmlns="urn:switch:yang:switch-config"><oam xmlns="urn:switch:yang:switch-oam-sflow">)"
           R"(<sflow xmlns:nc="urn:ietf:params:xml:ns:netconf:base:1.0")" +
           (attributes.empty() ? "" : " " + attributes) + ">" + content + "</sflow></oam></config>";
}

std::vector<Load> Loads()
{
    return {
        {"nothing configured: the agent address alone", "{}", {"SetAgentAddress 0.0.0.0"}},
        {"no agent address: the management interface's",
         Switch("", R"({"name":"mgmt0","ipv4":{"address":{"ip":"10.0.0.5/24"}}})"),
         {"SetAgentAddress 10.0.0.5"}},
        {"no agent address: the first management interface's, by name",
         Switch("", R"({"name":"mgmt1","ipv4":{"address":{"ip":"10.0.0.6/24"}}},
                       {"name":"mgmt0","ipv4":{"address":{"ip":"10.0.0.5/24"}}})"),
         {"SetAgentAddress 10.0.0.5"}},
        {"the usual configuration",
         Usual(),
         {"SetAgentAddress 192.0.2.9", "AddCollector c1 198.51.100.1 6343 1400",
          "AddCollector c2 198.51.100.2 7000 1200", "UpdateInterface eth1 c1 - 1024 2 128 20",
          "AddSampleCollector eth1 c2", "AddCounterCollector eth1 c1",
          "UpdateInterface eth2 - c2 4096 2 128 20"}},
        {"names in ascending byte order",
         Switch(R"("collector":[{"name":"b","ip":"198.51.100.3"},{"name":"abc","ip":"198.51.100.2"},
                       {"name":"ab","ip":"198.51.100.1"},{"name":"B","ip":"198.51.100.4"}],
                   "interface":[
                       {"name":"eth2","flow-sampling-collector":[{"name":"b"},{"name":"ab"}]},
                       {"name":"eth10","counter-sampling-collector":[{"name":"abc"},{"name":"B"}]}])"),
         {"SetAgentAddress 192.0.2.10", "AddCollector B 198.51.100.4 6343 1400",
          "AddCollector ab 198.51.100.1 6343 1400", "AddCollector abc 198.51.100.2 6343 1400",
          "AddCollector b 198.51.100.3 6343 1400", "UpdateInterface eth10 - B 4096 2 128 20",
          "AddCounterCollector eth10 abc", "UpdateInterface eth2 ab - 4096 2 128 20",
          "AddSampleCollector eth2 b"}},
        {"every number of an interface, at its bounds",
         Switch(R"("collector":[{"name":"c1","ip":"198.51.100.1","port":65535,"datagram-size":9000},
                       {"name":"c2","ip":"198.51.100.2","port":1,"datagram-size":200}],
                   "interface":[
                       {"name":"eth1","sampling-rate":16777215,"max-header-size":512,"polling-interval":3600,
                        "flow-sampling-collector":[{"name":"c1"}]},
                       {"name":"eth2","sampling-rate":1,"max-header-size":16,"polling-interval":0,
                        "flow-sampling-collector":[{"name":"c2"}]}])"),
         {"SetAgentAddress 192.0.2.10", "AddCollector c1 198.51.100.1 65535 9000",
          "AddCollector c2 198.51.100.2 1 200", "UpdateInterface eth1 c1 - 16777215 2 512 3600",
          "UpdateInterface eth2 c2 - 1 2 16 0"}},
        {"an interface whose collectors are all disabled",
         Switch(R"("collector":[{"name":"c1","ip":"198.51.100.1","enabled":false}],
                   "interface":[{"name":"eth1","flow-sampling-collector":[{"name":"c1"}],
                                 "counter-sampling-collector":[{"name":"c1"}]}])"),
         {"SetAgentAddress 192.0.2.10"}},
        {"an explicit default rate without a rate",
         Switch(R"("collector":[{"name":"c1","ip":"198.51.100.1"}],
                   "interface":[{"name":"eth1","default-sampling-rate":777,
                                 "flow-sampling-collector":[{"name":"c1"}]}])"),
         {"SetAgentAddress 192.0.2.10", "AddCollector c1 198.51.100.1 6343 1400",
          "UpdateInterface eth1 c1 - 777 2 128 20"}},
        {"names with the characters of port names",
         Switch(R"("collector":[{"name":"noc-1.example","ip":"198.51.100.1"}],
                   "interface":[{"name":"gigabit-ethernet-1/1/1","sampling-rate":512,
                                 "flow-sampling-collector":[{"name":"noc-1.example"}]},
                                {"name":"100%","sampling-rate":512,
                                 "counter-sampling-collector":[{"name":"noc-1.example"}]}])"),
         {"SetAgentAddress 192.0.2.10", "AddCollector noc-1.example 198.51.100.1 6343 1400",
          "UpdateInterface 100% - noc-1.example 512 2 128 20",
          "UpdateInterface gigabit-ethernet-1/1/1 noc-1.example - 512 2 128 20"}},
    };
}

}  // namespace scenario
