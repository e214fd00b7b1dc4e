// SPDX-License-Identifier: Apache-2.0
#include "random_data.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <algorithm>

#include "agent/agent_world.h"

namespace agent_tests {
namespace {

using Leaves = std::vector<std::pair<std::string, cdb::Value>>;

/// Rows and XML of the same content.
class ConfigurationMaker {
public:
    explicit ConfigurationMaker(Random& random) : m_random(random) {}

    Configuration Make()
    {
        m_xml =
            "<config xmlns='urn:switch:yang:switch-config'><interface "
            "xmlns='urn:switch:yang:switch-interfaces'>";
        for (int i = m_random.Below(3); i > 0; --i) Management("ma" + std::to_string(i));
        m_xml += "</interface><oam xmlns='urn:switch:yang:switch-oam-sflow'><sflow>";
        if (m_random.OneIn(2))
            Open("/config/oam/sflow/agent", {}, {{"ipv4", cdb::Ipv4{0x010200c0}}}), m_xml += "</agent>";
        for (int i = 11; i > 0; i -= 1 + m_random.Below(6)) Collector("c" + std::to_string(i));
        for (int i = 12; i > 0; i -= 1 + m_random.Below(4)) Interface("eth" + std::to_string(i));
        m_xml += "</sflow></oam></config>";
        return {std::move(m_rows), Parsed()};
    }

private:
    static std::string NameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

    /// Writes the start of the entry or container and its leaves.
    void Open(const std::string& path, const std::vector<std::string>& keys, const Leaves& leaves)
    {
        m_rows.push_back({{Schema().Table().Find(path), keys}, {leaves}});
        m_xml += "<" + NameOf(path) + ">";
        if (!keys.empty()) m_xml += "<name>" + keys.back() + "</name>";
        for (const auto& [name, value] : leaves)
            m_xml += "<" + name + ">" + cdb::ToText(value) + "</" + name + ">";
    }

    template <typename Value>
    void MayBe(Leaves& leaves, const std::string& name, std::initializer_list<Value> choices)
    {
        const std::vector<cdb::Value> values(choices.begin(), choices.end());
        if (m_random.OneIn(2)) leaves.emplace_back(name, m_random.From(values));
    }

    void Management(const std::string& name)
    {
        Open("/config/interface/mgmt", {name}, {});
        if (m_random.OneIn(2)) {
            m_xml += "<ipv4>";
            const std::string path = "/config/interface/mgmt/ipv4/address";
            Open(path, {}, {{"ip", cdb::Ipv4Plen{0x0500000a, 24}}});
            // It is below an entry, whose key is no part of its own.
            m_rows.back().first.keys = {name};
            m_xml += "</address></ipv4>";
        }
        m_xml += "</mgmt>";
    }

    void Collector(const std::string& name)
    {
        Leaves leaves;
        MayBe<bool>(leaves, "enabled", {true, false});
        leaves.emplace_back("ip", m_random.From(std::vector{cdb::Ipv4{0x010200c0}, cdb::Ipv4{0xffffffff}}));
        MayBe<std::uint16_t>(leaves, "datagram-size", {1400, 200, 9000});
        MayBe<std::uint16_t>(leaves, "port", {6343, 1, 65535});
        Open("/config/oam/sflow/collector", {name}, leaves);
        m_xml += "</collector>";
    }

    void Interface(const std::string& name)
    {
        const std::string path = "/config/oam/sflow/interface";
        Leaves leaves;
        MayBe<std::uint32_t>(leaves, "sampling-rate", {512, 4096, 16777215});
        MayBe<std::uint32_t>(leaves, "default-sampling-rate", {512, 4096});
        MayBe<std::uint16_t>(leaves, "max-header-size", {128, 64});
        MayBe<std::uint16_t>(leaves, "polling-interval", {0, 20});
        Open(path, {name}, leaves);
        for (const std::string list : {"flow-sampling-collector", "counter-sampling-collector"})
            for (int i = m_random.Below(4); i > 0; --i) {
                Open(path + "/" + list, {name, "c" + std::to_string(i)}, {});
                m_xml += "</" + list + ">";
            }
        m_xml += "</interface>";
    }

    agent::Tree Parsed() const
    {
        lyd_node* tree = nullptr;
        EXPECT_EQ(lyd_parse_data_mem(Schema().Context(), m_xml.c_str(), LYD_XML,
                                     LYD_PARSE_STRICT | LYD_PARSE_ONLY, 0, &tree),
                  LY_SUCCESS)
            << m_xml;
        EXPECT_EQ(lyd_new_implicit_all(&tree, Schema().Context(), LYD_IMPLICIT_NO_STATE, nullptr),
                  LY_SUCCESS);
        return agent::Tree(tree);
    }

    Random& m_random;
    std::vector<std::pair<cdb::RowKey, cdb::Row>> m_rows;
    std::string m_xml;
};

void Append(const agent::FilterNode& node, std::string& text)
{
    text += "<" + node.name + " xmlns='" + node.ns + "'" + (node.hasAttributes ? " x='1'>" : ">") + node.text;
    for (const auto& child : node.children) Append(child, text);
    text += "</" + node.name + ">";
}

}  // namespace

Configuration RandomConfiguration(Random& random) { return ConfigurationMaker(random).Make(); }

RandomFilter::RandomFilter(const agent::DataSchema& schema, const lyd_node* tree, const std::string& top)
{
    for (const agent::DataNode* child : schema.Root().children)
        if (child->name == top) m_top = child;
    const lyd_node* node = nullptr;
    for (const lyd_node* first = tree; first != nullptr; first = first->next) {
        LYD_TREE_DFS_BEGIN(first, node)
        {
            if ((node->schema->nodetype & LYD_NODE_TERM) != 0)
                m_values[node->schema].emplace_back(lyd_get_value(node));
            LYD_TREE_DFS_END(first, node);
        }
    }
}

agent::SubtreeFilter RandomFilter::Make(Random& random) const
{
    agent::SubtreeFilter filter;
    for (int i = random.Below(4); i > 0; --i) filter.push_back(Node(random, *m_top));
    return filter;
}

agent::FilterNode RandomFilter::Node(Random& random, const agent::DataNode& node) const
{
    agent::FilterNode filter;
    filter.name = random.OneIn(40) ? "unknown" : node.name;
    if (!random.OneIn(10)) filter.ns = random.OneIn(40) ? "urn:x" : node.ns;
    filter.hasAttributes = random.OneIn(60);
    if (node.IsTerm() ? random.OneIn(3) : random.OneIn(8)) return filter;  // a selection
    Content(random, node, filter);
    return filter;
}

void RandomFilter::Content(Random& random, const agent::DataNode& node, agent::FilterNode& filter) const
{
    if (!node.IsTerm() && !random.OneIn(40)) {
        std::vector<const agent::DataNode*> terms;
        std::copy_if(node.children.begin(), node.children.end(), std::back_inserter(terms),
                     [](const agent::DataNode* child) { return child->IsTerm(); });
        // Often leaves alone: their content matches select entries.
        const bool leavesOnly = !terms.empty() && random.OneIn(2);
        const auto& children = leavesOnly ? terms : node.children;
        for (int i = 1 + random.Below(3); i > 0; --i)
            filter.children.push_back(Node(random, *random.From(children)));
        return;
    }
    if (random.OneIn(40)) {
        filter.children.push_back(Node(random, node));
        return;
    }
    const auto it = m_values.find(node.schema);
    filter.text = it == m_values.end() || random.OneIn(10) ? "nothing" : random.From(it->second);
    if (random.OneIn(10) && std::isdigit(static_cast<unsigned char>(filter.text.front())) != 0)
        filter.text.insert(0, "+");
}

std::string ToText(const agent::SubtreeFilter& filter)
{
    std::string text;
    for (const auto& node : filter) Append(node, text);
    return text;
}

}  // namespace agent_tests
