// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/rpc_scan.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "guard/walk.h"
#include "netconf/names.h"

namespace agent {
namespace {

using End = RpcScan::End;

using netconf::kXmlBlanks;

void AppendAttribute(std::string& out, std::string_view name, std::string_view value)
{
    out.append(" ").append(name).append("=\"");
    netconf::AppendEscaped(out, value);
    out.append("\"");
}

/// The attributes and declared prefixes of <rpc> as text. The default namespace is left out: it is the
/// reply's own.
std::string TextOf(const netconf::XmlElement& rpc)
{
    std::string out;
    for (const netconf::XmlDeclaration& each : rpc.declarations)
        if (!each.prefix.empty()) AppendAttribute(out, "xmlns:" + std::string(each.prefix), each.ns);
    for (const netconf::XmlAttribute& each : rpc.attributes) {
        const std::string prefix = each.prefix.empty() ? "" : std::string(each.prefix) + ':';
        AppendAttribute(out, prefix + std::string(each.name), each.value);
    }
    return out;
}

/// <rpc> stands at depth 1, the operation at 2, its parameters at 3, <filter> among them.
class ScanVisitor final : public netconf::XmlVisitor {
public:
    ScanVisitor(const guard::SchemaIndex& index, std::string_view message, const guard::Limits& limits,
                RpcScan& scan)
        : m_index(index), m_message(message), m_limits(limits), m_scan(scan)
    {
    }

    bool OnStart(const netconf::XmlElement& element) override
    {
        if (!m_open.empty()) return StartInFilter(element);
        NoteXmlAttributes(element);
        if (element.depth <= 4 && !m_scan.config.IsOpen()) m_scan.config.Declare(element);
        if (element.depth == 1) return StartRpc(element);
        if (element.depth == 2) return StartOperation(element);
        if (element.depth == 3 && IsForeignFilter(element)) return StartForeignFilter(element);
        const guard::Node* child = m_walk->Find(element.ns, element.name);
        if (child == nullptr) return Refused();
        if (!child->Repeats() && !m_walk->Mention(*child)) return Refused();
        if (element.depth == 3 && child->Repeats() && ++m_repeated > kMaxRepeated)
            return RefuseRepeated(element);
        if (!m_walk->CheckAttributes(*child, element.attributes)) return Refused();
        if (element.depth == 3 && m_hasFilter && child->name == FilterName()) return StartFilter(element);
        if (m_scan.config.IsOpen())
            m_scan.config.Add(element, element.depth == m_configDepth + 1, m_message);
        else if (element.depth == m_configDepth && child->name == "config")
            m_scan.config.Open(element);
        m_walk->Enter(*child);
        return true;
    }

    bool OnEnd(std::size_t depth, std::size_t begin) override
    {
        if (!m_open.empty()) return EndInFilter(depth, begin);
        if (depth == m_configDepth && m_scan.config.IsOpen()) m_scan.config.Close(begin);
        return depth <= 2 || m_walk->Leave() || Refused();
    }

    bool OnText(std::size_t depth, std::string_view text) override
    {
        if (!m_open.empty()) return TextInFilter(text);
        if (depth >= 2) return m_walk->Text(text) || Refused();
        if (text.find_first_not_of(kXmlBlanks) == std::string_view::npos) return true;
        return Refuse(cdb::ErrorTag::kBadElement, "<rpc> holds text; it can hold an operation only", "rpc");
    }

private:
    static constexpr std::size_t kEditedConfig = 3;
    static constexpr std::size_t kSourceConfig = 4;  // in <source>

    /// Parameters of an operation that may be given more than once: far more than there are values of them,
    /// and few, because libyang's time grows with the square of their number.
    static constexpr std::size_t kMaxRepeated = 64;

    static std::size_t ConfigDepth(const netconf::XmlElement& operation)
    {
        if (operation.ns == netconf::kNmdaNamespace) return operation.name == "edit-data" ? kEditedConfig : 0;
        if (operation.ns != netconf::kBaseNamespace) return 0;
        if (operation.name == "edit-config") return kEditedConfig;
        return operation.name == "copy-config" || operation.name == "validate" ? kSourceConfig : 0;
    }

    bool StartRpc(const netconf::XmlElement& element)
    {
        m_scan.root = element.name;
        if (element.name != "rpc" || element.ns != netconf::kBaseNamespace) return Stop(End::kNoRpc);
        m_scan.attributes = TextOf(element);
        return element.Attribute("message-id") || Stop(End::kNoMessageId);
    }

    bool StartOperation(const netconf::XmlElement& element)
    {
        if (m_walk) {
            m_scan.operation = element.name;
            return Stop(End::kTwoOperations);
        }
        m_scan.operationNs = element.ns;
        m_scan.operation = element.name;
        const guard::Node* operation = m_index.Operation(element.ns, element.name);
        if (operation == nullptr) return Stop(End::kUnknownOperation);
        m_walk.emplace(m_index, *operation, m_limits.text);
        m_hasFilter =
            (element.ns == netconf::kBaseNamespace &&
             (element.name == "get" || element.name == "get-config")) ||
            (element.ns == netconf::kNotificationNamespace && element.name == "create-subscription") ||
            (element.ns == netconf::kNmdaNamespace && element.name == "get-data");
        m_isSubscription = element.ns == netconf::kNotificationNamespace;
        m_isNmda = element.ns == netconf::kNmdaNamespace;
        m_configDepth = ConfigDepth(element);
        // Outside of an edit a configuration is content only.
        m_walk->Allow({m_configDepth == kEditedConfig, m_configDepth != 0});
        return m_walk->CheckAttributes(*operation, element.attributes) || Refused();
    }

    [[nodiscard]] std::string_view FilterName() const { return m_isNmda ? "subtree-filter" : "filter"; }

    bool RefuseRepeated(const netconf::XmlElement& element)
    {
        return Refuse(cdb::ErrorTag::kTooBig,
                      "the operation has more than " + std::to_string(kMaxRepeated) + " elements such as <" +
                          std::string(element.name) + ">; give each value once",
                      std::string(element.name));
    }

    bool StartFilter(const netconf::XmlElement& element)
    {
        if (m_scan.filter)
            return Refuse(cdb::ErrorTag::kBadElement, "the operation holds more than one <filter>", "filter");
        m_scan.filterType = element.Attribute("type").value_or("subtree");
        m_scan.filterBegin = element.end;
        m_open.emplace_back();
        return true;
    }

    /// Clients that build every filter alike, ncclient among them, put that of a subscription into the base
    /// namespace. What it means is clear.
    bool IsForeignFilter(const netconf::XmlElement& element) const
    {
        return m_hasFilter && m_isSubscription && element.ns == netconf::kBaseNamespace &&
               element.name == "filter";
    }

    /// It is cut out as a whole, since the module has no such element.
    bool StartForeignFilter(const netconf::XmlElement& element)
    {
        if (!StartFilter(element)) return false;
        m_scan.filterBegin = element.begin;
        m_emptyFilterEnd = m_message[element.end - 2] == '/' ? element.end : 0;
        m_isForeign = true;
        return true;
    }

    bool StartInFilter(const netconf::XmlElement& element)
    {
        if (++m_filterElements > m_limits.filterElements)
            return Refuse(cdb::ErrorTag::kTooBig,
                          "the filter has more than " + std::to_string(m_limits.filterElements) +
                              " elements; ask in parts",
                          std::string(FilterName()));
        FilterNode node;
        node.ns = element.ns;
        node.name = element.name;
        node.hasAttributes = !element.attributes.empty();
        m_open.push_back(std::move(node));
        return true;
    }

    bool TextInFilter(std::string_view text)
    {
        std::string& whole = m_open.back().text;
        if (whole.size() + text.size() > m_limits.text)
            return Refuse(cdb::ErrorTag::kTooBig,
                          "a text in the filter is longer than " + std::to_string(m_limits.text) + " bytes",
                          std::string(FilterName()));
        whole.append(text);
        return true;
    }

    bool EndInFilter(std::size_t depth, std::size_t begin)
    {
        FilterNode node = std::move(m_open.back());
        m_open.pop_back();
        if (depth == 3) {
            m_scan.filterEnd = begin;
            if (std::exchange(m_isForeign, false))
                m_scan.filterEnd = m_emptyFilterEnd != 0 ? m_emptyFilterEnd : m_message.find('>', begin) + 1;
            m_scan.filter = std::move(node.children);
            return true;
        }
        node.text = node.children.empty() ? std::string(netconf::Trimmed(node.text)) : std::string();
        m_open.back().children.push_back(std::move(node));
        return true;
    }

    void NoteXmlAttributes(const netconf::XmlElement& element)
    {
        for (const netconf::XmlAttribute& attribute : element.attributes) {
            if (attribute.ns != netconf::kXmlNamespace) continue;
            m_scan.xmlAttributes.emplace_back(element.begin, element.end);
            return;
        }
    }

    bool Stop(End end)
    {
        m_scan.end = end;
        return false;
    }

    bool Refused()
    {
        m_scan.refusal = m_walk->Problem();
        m_scan.inData = m_walk->InData();
        return Stop(End::kRefused);
    }

    bool Refuse(cdb::ErrorTag tag, std::string message, std::string element)
    {
        m_scan.refusal.tag = tag;
        m_scan.refusal.message = std::move(message);
        m_scan.refusal.info = {{"bad-element", std::move(element)}};
        return Stop(End::kRefused);
    }

    const guard::SchemaIndex& m_index;
    std::string_view m_message;
    const guard::Limits& m_limits;
    RpcScan& m_scan;
    std::optional<guard::Walk> m_walk;  // from the operation on
    bool m_hasFilter = false;           // the operation can have one
    std::size_t m_configDepth = 0;      // of the operation's <config>; 0: it can have none
    std::size_t m_repeated = 0;         // parameters that may be given more than once
    bool m_isSubscription = false;
    bool m_isNmda = false;             // of RFC 8526
    bool m_isForeign = false;          // the open filter
    std::size_t m_emptyFilterEnd = 0;  // where it ends if it is an empty element
    std::vector<FilterNode> m_open;    // <filter> and what is open inside it
    std::size_t m_filterElements = 0;
};

}  // namespace

void SentConfig::Declare(const netconf::XmlElement& around)
{
    // Elements as deep as this one, and their content, have ended.
    while (!m_inScope.empty() && m_inScope.back().depth >= around.depth) m_inScope.pop_back();
    for (const netconf::XmlDeclaration& each : around.declarations)
        m_inScope.push_back({around.depth, std::string(each.prefix), std::string(each.ns)});
}

void SentConfig::Open(const netconf::XmlElement& config)
{
    m_open = true;
    for (Declaration& each : m_inScope) m_declared.insert_or_assign(each.prefix, std::move(each.ns));
    m_begin = config.end;
}

void SentConfig::Close(std::size_t end)
{
    m_open = false;
    m_end = end;
}

void SentConfig::Add(const netconf::XmlElement& element, bool isTop, std::string_view message)
{
    if (isTop) AddDeclarations(element, message);
    std::vector<Change> changes;
    const std::string_view tag = message.substr(0, element.end);
    for (const netconf::XmlDeclaration& own : element.declarations) {
        if (own.ns != netconf::kDefaultAttributeNamespace) continue;
        const std::size_t from = changes.empty() ? element.begin : changes.back().at + own.ns.size();
        const std::size_t at = tag.find(own.ns, from);
        if (at != std::string_view::npos)
            changes.push_back({at, own.ns.size(), std::string(netconf::kWithDefaultsNamespace)});
    }
    for (const netconf::XmlAttribute& own : element.attributes) {
        // libyang knows the words only.
        if (own.ns != netconf::kDefaultAttributeNamespace || (own.value != "1" && own.value != "0")) continue;
        const std::string name = std::string(own.prefix) + ":default";
        std::size_t at = tag.find(name, element.begin);
        while (at != std::string_view::npos && kXmlBlanks.find(tag[at - 1]) == std::string_view::npos)
            at = tag.find(name, at + 1);
        if (at != std::string_view::npos) at = tag.find_first_of("\"'", at);
        if (at != std::string_view::npos && tag.substr(at + 1).starts_with(own.value))
            changes.push_back({at + 1, 1, own.value == "1" ? "true" : "false"});
    }
    std::sort(changes.begin(), changes.end(), [](const Change& a, const Change& b) { return a.at < b.at; });
    std::move(changes.begin(), changes.end(), std::back_inserter(m_changed));
}

void SentConfig::AddDeclarations(const netconf::XmlElement& element, std::string_view message)
{
    if (m_addedBytes > kMaxAdded) return;
    std::string text;
    for (const auto& [prefix, ns] : m_declared) {
        const auto isOwn = [&name = prefix](const netconf::XmlDeclaration& own) {
            return own.prefix == name;
        };
        if (std::any_of(element.declarations.begin(), element.declarations.end(), isOwn)) continue;
        text.append(" xmlns").append(prefix.empty() ? "" : ":").append(prefix).append("=\"");
        netconf::AppendEscaped(
            text, ns == netconf::kDefaultAttributeNamespace ? netconf::kWithDefaultsNamespace : ns);
        text.append("\"");
    }
    m_addedBytes += text.size();
    m_changed.push_back({message.find_first_of(" \t\r\n/>", element.begin), 0, std::move(text)});
}

std::string SentConfig::Text(std::string_view message) const
{
    std::string config;
    config.reserve(m_end - m_begin + m_addedBytes);
    std::size_t done = m_begin;
    for (const Change& change : m_changed) {
        if (change.at < done) continue;  // none overlap in what the reader took for well-formed
        config.append(message.substr(done, change.at - done)).append(change.text);
        done = change.at + change.length;
    }
    config.append(message.substr(done, m_end - done));
    return config;
}

RpcScan ScanRpc(const guard::SchemaIndex& index, std::string_view message, const guard::Limits& limits)
{
    RpcScan scan;
    ScanVisitor visitor(index, message, limits, scan);
    if (auto problem = netconf::ReadXmlWithin(message, visitor, limits.xml)) {
        scan.end = End::kBadXml;
        scan.problem = *std::move(problem);
    }
    return scan;
}

void BlankXmlAttributes(const RpcScan& scan, std::string& message)
{
    for (const auto& [begin, end] : scan.xmlAttributes) {
        std::size_t at = begin;
        while (at < end) {
            const std::size_t name = message.find_first_not_of(kXmlBlanks, at);
            const std::size_t open = message.find_first_of("\"'", name);
            if (open >= end) break;
            const std::size_t close = message.find(message[open], open + 1);
            // The first name is the element's; the first attribute is behind it.
            const std::size_t attribute =
                name == begin ? message.find_first_not_of(kXmlBlanks, message.find_first_of(kXmlBlanks, name))
                              : name;
            if (message.compare(attribute, 4, "xml:") == 0)
                std::fill(message.begin() + static_cast<std::ptrdiff_t>(attribute),
                          message.begin() + static_cast<std::ptrdiff_t>(close) + 1, ' ');
            at = close + 1;
        }
    }
}

}  // namespace agent
