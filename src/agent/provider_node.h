// Where a state provider's data stands in the schema. Used when it registers and when it answers.

#ifndef AGENT_PROVIDER_NODE_H
#define AGENT_PROVIDER_NODE_H

#include <string_view>

struct ly_ctx;
struct lysc_node;

namespace agent {

/// The config-false container at a path of plain names ("/state/oam/sflow"); null: there is none.
const lysc_node* FindProviderNode(const ly_ctx* context, std::string_view path);

}  // namespace agent

#endif
