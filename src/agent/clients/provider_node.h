// SPDX-License-Identifier: Apache-2.0
// Where a state provider's data is in the schema, and which providers and subscribers the schema expects.

#ifndef AGENT_CLIENTS_PROVIDER_NODE_H
#define AGENT_CLIENTS_PROVIDER_NODE_H

#include <string>
#include <string_view>
#include <vector>

struct ly_ctx;
struct lysc_node;

namespace agent {

/// The config-false container at a path of plain names ("/state/oam/sflow"); null if there is none.
const lysc_node* FindProviderNode(const ly_ctx* context, std::string_view path);

/// "/state/oam/sflow"
std::string PathOf(const lysc_node* node);

/// What the modules expect a process to do for a container.
struct ExpectedProcess {
    const lysc_node* container = nullptr;
    std::string path;
    std::string process;  // what to start, "sflow-mgr"
};

/// The containers of state that have the statement `provider` in the modules.
std::vector<ExpectedProcess> ExpectedProviders(const ly_ctx* context);

/// The configuration containers that have the statement `subscriber`.
std::vector<ExpectedProcess> ExpectedSubscribers(const ly_ctx* context);

}  // namespace agent

#endif
