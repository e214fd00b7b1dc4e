// SPDX-License-Identifier: Apache-2.0
// Scenarios of interfaces: their numbers, their collectors, created and deleted.

#include "scenario/scenario.h"

namespace scenario {

namespace {

std::vector<Scenario> Numbers()
{
    return {
        {"rate changed",
         Usual(),
         "set oam sflow interface eth1 sampling-rate 2048",
         {},
         {"UpdateInterface eth1 - - 2048 2 128 20"}},
        {"header size changed",
         Usual(),
         "set oam sflow interface eth1 max-header-size 256",
         {},
         {"UpdateInterface eth1 - - 1024 2 256 20"}},
        {"polling switched off",
         Usual(),
         "set oam sflow interface eth2 polling-interval 0",
         {},
         {"UpdateInterface eth2 - - 4096 2 128 0"}},
        {"all three changed: one call",
         Usual(),
         "set oam sflow interface eth1 sampling-rate 1; set oam sflow interface eth1 max-header-size 16; "
         "set oam sflow interface eth1 polling-interval 3600",
         {},
         {"UpdateInterface eth1 - - 1 2 16 3600"}},
        {"numbers of an interface without collectors",
         Usual(),
         "set oam sflow interface eth3 sampling-rate 1",
         {},
         {}},
        {"a number set to what it is", Usual(), "set oam sflow interface eth1 sampling-rate 1024", {}, {}},
        {"two changed: eth10 before eth2",
         Switch(R"("agent":{"ipv4":"192.0.2.9"},"collector":[{"name":"c1","ip":"198.51.100.1"}],
                   "interface":[{"name":"eth2","flow-sampling-collector":[{"name":"c1"}]},
                                {"name":"eth10","flow-sampling-collector":[{"name":"c1"}]}])"),
         "set oam sflow interface eth2 sampling-rate 2; set oam sflow interface eth10 sampling-rate 10",
         {},
         {"UpdateInterface eth10 - - 10 2 128 20", "UpdateInterface eth2 - - 2 2 128 20"}},
    };
}

std::vector<Scenario> Attachments()
{
    return {
        {"flow collector added",
         Usual(),
         "set oam sflow interface eth2 flow-sampling-collector c1",
         {},
         {"UpdateInterface eth2 c1 - 4096 2 128 20"}},
        {"counter collector added",
         Usual(),
         "set oam sflow interface eth1 counter-sampling-collector c2",
         {},
         {"UpdateInterface eth1 - c2 1024 2 128 20"}},
        {"a first collector",
         Usual(),
         "set oam sflow interface eth3 counter-sampling-collector c1",
         {},
         {"UpdateInterface eth3 - c1 2048 2 128 20"}},
        {"a disabled collector added",
         Usual(),
         "set oam sflow interface eth1 flow-sampling-collector c3",
         {},
         {}},
        {"a disabled collector removed: its removal is sent",
         Usual(),
         "delete oam sflow interface eth2 flow-sampling-collector c3",
         {},
         {"RemoveSampleCollector eth2 c3"}},
        {"flow collector removed",
         Usual(),
         "delete oam sflow interface eth1 flow-sampling-collector c1",
         {},
         {"RemoveSampleCollector eth1 c1"}},
        {"counter collector removed",
         Usual(),
         "delete oam sflow interface eth1 counter-sampling-collector c1",
         {},
         {"RemoveCounterCollector eth1 c1"}},
        {"all removed: the interface is unset",
         Usual(),
         "delete oam sflow interface eth1 flow-sampling-collector c1; "
         "delete oam sflow interface eth1 flow-sampling-collector c2; "
         "delete oam sflow interface eth1 counter-sampling-collector c1",
         {},
         {"UnsetInterface eth1"}},
        {"removed while a number changes",
         Usual(),
         "delete oam sflow interface eth1 flow-sampling-collector c2; set oam sflow interface eth1 "
         "sampling-rate 2048",
         {},
         {"UpdateInterface eth1 - - 2048 2 128 20", "RemoveSampleCollector eth1 c2"}},
        {"one removed, three added: the first one rides with the numbers",
         Switch(R"("agent":{"ipv4":"192.0.2.9"},
                   "collector":[{"name":"c0","ip":"198.51.100.10"},{"name":"c1","ip":"198.51.100.1"},
                                {"name":"c2","ip":"198.51.100.2"},{"name":"c3","ip":"198.51.100.3"}],
                   "interface":[{"name":"eth1","flow-sampling-collector":[{"name":"c0"}]}])"),
         "delete oam sflow interface eth1 flow-sampling-collector c0; "
         "set oam sflow interface eth1 flow-sampling-collector c1; "
         "set oam sflow interface eth1 flow-sampling-collector c2; "
         "set oam sflow interface eth1 counter-sampling-collector c3",
         {},
         {"UpdateInterface eth1 c1 - 4096 2 128 20", "AddSampleCollector eth1 c2",
          "AddCounterCollector eth1 c3", "RemoveSampleCollector eth1 c0"}},
    };
}

std::vector<Scenario> Entries()
{
    return {
        {"created without collectors", Usual(), "set oam sflow interface eth4 sampling-rate 100", {}, {}},
        {"created with an enabled and a disabled collector",
         Usual(),
         "set oam sflow interface eth4 flow-sampling-collector c1; set oam sflow interface eth4 "
         "flow-sampling-collector c3",
         {},
         {"UpdateInterface eth4 c1 - 4096 2 128 20"}},
        {"created with a disabled collector alone",
         Usual(),
         "set oam sflow interface eth4 flow-sampling-collector c3",
         {},
         {}},
        {"created with both kinds and every number",
         Usual(),
         "",
         {SflowXml("<interface><name>eth4</name><sampling-rate>100</sampling-rate><max-header-size>64</"
                   "max-header-size>"
                   "<polling-interval>5</polling-interval><flow-sampling-collector><name>c2</name></"
                   "flow-sampling-collector>"
                   "<flow-sampling-collector><name>c1</name></flow-sampling-collector>"
                   "<counter-sampling-collector><name>c2</name></counter-sampling-collector></interface>")},
         {"UpdateInterface eth4 c1 - 100 2 64 5", "AddSampleCollector eth4 c2",
          "AddCounterCollector eth4 c2"}},
        {"two created: eth10 before eth2a",
         Usual(),
         "set oam sflow interface eth2a flow-sampling-collector c1; set oam sflow interface eth10 "
         "flow-sampling-collector c1",
         {},
         {"UpdateInterface eth10 c1 - 4096 2 128 20", "UpdateInterface eth2a c1 - 4096 2 128 20"}},
        {"deleted", Usual(), "delete oam sflow interface eth1", {}, {"UnsetInterface eth1"}},
        {"deleted, without collectors",
         Usual(),
         "delete oam sflow interface eth3",
         {},
         {"UnsetInterface eth3"}},
        {"deleted and created anew with less: the difference",
         Usual(),
         "",
         {SflowXml(R"(<interface nc:operation="delete"><name>eth1</name></interface>)"),
          SflowXml(
              "<interface><name>eth1</name><flow-sampling-collector><name>c1</name></flow-sampling-collector>"
              "</interface>")},
         {"UpdateInterface eth1 - - 4096 2 128 20", "RemoveSampleCollector eth1 c2",
          "RemoveCounterCollector eth1 c1"}},
        {"replaced by one with other collectors",
         Usual(),
         "",
         {SflowXml(R"(<interface nc:operation="replace"><name>eth1</name><sampling-rate>1024</sampling-rate>)"
                   "<flow-sampling-collector><name>c2</name></flow-sampling-collector>"
                   "<counter-sampling-collector><name>c2</name></counter-sampling-collector></interface>")},
         {"UpdateInterface eth1 - c2 1024 2 128 20", "RemoveSampleCollector eth1 c1",
          "RemoveCounterCollector eth1 c1"}},
        {"created and deleted before the commit: nothing",
         Usual(),
         "set oam sflow interface eth4 flow-sampling-collector c1; delete oam sflow interface eth4",
         {},
         {}},
    };
}

}  // namespace

std::vector<Scenario> InterfaceScenarios()
{
    auto all = Numbers();
    for (const auto& more : {Attachments(), Entries()}) all.insert(all.end(), more.begin(), more.end());
    return all;
}

}  // namespace scenario
