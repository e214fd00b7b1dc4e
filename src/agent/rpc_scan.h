// The first look at a message: what its document element and its operation are, and, for the
// operations that have one, the subtree filter. Reads no further than that. Used by rpc.cpp.

#ifndef AGENT_RPC_SCAN_H
#define AGENT_RPC_SCAN_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "agent/subtree_filter.h"

namespace agent {

struct RpcScan {
    std::string problem;  // not well-formed as far as it was read; empty: none
    std::string rootNs;
    std::string root;
    std::string operationNs;
    std::string operation;  // empty: there is none
    std::optional<SubtreeFilter> filter;
    std::string filterType;       // as written; "subtree" where it is not
    std::size_t filterBegin = 0;  // the bytes between <filter> and </filter>
    std::size_t filterEnd = 0;
    std::size_t filters = 0;  // how many there are
};

RpcScan ScanRpc(std::string_view message);

}  // namespace agent

#endif
