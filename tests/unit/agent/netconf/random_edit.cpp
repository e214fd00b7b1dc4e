// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/random_edit.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace agent_tests {
namespace {

using Kind = ModelNode::Kind;
using Type = ModelNode::Type;
using Texts = std::vector<std::string>;

constexpr int kRare = 300;  // one in so many elements is out of place

class EditGenerator {
public:
    explicit EditGenerator(Random& random) : m_random(random) {}

    std::vector<EditNode> Edit()
    {
        std::vector<EditNode> edit;
        if (m_random.OneIn(40)) return edit;
        edit.push_back(Container(ModelRoot()));
        if (m_random.OneIn(100)) edit.push_back(Container(ModelRoot()));
        return edit;
    }

private:
    std::string Operation(int oneIn)
    {
        static const Texts kOperations{"merge", "replace", "create", "delete", "remove"};
        if (m_random.OneIn(kRare)) return "melt";
        return m_random.OneIn(oneIn) ? m_random.From(kOperations) : "";
    }

    /// Adds something that must be refused.
    void Displace(EditNode& node)
    {
        static const Texts kAttributes{" operation='merge'", " xmlns:f='urn:foreign' f:operation='delete'",
                                       " xmlns:y='urn:ietf:params:xml:ns:yang:1' y:insert='first'",
                                       " key='1'",
                                       " xmlns:q='urn:ietf:params:xml:ns:netconf:base:1.0' q:colour='red'"};
        static const Texts kContents{"<x xmlns='urn:foreign'/>", "<x/>", "<x xmlns=''/>",
                                     "<rpc xmlns='urn:ietf:params:xml:ns:netconf:base:1.0'/>"};
        if (m_random.OneIn(kRare)) {
            node.attributes = m_random.From(kAttributes);
            node.isOutOfPlace = true;
        }
        if (m_random.OneIn(kRare)) {
            node.content = m_random.From(kContents);
            node.isOutOfPlace = true;
        } else if (node.node->kind != Kind::kLeaf && m_random.OneIn(kRare)) {
            node.content = m_random.OneIn(2) ? "text" : "<![CDATA[0]]>";
            node.isOutOfPlace = true;
        }
        if (m_random.OneIn(50)) node.attributes += " xml:lang='en'";
    }

    EditNode Container(const ModelNode& model)
    {
        // Near the root, an operation concerns nearly everything.
        const bool isHigh = std::string_view(model.name) == "config" ||
                            std::string_view(model.name) == "oam" || std::string_view(model.name) == "sflow";
        EditNode node{&model, Operation(isHigh ? 60 : 10)};
        Children(node, model.children.begin());
        Displace(node);
        return node;
    }

    void Children(EditNode& node, std::vector<ModelNode>::const_iterator first)
    {
        for (auto child = first; child != node.node->children.end(); ++child) {
            const std::string_view name = child->name;
            const bool isLikely = name == "oam" || name == "sflow" || name == "ip";
            if (child->kind == Kind::kList)
                Entries(node, *child);
            else if (isLikely ? !m_random.OneIn(6) : m_random.OneIn(3))
                node.children.push_back(child->kind == Kind::kLeaf ? Leaf(*child) : Container(*child));
            if (child->kind == Kind::kLeaf && m_random.OneIn(kRare)) node.children.push_back(Leaf(*child));
        }
        if (m_random.OneIn(4)) std::reverse(node.children.begin(), node.children.end());
    }

    void Entries(EditNode& node, const ModelNode& list)
    {
        for (int i = m_random.Below(3); i > 0; --i) node.children.push_back(Entry(list));
        if (m_random.OneIn(kRare)) {
            const EditNode entry = Entry(list);
            for (int i = 7 + m_random.Below(4); i > 0; --i) node.children.push_back(entry);
        }
    }

    EditNode Entry(const ModelNode& list)
    {
        EditNode node{&list, Operation(8)};
        Children(node, list.children.begin() + 1);
        EditNode key = Leaf(list.children.front());
        key.operation = m_random.OneIn(60) ? Operation(1) : "";
        const auto place = m_random.OneIn(6) ? node.children.end() : node.children.begin();
        if (!m_random.OneIn(kRare)) node.children.insert(place, key);
        if (m_random.OneIn(kRare)) node.children.push_back(key);
        Displace(node);
        return node;
    }

    EditNode Leaf(const ModelNode& model)
    {
        EditNode node{&model, Operation(12)};
        const bool goes = node.operation == "delete" || node.operation == "remove";
        node.text = goes && !m_random.OneIn(4) ? "" : Text(model);
        Displace(node);
        return node;
    }

    std::string Text(const ModelNode& leaf)
    {
        static const Texts kAddresses{"192.0.2.1", "192.0.2.2", "255.255.255.255", "0.0.0.0"};
        static const Texts kPrefixes{"10.0.0.5/24", "10.0.0.6/8", "0.0.0.0/0"};
        static const Texts kInterfaces{"eth1", "eth2", "eth10", "gigabit-ethernet-1/1/1", "e%20"};
        static const Texts kCollectorNames{"c1", "c2", "c3"};
        static const Texts kAgainstAll{"",
                                       " ",
                                       "\n",
                                       "-1",
                                       "+",
                                       "0x",
                                       "nothing",
                                       "\xC3\xA9",
                                       "a b",
                                       "192.0.2.256",
                                       "192.0.2.01",
                                       "1.2.3.4/33",
                                       " 192.0.2.1 ",
                                       "TRUE",
                                       " true",
                                       "99999999999999999999",
                                       "]]&gt;",
                                       "<b>",
                                       "\"'"};
        if (m_random.OneIn(120)) return m_random.From(kAgainstAll);
        switch (leaf.type) {
        case Type::kName:
            return m_random.OneIn(80) ? std::string(60 + static_cast<std::size_t>(m_random.Below(10)), 'n')
                                      : m_random.From(kInterfaces);
        case Type::kCollectorName:
            return m_random.OneIn(80) ? "c%1" : m_random.From(kCollectorNames);
        case Type::kBool:
            return m_random.OneIn(2) ? "true" : "false";
        case Type::kIpv4:
            return m_random.From(kAddresses);
        case Type::kIpv4Plen:
            return m_random.From(kPrefixes);
        case Type::kNumber:
            break;
        }
        return Number(leaf);
    }

    std::string Number(const ModelNode& leaf)
    {
        static const std::vector<std::uint32_t> kNumbers{4096, 512, 1400, 6343, 128, 20, 300, 7777};
        static const Texts kForms{" 300 ", "300\n", "+300", "0x12c", "0454", "00", " 0x"};
        if (m_random.OneIn(60)) return m_random.From(kForms);
        if (m_random.OneIn(8)) return std::to_string(m_random.OneIn(2) ? leaf.least : leaf.most);
        if (m_random.OneIn(60)) return std::to_string(std::uint64_t{leaf.most} + 1);
        std::uint32_t number = m_random.From(kNumbers);
        if (number < leaf.least || number > leaf.most) number = leaf.least + 1;
        return std::to_string(number);
    }

    Random& m_random;
};

class EditWriter {
public:
    explicit EditWriter(Random& random) : m_random(random), m_isPlain(random.OneIn(2)) {}

    void Siblings(const std::vector<EditNode>& siblings, const std::string& ns)
    {
        Between();
        for (const EditNode& node : siblings) {
            Element(node, ns);
            Between();
        }
    }

    std::string m_text;

private:
    /// `ns`: the default one here.
    void Element(const EditNode& node, const std::string& ns)
    {
        const bool hasPrefix = !m_isPlain && m_random.OneIn(10);
        const std::string name = (hasPrefix ? "p:" : "") + std::string(node.node->name);
        Texts attributes;
        if (hasPrefix)
            attributes.push_back(" xmlns:p='" + std::string(node.node->ns) + "'");
        else if (ns != node.node->ns)
            attributes.push_back(" xmlns=\"" + std::string(node.node->ns) + "\"");
        if (!node.operation.empty()) attributes.push_back(Operation(node.operation));
        attributes.push_back(node.attributes);
        if (m_random.OneIn(2)) std::reverse(attributes.begin(), attributes.end());
        m_text += '<' + name;
        for (const std::string& attribute : attributes) m_text += attribute;
        if (!m_isPlain && m_random.OneIn(10)) m_text += "\n ";
        const bool isEmpty = node.content.empty() && node.text.empty() && node.children.empty();
        if (isEmpty && m_random.OneIn(2)) {
            m_text += "/>";
            return;
        }
        m_text += '>' + node.content;
        if (node.node->kind == Kind::kLeaf)
            Value(node.text);
        else
            Siblings(node.children, hasPrefix ? ns : node.node->ns);
        m_text += "</" + name + (!m_isPlain && m_random.OneIn(20) ? " >" : ">");
    }

    std::string Operation(const std::string& operation)
    {
        const std::string prefix = m_random.OneIn(4) ? "o" : "nc";
        const char quote = m_random.OneIn(2) ? '\'' : '"';
        return " xmlns:" + prefix + "=\"urn:ietf:params:xml:ns:netconf:base:1.0\" " + prefix +
               ":operation=" + quote + operation + quote;
    }

    /// What means nothing where elements stand.
    void Between()
    {
        static const Texts kNothing{" ",         "\n  ",          "<!-- comment -->", "<!--<port>5</port>-->",
                                    "<?go on?>", "\t<!---->\r\n", "<!-- > - ' \" -->"};
        if (!m_isPlain && m_random.OneIn(8)) m_text += m_random.From(kNothing);
    }

    /// What means nothing inside of a value.
    void Inside()
    {
        static const Texts kNothing{"<!-- c -->", "<!---->", "<?go on?>", "<![CDATA[]]>", "<!--</port>-->"};
        if (m_random.OneIn(2)) m_text += m_random.From(kNothing);
    }

    void Value(const std::string& value)
    {
        const bool isBroken = !m_isPlain && m_random.OneIn(8);
        for (std::size_t at = 0; at < value.size(); ++at) {
            if (isBroken && m_random.OneIn(3)) Inside();
            const char c = value[at];
            const bool isAscii = static_cast<unsigned char>(c) < 0x80;
            const int form = isBroken && isAscii ? m_random.Below(6) : 5;
            if (form == 0 || c == '<' || c == '&' || c == '>')
                m_text += "&#" + std::to_string(static_cast<unsigned char>(c)) + ";";
            else if (form == 1)
                m_text += "<![CDATA[" + std::string(1, c) + "]]>";
            else
                m_text += c;
        }
        if (isBroken) Inside();
    }

    Random& m_random;
    const bool m_isPlain;
};

}  // namespace

std::vector<EditNode> MakeRandomEdit(Random& random) { return EditGenerator(random).Edit(); }

EditParameters MakeRandomParameters(Random& random)
{
    static const Texts kDefaults{"", "", "", "", "", "merge", "replace", "none"};
    static const Texts kTests{"", "", "test-then-set", "set", "test-only"};
    static const Texts kOnError{"", "", "stop-on-error", "rollback-on-error"};
    EditParameters parameters{random.From(kDefaults), random.From(kTests), random.From(kOnError)};
    if (random.OneIn(60)) parameters.errorOption = "continue-on-error";
    if (random.OneIn(kRare)) parameters.defaultOperation = "delete";
    if (random.OneIn(kRare)) parameters.testOption = "never";
    return parameters;
}

std::string Written(Random& random, const std::vector<EditNode>& edit)
{
    EditWriter writer(random);
    writer.Siblings(edit, "urn:ietf:params:xml:ns:netconf:base:1.0");
    return std::move(writer.m_text);
}

}  // namespace agent_tests
