// SPDX-License-Identifier: Apache-2.0
// The one pass over a message before libyang reads it: it must be well-formed, within bounds, an <rpc> with
// an operation that exists, and hold nothing that the schema does not know. Notes the filter on the way. Used
// by rpc.cpp.

#ifndef AGENT_NETCONF_RPC_SCAN_H
#define AGENT_NETCONF_RPC_SCAN_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/data/subtree_filter.h"
#include "agent/netconf/sent_config.h"
#include "cdb/model/error.h"
#include "guard/limits.h"
#include "guard/schema_index.h"
#include "netconf/xml.h"

namespace agent {

struct RpcScan {
    /// The first error, which ended the scan.
    enum class End { kGood, kBadXml, kNoRpc, kNoMessageId, kTwoOperations, kUnknownOperation, kRefused };
    End end = End::kGood;
    netconf::XmlProblem problem{};  // kBadXml
    cdb::Error refusal{};           // kRefused
    bool inData = false;            // kRefused: inside the configuration of an <edit-config>

    std::string root;
    std::string attributes;  // of <rpc>, written out, each with a blank before it
    std::string operationNs;
    std::string operation;  // empty if there is none
    std::optional<SubtreeFilter> filter;
    std::string filterType;       // as written; "subtree" if not given
    std::size_t filterBegin = 0;  // the bytes between <filter> and </filter>
    std::size_t filterEnd = 0;
    SentConfig config{};  // of an <edit-config>
    /// Start tags (first byte, end) with attributes such as xml:lang, which libyang does not know.
    std::vector<std::pair<std::size_t, std::size_t>> xmlAttributes{};
};

/// Any thread may call it, several at once too.
RpcScan ScanRpc(const guard::SchemaIndex& index, std::string_view message, const guard::Limits& limits);

/// Replaces those attributes by blanks.
void BlankXmlAttributes(const RpcScan& scan, std::string& message);

}  // namespace agent

#endif
