// SPDX-License-Identifier: Apache-2.0
// Reads one <rpc> message: the attributes that go back on its reply, the operation as a libyang tree, and its
// subtree filter. Carries nothing out.

#ifndef AGENT_NETCONF_RPC_H
#define AGENT_NETCONF_RPC_H

#include <optional>
#include <string>
#include <variant>

#include "agent/data/subtree_filter.h"
#include "agent/data/yang_tree.h"
#include "guard/limits.h"
#include "guard/schema_index.h"
#include "netconf/rpc_error.h"

namespace agent {

struct Rpc {
    std::string attributes{};  // of <rpc>, written out, each with a blank before it
    Tree operation{};          // checked against its definition, defaults filled in
    std::optional<SubtreeFilter> filter{};
    bool isLong = false;  // the message was long, so its tree is large
};

struct BadRpc {
    std::string attributes;
    netconf::RpcError error;
    bool isRpc = false;  // a correct <rpc> around an operation that is refused (RFC 6022, in-rpcs)
};

/// Reads a message. `speaksBase11`: whether the client knows the tag malformed-message. Any thread may call
/// it, several at once too.
std::variant<Rpc, BadRpc> ReadRpc(const guard::SchemaIndex& index, std::string message, bool speaksBase11,
                                  const guard::Limits& limits = {});

}  // namespace agent

#endif
