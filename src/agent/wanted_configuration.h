// The parts of the running configuration that a state provider has asked for when it registered: what it
// shows may depend on what is configured and has not come to be. Used by state.cpp.

#ifndef AGENT_WANTED_CONFIGURATION_H
#define AGENT_WANTED_CONFIGURATION_H

#include "agent/client.h"
#include "cdb/row_view.h"
#include "cdb/schema.h"

struct lyd_node;

namespace agent {

/// Adds the client's parts to the question for its state. `running`: the datastore's first top-level
/// sibling. A part that is too large for a message is left out.
void AddWantedConfiguration(const cdb::Schema& schema, cdb::RowView& rows, const Client& client,
                            ipc::cdb::StateRequest& request);

}  // namespace agent

#endif
