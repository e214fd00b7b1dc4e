// SPDX-License-Identifier: Apache-2.0
#include "fakes/fake_schema.h"

#include <arpa/inet.h>
#include <switch_schema.h>

#include <algorithm>
#include <stdexcept>

namespace fakes {

Ipv4 Address(const std::string& text)
{
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
        throw std::invalid_argument("no IPv4 address: " + text);
    return {address.s_addr};
}

Ipv4Plen AddressAndLength(const std::string& text)
{
    const auto slash = text.find('/');
    if (slash == std::string::npos) throw std::invalid_argument("no prefix length: " + text);
    return {Address(text.substr(0, slash)).word,
            static_cast<std::uint8_t>(std::stoul(text.substr(slash + 1)))};
}

const std::vector<SchemaNode>& Schema()
{
    namespace s = switch_schema;
    using NodeKind = SchemaNode::Kind;
    const Value none;
    const Value text = std::string();
    const Value flag = false;
    const Value u16 = std::uint16_t{};
    const Value u32 = std::uint32_t{};
    const auto u16Is = [](std::uint16_t value) { return Value(value); };
    const auto list = [](std::string path, std::uint32_t tag) {
        return SchemaNode{std::move(path), NodeKind::kList, {}, {}, {}, tag, s::ns_switch_oam_sflow};
    };
    const auto container = [](std::string path, std::uint32_t tag, std::int32_t ns) {
        return SchemaNode{std::move(path), NodeKind::kContainer, {}, {}, {}, tag, ns};
    };
    const auto leaf = [](std::string path, std::uint32_t tag, Value type, Value value = {},
                         std::string ref = {}, std::int32_t ns = s::ns_switch_oam_sflow) {
        return SchemaNode{
            std::move(path), NodeKind::kLeaf, std::move(type), std::move(value), std::move(ref), tag, ns};
    };
    static const std::vector<SchemaNode> nodes = {
        container("/config", s::tag_config, s::ns_switch_config),
        container("/config/interface", s::tag_interface, s::ns_switch_interfaces),
        {"/config/interface/mgmt", NodeKind::kList, {}, {}, {}, s::tag_mgmt, s::ns_switch_interfaces},
        leaf("/config/interface/mgmt/name", s::tag_name, text, none, {}, s::ns_switch_interfaces),
        container("/config/interface/mgmt/ipv4", s::tag_ipv4, s::ns_switch_interfaces),
        container("/config/interface/mgmt/ipv4/address", s::tag_address, s::ns_switch_interfaces),
        leaf("/config/interface/mgmt/ipv4/address/ip", s::tag_ip, Ipv4Plen{}, none, {},
             s::ns_switch_interfaces),
        container("/config/oam", s::tag_oam, s::ns_switch_oam_sflow),
        container("/config/oam/sflow", s::tag_sflow, s::ns_switch_oam_sflow),
        container("/config/oam/sflow/agent", s::tag_agent, s::ns_switch_oam_sflow),
        leaf("/config/oam/sflow/agent/ipv4", s::tag_ipv4, Ipv4{}),
        list("/config/oam/sflow/collector", s::tag_collector),
        leaf("/config/oam/sflow/collector/name", s::tag_name, text),
        leaf("/config/oam/sflow/collector/enabled", s::tag_enabled, flag, true),
        leaf("/config/oam/sflow/collector/ip", s::tag_ip, Ipv4{}),
        leaf("/config/oam/sflow/collector/datagram-size", s::tag_datagram_size, u16, u16Is(1400)),
        leaf("/config/oam/sflow/collector/port", s::tag_port, u16, u16Is(6343)),
        list("/config/oam/sflow/interface", s::tag_interface),
        leaf("/config/oam/sflow/interface/name", s::tag_name, text),
        leaf("/config/oam/sflow/interface/sampling-rate", s::tag_sampling_rate, u32, none,
             "default-sampling-rate"),
        leaf("/config/oam/sflow/interface/default-sampling-rate", s::tag_default_sampling_rate, u32,
             std::uint32_t{4096}),
        leaf("/config/oam/sflow/interface/max-header-size", s::tag_max_header_size, u16, u16Is(128)),
        leaf("/config/oam/sflow/interface/polling-interval", s::tag_polling_interval, u16, u16Is(20)),
        list("/config/oam/sflow/interface/flow-sampling-collector", s::tag_flow_sampling_collector),
        leaf("/config/oam/sflow/interface/flow-sampling-collector/name", s::tag_name, text),
        list("/config/oam/sflow/interface/counter-sampling-collector", s::tag_counter_sampling_collector),
        leaf("/config/oam/sflow/interface/counter-sampling-collector/name", s::tag_name, text),
    };
    return nodes;
}

const SchemaNode* FindNode(const std::string& path)
{
    const auto found = std::find_if(Schema().begin(), Schema().end(),
                                    [&](const SchemaNode& node) { return node.path == path; });
    return found == Schema().end() ? nullptr : &*found;
}

const SchemaNode* FindTag(std::uint32_t tag)
{
    const auto found = std::find_if(Schema().begin(), Schema().end(),
                                    [&](const SchemaNode& node) { return node.tag == tag; });
    return found == Schema().end() ? nullptr : &*found;
}

std::vector<const SchemaNode*> LeavesOf(const std::string& path)
{
    std::vector<const SchemaNode*> leaves;
    for (const SchemaNode& node : Schema()) {
        if (node.kind == SchemaNode::Kind::kLeaf && node.Parent() == path) leaves.push_back(&node);
    }
    return leaves;
}

}  // namespace fakes
