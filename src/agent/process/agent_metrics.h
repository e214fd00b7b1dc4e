// SPDX-License-Identifier: Apache-2.0
// What cdbd tells monitoring of itself: commits, sessions, what it has refused, the store, and the connected
// processes. Nothing of the configuration, so that access control has nothing to decide here.

#ifndef AGENT_PROCESS_AGENT_METRICS_H
#define AGENT_PROCESS_AGENT_METRICS_H

#include <string>
#include <vector>

#include "agent/access/access.h"
#include "agent/clients/clients.h"
#include "agent/netconf/commit_meter.h"
#include "agent/state/netconf_state.h"
#include "cdb/store/store.h"

namespace agent {

struct AgentFigures {
    const CommitMeter& commits;
    const NetconfFacts& netconf;
    const Access::Denials& denials;
    const cdb::Store& store;
    const Clients& clients;
    const std::vector<std::string>& expected;  // names of processes that should be connected
    cdb::Role role;
};

/// In the text format of Prometheus. Counters begin at zero with the process. Costs a few reads of the store,
/// whatever it holds.
std::string MetricsText(const AgentFigures& figures);

}  // namespace agent

#endif
