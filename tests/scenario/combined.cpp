// SPDX-License-Identifier: Apache-2.0
// Scenarios of commits that touch several things, and of everything replaced or deleted.

#include "scenario/scenario.h"

namespace scenario {

namespace {

// Usual() in XML, as the content of the sflow container.
std::string UsualXml()
{
    return "<agent><ipv4>192.0.2.9</ipv4></agent>"
           "<collector><name>c1</name><ip>198.51.100.1</ip></collector>"
           "<collector><name>c2</name><ip>198.51.100.2</ip><datagram-size>1200</datagram-size><port>7000</"
           "port></collector>"
           "<collector><name>c3</name><enabled>false</enabled><ip>198.51.100.3</ip></collector>"
           "<interface><name>eth1</name><sampling-rate>1024</sampling-rate>"
           "<flow-sampling-collector><name>c1</name></flow-sampling-collector>"
           "<flow-sampling-collector><name>c2</name></flow-sampling-collector>"
           "<counter-sampling-collector><name>c1</name></counter-sampling-collector></interface>"
           "<interface><name>eth2</name><flow-sampling-collector><name>c3</name></flow-sampling-collector>"
           "<counter-sampling-collector><name>c2</name></counter-sampling-collector></interface>"
           "<interface><name>eth3</name><sampling-rate>2048</sampling-rate></interface>";
}

std::vector<Scenario> Everything()
{
    return {
        {"sflow replaced by what it is",
         Usual(),
         "",
         {SflowXml(UsualXml(), R"(nc:operation="replace")")},
         {}},
        {"sflow deleted: everything by itself",
         Usual(),
         "",
         {SflowXml("", R"(nc:operation="delete")")},
         {"SetAgentAddress 192.0.2.10", "UnsetInterface eth1", "UnsetInterface eth2", "UnsetInterface eth3",
          "DeleteCollector c1", "DeleteCollector c2", "DeleteCollector c3"}},
        {"sflow deleted, then created as it was",
         Usual(),
         "",
         {SflowXml("", R"(nc:operation="delete")"), SflowXml(UsualXml())},
         {}},
        {"sflow replaced by something else",
         Usual(),
         "",
         {SflowXml("<collector><name>c1</name><ip>198.51.100.1</ip><port>6344</port></collector>"
                   "<collector><name>c9</name><ip>198.51.100.9</ip></collector>"
                   "<interface><name>eth2</name><flow-sampling-collector><name>c9</name></"
                   "flow-sampling-collector></interface>"
                   "<interface><name>gigabit-ethernet-1/1/1</name>"
                   "<counter-sampling-collector><name>c1</name></counter-sampling-collector></interface>",
                   R"(nc:operation="replace")")},
         {"SetAgentAddress 192.0.2.10", "AddCollector c1 198.51.100.1 6344 1400",
          "AddCollector c9 198.51.100.9 6343 1400", "UnsetInterface eth1",
          "UpdateInterface eth2 c9 - 4096 2 128 20", "RemoveSampleCollector eth2 c3",
          "RemoveCounterCollector eth2 c2", "UnsetInterface eth3",
          "UpdateInterface gigabit-ethernet-1/1/1 - c1 8192 2 128 20", "DeleteCollector c2",
          "DeleteCollector c3"}},
        {"first configuration of an empty switch",
         "{}",
         "",
         {SflowXml(UsualXml())},
         {"SetAgentAddress 192.0.2.9", "AddCollector c1 198.51.100.1 6343 1400",
          "AddCollector c2 198.51.100.2 7000 1200", "UpdateInterface eth1 c1 - 1024 2 128 20",
          "AddSampleCollector eth1 c2", "AddCounterCollector eth1 c1",
          "UpdateInterface eth2 - c2 4096 2 128 20", "RemoveSampleCollector eth2 c3", "DeleteCollector c3"}},
    };
}

std::vector<Scenario> Several()
{
    return {
        {"agent, a new collector attached, a rate, a deletion",
         Usual(),
         "set oam sflow agent ipv4 192.0.2.20; set oam sflow collector c4 ip 198.51.100.4; "
         "set oam sflow interface eth1 flow-sampling-collector c4; set oam sflow interface eth2 "
         "sampling-rate 512; "
         "delete oam sflow interface eth3",
         {},
         {"SetAgentAddress 192.0.2.20", "AddCollector c4 198.51.100.4 6343 1400",
          "UpdateInterface eth1 c4 - 1024 2 128 20", "UpdateInterface eth2 - - 512 2 128 20",
          "UnsetInterface eth3"}},
        {"a collector disabled while a rate changes",
         Usual(),
         "set oam sflow collector c1 enabled false; set oam sflow interface eth1 sampling-rate 2048",
         {},
         {"UpdateInterface eth1 - - 2048 2 128 20", "RemoveSampleCollector eth1 c1",
          "RemoveCounterCollector eth1 c1", "DeleteCollector c1"}},
        {"a collector enabled for a new interface",
         Usual(),
         "set oam sflow collector c3 enabled true; set oam sflow interface eth4 flow-sampling-collector c1; "
         "set oam sflow interface eth4 flow-sampling-collector c3",
         {},
         {"AddCollector c3 198.51.100.3 6343 1400", "UpdateInterface eth2 c3 - 4096 2 128 20",
          "UpdateInterface eth4 c1 - 4096 2 128 20", "AddSampleCollector eth4 c3"}},
        {"a collector disabled while an interface that lists it goes",
         Usual(),
         "set oam sflow collector c1 enabled false; delete oam sflow interface eth1",
         {},
         {"UnsetInterface eth1", "DeleteCollector c1"}},
        {"a collector changed and another deleted",
         Usual(),
         "set oam sflow collector c1 port 6344; delete oam sflow interface eth2 flow-sampling-collector c3; "
         "delete oam sflow collector c3",
         {},
         {"AddCollector c1 198.51.100.1 6344 1400", "RemoveSampleCollector eth2 c3", "DeleteCollector c3"}},
        {"one collector exchanged for another everywhere",
         Usual(),
         "set oam sflow collector c4 ip 198.51.100.4; "
         "set oam sflow interface eth1 flow-sampling-collector c4; set oam sflow interface eth1 "
         "counter-sampling-collector c4; "
         "delete oam sflow interface eth1 flow-sampling-collector c1; "
         "delete oam sflow interface eth1 counter-sampling-collector c1; delete oam sflow collector c1",
         {},
         {"AddCollector c4 198.51.100.4 6343 1400", "UpdateInterface eth1 c4 - 1024 2 128 20",
          "AddCounterCollector eth1 c4", "RemoveSampleCollector eth1 c1", "RemoveCounterCollector eth1 c1",
          "DeleteCollector c1"}},
        {"changed and changed back before the commit: nothing",
         Usual(),
         "set oam sflow interface eth1 sampling-rate 1; set oam sflow interface eth1 sampling-rate 1024",
         {},
         {}},
    };
}

}  // namespace

std::vector<Scenario> CombinedScenarios()
{
    auto all = Everything();
    for (const auto& more : Several()) all.push_back(more);
    return all;
}

}  // namespace scenario
