// SPDX-License-Identifier: Apache-2.0
// Where a state provider's data stands in the schema, and which providers the schema expects. Used when one
// registers, when it is asked and when it answers.

#ifndef AGENT_CLIENTS_PROVIDER_NODE_H
#define AGENT_CLIENTS_PROVIDER_NODE_H

#include <string>
#include <string_view>
#include <vector>

struct ly_ctx;
struct lysc_node;

namespace agent {

/// The config-false container at a path of plain names ("/state/oam/sflow"); null: there is none.
const lysc_node* FindProviderNode(const ly_ctx* context, std::string_view path);

/// "/state/oam/sflow"
std::string PathOf(const lysc_node* node);

/// State that the modules expect of a process.
struct ExpectedProvider {
    const lysc_node* container = nullptr;
    std::string path;
    std::string process;  // what to start, "sflow-mgr"
};

/// What the modules say with the statement `provider`.
std::vector<ExpectedProvider> ExpectedProviders(const ly_ctx* context);

}  // namespace agent

#endif
