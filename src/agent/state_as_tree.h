// State as libyang's data, for the writer that takes nothing else. Goes away with it.

#ifndef AGENT_STATE_AS_TREE_H
#define AGENT_STATE_AS_TREE_H

#include "agent/data_source.h"
#include "agent/yang_tree.h"

struct ly_ctx;

namespace agent {

Tree StateAsTree(const ly_ctx* context, DataSource& state);

}  // namespace agent

#endif
