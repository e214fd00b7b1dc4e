// SPDX-License-Identifier: Apache-2.0
// The one pass over a message before libyang reads it: it must be well-formed, within bounds, an <rpc> with
// an operation that exists, and hold nothing that the schema does not know. Notes the filter on the way. Used
// by rpc.cpp.

#ifndef AGENT_NETCONF_RPC_SCAN_H
#define AGENT_NETCONF_RPC_SCAN_H

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/data/subtree_filter.h"
#include "cdb/model/error.h"
#include "guard/limits.h"
#include "guard/schema_index.h"
#include "netconf/xml.h"

namespace agent {

/// The configuration inside a message as a text of its own: the bytes between <config> and </config>, with
/// the namespace declarations from around them. The namespace of the attribute "default" (RFC 6243, section
/// 6) becomes that of its YANG module, where libyang looks for it.
class SentConfig {
public:
    /// Notes what an element declares that may be around the configuration; in the order of the document.
    void Declare(const netconf::XmlElement& around);

    /// <config> begins; its own declarations were noted before.
    void Open(const netconf::XmlElement& config);
    /// <config> ends: `end` is the first byte of its end tag.
    void Close(std::size_t end);
    [[nodiscard]] bool IsOpen() const { return m_open; }
    /// Notes an element inside <config>; `isTop`: directly in it.
    void Add(const netconf::XmlElement& element, bool isTop, std::string_view message);

    /// Whether the message has a configuration that can be read alone.
    [[nodiscard]] bool IsThere() const { return m_end > m_begin && m_addedBytes <= kMaxAdded; }
    /// The top elements, each with the declarations added.
    [[nodiscard]] std::string Text(std::string_view message) const;
    /// Puts another content in the place of its own.
    void Replace(std::string& message, std::string_view content) const
    {
        message.replace(m_begin, m_end - m_begin, content);
    }

private:
    /// Bytes of the declarations, repeated at each top element: far more than any message needs.
    static constexpr std::size_t kMaxAdded = std::size_t{64} << 10;

    /// Bytes of the message and what stands for them.
    struct Change {
        std::size_t at = 0;
        std::size_t length = 0;
        std::string text;
    };
    void AddDeclarations(const netconf::XmlElement& element, std::string_view message);

    struct Declaration {
        std::size_t depth = 0;
        std::string prefix;
        std::string ns;
    };
    std::vector<Declaration> m_inScope;                          // before <config>, outer ones first
    std::map<std::string, std::string, std::less<>> m_declared;  // namespaces by prefix
    std::vector<Change> m_changed;                               // in order
    std::size_t m_addedBytes = 0;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    bool m_open = false;
};

struct RpcScan {
    /// The first error, which ended the scan.
    enum class End { kGood, kBadXml, kNoRpc, kNoMessageId, kTwoOperations, kUnknownOperation, kRefused };
    End end = End::kGood;
    netconf::XmlProblem problem{};  // kBadXml
    cdb::Error refusal{};           // kRefused
    bool inData = false;            // kRefused: inside a configuration

    std::string root;
    std::string attributes;  // of <rpc>, written out, each with a blank before it
    std::string operationNs;
    std::string operation;  // empty if there is none
    std::optional<SubtreeFilter> filter;
    std::string filterType;       // as written; "subtree" if not given
    std::size_t filterBegin = 0;  // the bytes between <filter> and </filter>
    std::size_t filterEnd = 0;
    SentConfig config{};  // of an <edit-config>, <edit-data>, <copy-config> or <validate>
    /// Start tags (first byte, end) with attributes such as xml:lang, which libyang does not know.
    std::vector<std::pair<std::size_t, std::size_t>> xmlAttributes{};
};

/// Any thread may call it, several at once too.
RpcScan ScanRpc(const guard::SchemaIndex& index, std::string_view message, const guard::Limits& limits);

/// Replaces those attributes by blanks.
void BlankXmlAttributes(const RpcScan& scan, std::string& message);

}  // namespace agent

#endif
