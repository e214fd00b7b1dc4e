// SPDX-License-Identifier: Apache-2.0
// The YANG library (RFC 8525) as state: /yang-library, and /modules-state of RFC 7895. Used by state.cpp.

#ifndef AGENT_STATE_YANG_LIBRARY_H
#define AGENT_STATE_YANG_LIBRARY_H

#include "agent/state/state_tree.h"
#include "cdb/schema/schema.h"

namespace agent {

/// Adds the library below the container, which is one of the two.
void AddYangLibrary(const cdb::Schema& schema, const lysc_node* container, StateTree& tree);

}  // namespace agent

#endif
