// SPDX-License-Identifier: Apache-2.0
// Scenarios of the default sampling rate: by speed class, overridden, followed by the rate.

#include "scenario/scenario.h"

namespace scenario {

namespace {

std::string Created(const std::string& name, const std::string& leaves = {})
{
    return "<interface><name>" + name + "</name>" + leaves +
           "<flow-sampling-collector><name>c1</name></flow-sampling-collector></interface>";
}

}  // namespace

std::vector<Scenario> DefaultRateScenarios()
{
    return {
        {"by speed class",
         Usual(),
         "",
         {SflowXml(Created("twenty-five-g-ethernet-1/1/5") + Created("ten-gigabit-ethernet-1/1/4") +
                   Created("hundred-gigabit-ethernet-1/1/3") + Created("gigabit-ethernet-1/1/2") +
                   Created("forty-gigabit-ethernet") + Created("gigabit") +
                   Created("Gigabit-ethernet-1/1/1") + Created("ae0"))},
         {"UpdateInterface Gigabit-ethernet-1/1/1 c1 - 4096 2 128 20",
          "UpdateInterface ae0 c1 - 4096 2 128 20",
          "UpdateInterface forty-gigabit-ethernet c1 - 81920 2 128 20",
          "UpdateInterface gigabit c1 - 4096 2 128 20",
          "UpdateInterface gigabit-ethernet-1/1/2 c1 - 8192 2 128 20",
          "UpdateInterface hundred-gigabit-ethernet-1/1/3 c1 - 204800 2 128 20",
          "UpdateInterface ten-gigabit-ethernet-1/1/4 c1 - 20480 2 128 20",
          "UpdateInterface twenty-five-g-ethernet-1/1/5 c1 - 51200 2 128 20"}},
        {"through the shell, word by word",
         Usual(),
         "set oam sflow interface gigabit-ethernet-1/1/1 flow-sampling-collector c1",
         {},
         {"UpdateInterface gigabit-ethernet-1/1/1 c1 - 8192 2 128 20"}},
        {"an explicit default wins",
         Usual(),
         "",
         {SflowXml(Created("gigabit-ethernet-1/1/1", "<default-sampling-rate>777</default-sampling-rate>"))},
         {"UpdateInterface gigabit-ethernet-1/1/1 c1 - 777 2 128 20"}},
        {"an explicit rate wins",
         Usual(),
         "",
         {SflowXml(Created("gigabit-ethernet-1/1/1", "<sampling-rate>555</sampling-rate>"))},
         {"UpdateInterface gigabit-ethernet-1/1/1 c1 - 555 2 128 20"}},
        {"create of the default is no error",
         Usual(),
         "",
         {SflowXml(Created("gigabit-ethernet-1/1/1",
                           R"(<default-sampling-rate nc:operation="create">778</default-sampling-rate>)"))},
         {"UpdateInterface gigabit-ethernet-1/1/1 c1 - 778 2 128 20"}},
        {"the rate falls back to the class's default",
         Usual(),
         "",
         {SflowXml(Created("gigabit-ethernet-1/1/1", "<sampling-rate>555</sampling-rate>")),
          SflowXml(
              R"(<interface><name>gigabit-ethernet-1/1/1</name><sampling-rate nc:operation="remove"/></interface>)")},
         {"UpdateInterface gigabit-ethernet-1/1/1 c1 - 8192 2 128 20"}},
        {"a change of the default is followed",
         Usual(),
         "set oam sflow interface eth2 default-sampling-rate 1000",
         {},
         {"UpdateInterface eth2 - - 1000 2 128 20"}},
        {"a change of the default under an explicit rate",
         Usual(),
         "set oam sflow interface eth1 default-sampling-rate 1000",
         {},
         {}},
        {"an explicit rate deleted: back to the default",
         Usual(),
         "delete oam sflow interface eth1 sampling-rate",
         {},
         {"UpdateInterface eth1 - - 4096 2 128 20"}},
        {"an explicit rate deleted while the default changes",
         Usual(),
         "delete oam sflow interface eth1 sampling-rate; set oam sflow interface eth1 default-sampling-rate "
         "1024",
         {},
         {}},
        {"the rate set to what the default gives: nothing",
         Usual(),
         "set oam sflow interface eth2 sampling-rate 4096",
         {},
         {}},
        {"replaced: its class's default anew",
         Switch(R"("agent":{"ipv4":"192.0.2.9"},"collector":[{"name":"c1","ip":"198.51.100.1"}],
                   "interface":[{"name":"gigabit-ethernet-1/1/1","default-sampling-rate":100,
                                 "flow-sampling-collector":[{"name":"c1"}]}])"),
         "",
         {SflowXml(R"(<interface nc:operation="replace"><name>gigabit-ethernet-1/1/1</name>)"
                   "<flow-sampling-collector><name>c1</name></flow-sampling-collector></interface>")},
         {"UpdateInterface gigabit-ethernet-1/1/1 - - 8192 2 128 20"}},
        {"merged into: the default stays",
         Switch(R"("agent":{"ipv4":"192.0.2.9"},"collector":[{"name":"c1","ip":"198.51.100.1"}],
                   "interface":[{"name":"gigabit-ethernet-1/1/1","default-sampling-rate":100,
                                 "flow-sampling-collector":[{"name":"c1"}]}])"),
         "set oam sflow interface gigabit-ethernet-1/1/1 polling-interval 30",
         {},
         {"UpdateInterface gigabit-ethernet-1/1/1 - - 100 2 128 30"}},
    };
}

}  // namespace scenario
