// SPDX-License-Identifier: Apache-2.0
// The configurations that are measured (see the header).

#include "figures/switch_data.h"

#include <fmt/format.h>

#include <array>

namespace figures {

namespace {

struct Lists {
    std::array<std::size_t, 2> flow;
    std::size_t counter;
};

Lists ListsOf(std::size_t interface)
{
    return {{interface % kCollectors, (interface + 1) % kCollectors}, (interface + 2) % kCollectors};
}

std::string CollectorsXml()
{
    std::string xml;
    for (std::size_t i = 0; i < kCollectors; ++i)
        xml += fmt::format("<collector><name>{}</name><ip>198.51.100.{}</ip></collector>", CollectorName(i),
                           i + 1);
    return xml;
}

constexpr const char* kAgentXml = "<agent><ipv4>192.0.2.9</ipv4></agent>";

}  // namespace

std::string InterfaceName(std::size_t index)
{
    return fmt::format("gigabit-ethernet-{}/{}", index / 100, index % 100);
}

std::string CollectorName(std::size_t index) { return fmt::format("c{}", index); }

std::size_t UsersOf(std::size_t collector, std::size_t count)
{
    std::size_t users = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const auto lists = ListsOf(i);
        users +=
            lists.flow[0] == collector || lists.flow[1] == collector || lists.counter == collector ? 1 : 0;
    }
    return users;
}

std::string SflowXml(const std::string& content, const std::string& attributes)
{
    return fmt::format(
        "<config xmlns=\"urn:switch:yang:switch-config\"><oam xmlns=\"urn:switch:yang:switch-oam-sflow\">"
        "<sflow xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" {}>{}</sflow></oam></config>",
        attributes, content);
}

std::string SwitchXml(std::size_t interfaces)
{
    std::string content = kAgentXml + CollectorsXml();
    for (std::size_t i = 0; i < interfaces; ++i) {
        const auto lists = ListsOf(i);
        content += fmt::format(
            "<interface><name>{}</name><sampling-rate>{}</sampling-rate>"
            "<flow-sampling-collector><name>{}</name></flow-sampling-collector>"
            "<flow-sampling-collector><name>{}</name></flow-sampling-collector>"
            "<counter-sampling-collector><name>{}</name></counter-sampling-collector></interface>",
            InterfaceName(i), 1000 + i % 100, CollectorName(lists.flow[0]), CollectorName(lists.flow[1]),
            CollectorName(lists.counter));
    }
    return SflowXml(content);
}

std::string SwitchJson(std::size_t interfaces)
{
    std::string collectors;
    for (std::size_t i = 0; i < kCollectors; ++i)
        collectors += fmt::format(R"({}{{"name":"{}","ip":"198.51.100.{}"}})", i == 0 ? "" : ",",
                                  CollectorName(i), i + 1);
    std::string entries;
    for (std::size_t i = 0; i < interfaces; ++i) {
        const auto lists = ListsOf(i);
        entries += fmt::format(
            R"({}{{"name":"{}","sampling-rate":{},"default-sampling-rate":8192,"flow-sampling-collector":)"
            R"([{{"name":"{}"}},{{"name":"{}"}}],"counter-sampling-collector":[{{"name":"{}"}}]}})",
            i == 0 ? "" : ",", InterfaceName(i), 1000 + i % 100, CollectorName(lists.flow[0]),
            CollectorName(lists.flow[1]), CollectorName(lists.counter));
    }
    return fmt::format(
        R"({{"switch-config:config":{{"switch-oam-sflow:oam":{{"sflow":{{"agent":{{"ipv4":"192.0.2.9"}},)"
        R"("collector":[{}],"interface":[{}]}}}}}}}})",
        collectors, entries);
}

std::string WithoutInterfacesXml()
{
    return SflowXml(kAgentXml + CollectorsXml(), "nc:operation=\"replace\"");
}

std::string RateXml(std::size_t interface, std::size_t rate)
{
    return SflowXml(fmt::format("<interface><name>{}</name><sampling-rate>{}</sampling-rate></interface>",
                                InterfaceName(interface), rate));
}

std::string RatesXml(std::size_t interfaces, std::size_t rate)
{
    std::string content;
    for (std::size_t i = 0; i < interfaces; ++i)
        content += fmt::format("<interface><name>{}</name><sampling-rate>{}</sampling-rate></interface>",
                               InterfaceName(i), rate);
    return SflowXml(content);
}

std::string EnabledXml(std::size_t collector, bool enabled)
{
    return SflowXml(fmt::format("<collector><name>{}</name><enabled>{}</enabled></collector>",
                                CollectorName(collector), enabled));
}

}  // namespace figures
