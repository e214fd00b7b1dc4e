// SPDX-License-Identifier: Apache-2.0
// The model's schema and values.

#include "agent/netconf/edit_model_value.h"

#include <algorithm>
#include <cctype>
#include <regex>

namespace agent_tests {
namespace {

using Kind = ModelNode::Kind;
using Type = ModelNode::Type;

constexpr char kCfg[] = "urn:switch:yang:switch-config";
constexpr char kIfs[] = "urn:switch:yang:switch-interfaces";
constexpr char kSf[] = "urn:switch:yang:switch-oam-sflow";
constexpr std::size_t kMaxOfName = 64;

ModelNode LeafNode(const char* ns, const char* name, Type type, std::uint32_t least = 0,
                   std::uint32_t most = 0)
{
    return {name, ns, Kind::kLeaf, type, least, most, {}};
}

ModelNode ContainerNode(const char* ns, const char* name, std::vector<ModelNode> children)
{
    return {name, ns, Kind::kContainer, {}, 0, 0, std::move(children)};
}

ModelNode ListNode(const char* ns, const char* name, std::vector<ModelNode> children)
{
    return {name, ns, Kind::kList, {}, 0, 0, std::move(children)};
}

ModelNode MakeRoot()
{
    const ModelNode reference = LeafNode(kSf, "name", Type::kCollectorName);
    const ModelNode address = ContainerNode(kIfs, "address", {LeafNode(kIfs, "ip", Type::kIpv4Plen)});
    const ModelNode management =
        ListNode(kIfs, "mgmt", {LeafNode(kIfs, "name", Type::kName), ContainerNode(kIfs, "ipv4", {address})});
    const ModelNode collector =
        ListNode(kSf, "collector",
                 {LeafNode(kSf, "name", Type::kCollectorName), LeafNode(kSf, "enabled", Type::kBool),
                  LeafNode(kSf, "ip", Type::kIpv4), LeafNode(kSf, "datagram-size", Type::kNumber, 200, 9000),
                  LeafNode(kSf, "port", Type::kNumber, 1, 65535)});
    const ModelNode interface = ListNode(
        kSf, "interface",
        {LeafNode(kSf, "name", Type::kName), LeafNode(kSf, "sampling-rate", Type::kNumber, 1, 16777215),
         LeafNode(kSf, "default-sampling-rate", Type::kNumber, 0, 4294967295U),
         LeafNode(kSf, "max-header-size", Type::kNumber, 16, 512),
         LeafNode(kSf, "polling-interval", Type::kNumber, 0, 3600),
         ListNode(kSf, "flow-sampling-collector", {reference}),
         ListNode(kSf, "counter-sampling-collector", {reference})});
    const ModelNode agent = ContainerNode(kSf, "agent", {LeafNode(kSf, "ipv4", Type::kIpv4)});
    return ContainerNode(
        kCfg, "config",
        {ContainerNode(kIfs, "interface", {management}),
         ContainerNode(kSf, "oam", {ContainerNode(kSf, "sflow", {agent, collector, interface})})});
}

bool HasForm(const std::string& text, const char* pattern)
{
    return std::regex_match(text, std::regex(pattern));
}

bool IsAddress(const std::string& text)
{
    static const std::regex form(R"((\d{1,3})\.(\d{1,3})\.(\d{1,3})\.(\d{1,3}))");
    std::smatch parts;
    if (!std::regex_match(text, parts, form)) return false;
    return std::all_of(parts.begin() + 1, parts.end(), [](const auto& part) {
        return std::stoi(part) < 256 && std::to_string(std::stoi(part)) == part;
    });
}

bool IsName(const std::string& text)
{
    return !text.empty() && text.size() <= kMaxOfName && std::all_of(text.begin(), text.end(), [](char c) {
        return std::isgraph(static_cast<unsigned char>(c)) != 0 &&
               std::string_view("\"'{}[];|<>&").find(c) == std::string_view::npos;
    });
}

/// A sign and zeros in front change nothing (RFC 7950, section 9.2.1). Of blanks around it nothing is said.
ModelValue Number(const ModelNode& leaf, const std::string& text)
{
    std::smatch parts;
    static const std::regex form(R"((\s*)([+-]?[0-9]{1,12})(\s*))");
    if (!std::regex_match(text, parts, form)) return {};
    const long long value = std::stoll(parts[2]);
    const bool isGood =
        value >= static_cast<long long>(leaf.least) && value <= static_cast<long long>(leaf.most);
    return {isGood, parts[1].length() + parts[3].length() > 0, std::to_string(value)};
}

}  // namespace

const ModelNode& ModelRoot()
{
    static const ModelNode root = MakeRoot();
    return root;
}

ModelValue ValueOf(const ModelNode& leaf, const std::string& text)
{
    const auto exactly = [&text](bool isGood) { return ModelValue{isGood, false, text}; };
    switch (leaf.type) {
    case Type::kName:
        return exactly(IsName(text));
    case Type::kCollectorName:
        return exactly(IsName(text) && text.find('%') == std::string::npos);
    case Type::kBool:
        return exactly(text == "true" || text == "false");
    case Type::kNumber:
        return Number(leaf, text);
    case Type::kIpv4:
        return exactly(IsAddress(text));
    case Type::kIpv4Plen:
        break;
    }
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos || !IsAddress(text.substr(0, slash))) return {};
    return exactly(HasForm(text.substr(slash + 1), "[0-9]|[12][0-9]|3[0-2]"));
}

}  // namespace agent_tests
