// SPDX-License-Identifier: Apache-2.0
// Scenarios of collectors: created, changed, enabled, disabled, deleted.

#include "scenario/scenario.h"

namespace scenario {

namespace {

// eth1 lists c1 and c2, both disabled.
std::string TwoDisabled()
{
    return Switch(R"("agent":{"ipv4":"192.0.2.9"},
        "collector":[{"name":"c1","ip":"198.51.100.1","enabled":false},
                     {"name":"c2","ip":"198.51.100.2","enabled":false}],
        "interface":[{"name":"eth1","flow-sampling-collector":[{"name":"c1"},{"name":"c2"}]}])");
}

std::vector<Scenario> Changed()
{
    return {
        {"created",
         Usual(),
         "set oam sflow collector c4 ip 198.51.100.4",
         {},
         {"AddCollector c4 198.51.100.4 6343 1400"}},
        {"created with every leaf",
         Usual(),
         "set oam sflow collector c4 ip 198.51.100.4; set oam sflow collector c4 port 9999; "
         "set oam sflow collector c4 datagram-size 512",
         {},
         {"AddCollector c4 198.51.100.4 9999 512"}},
        {"created enabled in so many words",
         Usual(),
         "",
         {SflowXml("<collector><name>c4</name><enabled>true</enabled><ip>198.51.100.4</ip></collector>")},
         {"AddCollector c4 198.51.100.4 6343 1400"}},
        {"created disabled: its deletion is sent",
         Usual(),
         "set oam sflow collector c4 ip 198.51.100.4; set oam sflow collector c4 enabled false",
         {},
         {"DeleteCollector c4"}},
        {"created twice in names that differ in case",
         Usual(),
         "set oam sflow collector C4 ip 198.51.100.4; set oam sflow collector c4 ip 198.51.100.5",
         {},
         {"AddCollector C4 198.51.100.4 6343 1400", "AddCollector c4 198.51.100.5 6343 1400"}},
        {"port changed",
         Usual(),
         "set oam sflow collector c1 port 6344",
         {},
         {"AddCollector c1 198.51.100.1 6344 1400"}},
        {"port back to its default",
         Usual(),
         "delete oam sflow collector c2 port",
         {},
         {"AddCollector c2 198.51.100.2 6343 1200"}},
        {"address, port and datagram size changed: one call",
         Usual(),
         "set oam sflow collector c1 ip 203.0.113.1; set oam sflow collector c1 port 1; "
         "set oam sflow collector c1 datagram-size 9000",
         {},
         {"AddCollector c1 203.0.113.1 1 9000"}},
        {"a disabled one changed", Usual(), "set oam sflow collector c3 port 6344", {}, {}},
        {"set to its default in so many words", Usual(), "set oam sflow collector c1 port 6343", {}, {}},
        {"two changed: in the order of their names",
         Usual(),
         "set oam sflow collector c2 port 1002; set oam sflow collector c1 port 1001",
         {},
         {"AddCollector c1 198.51.100.1 1001 1400", "AddCollector c2 198.51.100.2 1002 1200"}},
    };
}

std::vector<Scenario> Switched()
{
    return {
        {"disabled: detached everywhere, then deleted",
         Usual(),
         "set oam sflow collector c1 enabled false",
         {},
         {"RemoveSampleCollector eth1 c1", "RemoveCounterCollector eth1 c1", "DeleteCollector c1"}},
        {"disabled: an interface's last one unsets it",
         Usual(),
         "set oam sflow collector c2 enabled false",
         {},
         {"RemoveSampleCollector eth1 c2", "UnsetInterface eth2", "DeleteCollector c2"}},
        {"enabled: sent, then attached",
         Usual(),
         "set oam sflow collector c3 enabled true",
         {},
         {"AddCollector c3 198.51.100.3 6343 1400", "UpdateInterface eth2 c3 - 4096 2 128 20"}},
        {"enabled by deleting the leaf",
         Usual(),
         "delete oam sflow collector c3 enabled",
         {},
         {"AddCollector c3 198.51.100.3 6343 1400", "UpdateInterface eth2 c3 - 4096 2 128 20"}},
        {"enabled and changed: one call with the new port",
         Usual(),
         "set oam sflow collector c3 enabled true; set oam sflow collector c3 port 6350",
         {},
         {"AddCollector c3 198.51.100.3 6350 1400", "UpdateInterface eth2 c3 - 4096 2 128 20"}},
        {"disabled and changed: not sent",
         Usual(),
         "set oam sflow collector c1 enabled false; set oam sflow collector c1 port 6350",
         {},
         {"RemoveSampleCollector eth1 c1", "RemoveCounterCollector eth1 c1", "DeleteCollector c1"}},
        {"two enabled at once: the later one alone is attached",
         TwoDisabled(),
         "set oam sflow collector c1 enabled true; set oam sflow collector c2 enabled true",
         {},
         {"AddCollector c1 198.51.100.1 6343 1400", "AddCollector c2 198.51.100.2 6343 1400",
          "UpdateInterface eth1 c2 - 4096 2 128 20"}},
        {"two disabled at once",
         Usual(),
         "set oam sflow collector c1 enabled false; set oam sflow collector c2 enabled false",
         {},
         {"UnsetInterface eth1", "UnsetInterface eth2", "DeleteCollector c1", "DeleteCollector c2"}},
        {"enabled, used by nobody",
         Switch(R"("collector":[{"name":"c1","ip":"198.51.100.1","enabled":false}])"),
         "set oam sflow collector c1 enabled true",
         {},
         {"AddCollector c1 198.51.100.1 6343 1400"}},
    };
}

std::vector<Scenario> Deleted()
{
    return {
        {"deleted, used by nobody",
         Switch(R"("collector":[{"name":"c1","ip":"198.51.100.1"}])"),
         "delete oam sflow collector c1",
         {},
         {"DeleteCollector c1"}},
        {"deleted with its references",
         Usual(),
         "delete oam sflow interface eth1 flow-sampling-collector c1; "
         "delete oam sflow interface eth1 counter-sampling-collector c1; delete oam sflow collector c1",
         {},
         {"RemoveSampleCollector eth1 c1", "RemoveCounterCollector eth1 c1", "DeleteCollector c1"}},
        {"deleted with its references, the last of an interface",
         Usual(),
         "delete oam sflow interface eth1 flow-sampling-collector c2; "
         "delete oam sflow interface eth2 counter-sampling-collector c2; delete oam sflow collector c2",
         {},
         {"RemoveSampleCollector eth1 c2", "UnsetInterface eth2", "DeleteCollector c2"}},
        {"a disabled one deleted with its reference",
         Usual(),
         "delete oam sflow interface eth2 flow-sampling-collector c3; delete oam sflow collector c3",
         {},
         {"RemoveSampleCollector eth2 c3", "DeleteCollector c3"}},
        {"deleted and created anew with another address: changed",
         Usual(),
         "",
         {SflowXml(R"(<collector nc:operation="delete"><name>c1</name></collector>)"),
          SflowXml("<collector><name>c1</name><ip>203.0.113.1</ip></collector>")},
         {"AddCollector c1 203.0.113.1 6343 1400"}},
        {"deleted and created anew as it was: nothing",
         Usual(),
         "",
         {SflowXml(R"(<collector nc:operation="delete"><name>c1</name></collector>)"),
          SflowXml("<collector><name>c1</name><ip>198.51.100.1</ip></collector>")},
         {}},
        {"replaced by itself with fewer leaves",
         Usual(),
         "",
         {SflowXml(R"(<collector nc:operation="replace"><name>c2</name><ip>198.51.100.2</ip></collector>)")},
         {"AddCollector c2 198.51.100.2 6343 1400"}},
    };
}

}  // namespace

std::vector<Scenario> CollectorScenarios()
{
    auto all = Changed();
    for (const auto& more : {Switched(), Deleted()}) all.insert(all.end(), more.begin(), more.end());
    return all;
}

}  // namespace scenario
