// SPDX-License-Identifier: Apache-2.0
#include "agent/process/streams_state.h"

#include <libyang/libyang.h>

#include <cstring>
#include <string>
#include <string_view>

namespace agent {

void AddStreams(const EventLog& log, const lysc_node* streams, StateTree& tree)
{
    const lysc_node* list = lysc_node_child(streams);
    StateTree::Node* stream = StateTree::Append(tree.At(streams), list, {tree.Keep("NETCONF")});
    if (stream == nullptr) return;
    const auto leaf = [&](const char* name, std::string_view value) {
        for (const lysc_node* child = lysc_node_child(list); child != nullptr; child = child->next)
            if (std::strcmp(child->name, name) == 0) stream->leaves.push_back({child, tree.Keep(value)});
    };
    leaf("description", "What happens to the configuration, the sessions and the processes of the switch.");
    leaf("replaySupport", "true");
    leaf("replayLogCreationTime", EventTime(log.CreatedUs()));
    if (const auto aged = log.AgedUs()) leaf("replay-log-aged-time", EventTime(*aged));
}

}  // namespace agent
