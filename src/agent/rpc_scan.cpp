#include "agent/rpc_scan.h"

#include <vector>

#include "netconf/xml.h"

namespace agent {
namespace {

std::string Trimmed(const std::string& text)
{
    constexpr std::string_view kBlank = " \t\r\n";
    const std::size_t begin = text.find_first_not_of(kBlank);
    if (begin == std::string::npos) return {};
    return text.substr(begin, text.find_last_not_of(kBlank) - begin + 1);
}

/// <rpc> stands at depth 1, the operation at 2, <filter> at 3.
class ScanVisitor final : public netconf::XmlVisitor {
public:
    explicit ScanVisitor(RpcScan& scan) : m_scan(scan) {}

    bool OnStart(const netconf::XmlElement& element) override
    {
        switch (element.depth) {
        case 1:
            m_scan.rootNs = element.ns;
            m_scan.root = element.name;
            return true;
        case 2:
            return StartOperation(element);
        case 3:
            return StartParameter(element);
        default:
            break;
        }
        if (m_open.empty()) return true;
        FilterNode node;
        node.ns = element.ns;
        node.name = element.name;
        node.hasAttributes = element.hasAttributes;
        m_open.push_back(std::move(node));
        return true;
    }

    void OnEnd(std::size_t depth, std::size_t begin) override
    {
        if (m_open.empty()) return;
        FilterNode node = std::move(m_open.back());
        m_open.pop_back();
        if (depth == 3) {
            m_scan.filterEnd = begin;
            m_scan.filter = std::move(node.children);
            return;
        }
        node.text = node.children.empty() ? Trimmed(node.text) : std::string();
        m_open.back().children.push_back(std::move(node));
    }

    void OnText(std::size_t /*depth*/, std::string_view text) override
    {
        if (!m_open.empty()) m_open.back().text.append(text);
    }

private:
    bool StartOperation(const netconf::XmlElement& element)
    {
        if (!m_scan.operation.empty()) return false;
        m_scan.operationNs = element.ns;
        m_scan.operation = element.name;
        return element.ns == netconf::kBaseNamespace &&
               (element.name == "get" || element.name == "get-config");
    }

    bool StartParameter(const netconf::XmlElement& element)
    {
        if (element.ns != netconf::kBaseNamespace || element.name != "filter") return true;
        if (++m_scan.filters > 1) return false;
        m_scan.filterType = element.attribute("type").value_or("subtree");
        m_scan.filterBegin = element.end;
        m_open.emplace_back();
        return true;
    }

    RpcScan& m_scan;
    std::vector<FilterNode> m_open;  // <filter> and what is open inside it
};

}  // namespace

RpcScan ScanRpc(std::string_view message)
{
    RpcScan scan;
    ScanVisitor visitor(scan);
    scan.problem = netconf::ReadXml(message, visitor).value_or("");
    return scan;
}

}  // namespace agent
