// SPDX-License-Identifier: Apache-2.0
// The streams of events as state (RFC 5277, section 3.2.5.1): there is one, NETCONF.

#ifndef AGENT_PROCESS_STREAMS_STATE_H
#define AGENT_PROCESS_STREAMS_STATE_H

#include "agent/events/event_log.h"
#include "agent/state/state_tree.h"

struct lysc_node;

namespace agent {

/// `streams`: the container in the schema.
void AddStreams(const EventLog& log, const lysc_node* streams, StateTree& tree);

}  // namespace agent

#endif
