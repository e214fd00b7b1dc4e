// SPDX-License-Identifier: Apache-2.0
// Requests written out, for what no builder of requests would write.

#ifndef AGENT_TESTS_RPC_TEXT_H
#define AGENT_TESTS_RPC_TEXT_H

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "agent/agent_world.h"
#include "agent/netconf/rpc.h"

namespace agent_tests {

inline const std::string kBase = "urn:ietf:params:xml:ns:netconf:base:1.0";
inline const std::string kConfigNamespace = "urn:switch:yang:switch-config";
inline const std::string kSflowNamespace = "urn:switch:yang:switch-oam-sflow";

inline std::string InRpc(const std::string& operation, const std::string& attributes = "message-id=\"1\"")
{
    return "<rpc xmlns=\"" + kBase + "\" " + attributes + ">" + operation + "</rpc>";
}

inline std::string InConfig(const std::string& config)
{
    return InRpc("<edit-config><target><candidate/></target><config>" + config + "</config></edit-config>");
}

inline std::string InSflow(const std::string& content) { return InConfig(Sflow(content)); }

inline std::string InFilter(const std::string& filter)
{
    return InRpc("<get-config><source><running/></source><filter>" + filter + "</filter></get-config>");
}

/// The filter as the agent has it.
inline std::optional<agent::SubtreeFilter> ReadFilter(const std::string& filter)
{
    auto rpc = agent::ReadRpc(Index(), InRpc("<get><filter>" + filter + "</filter></get>"), true);
    EXPECT_TRUE(std::holds_alternative<agent::Rpc>(rpc)) << filter;
    return std::get<agent::Rpc>(std::move(rpc)).filter;
}

}  // namespace agent_tests

#endif
