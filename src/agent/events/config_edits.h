// SPDX-License-Identifier: Apache-2.0
// What a commit has changed, as the edits of a netconf-config-change (RFC 6470): the topmost nodes that were
// created, deleted or given another value, in schema order.

#ifndef AGENT_EVENTS_CONFIG_EDITS_H
#define AGENT_EVENTS_CONFIG_EDITS_H

#include <cstddef>
#include <string_view>
#include <vector>

#include "agent/events/event.h"
#include "cdb/model/change_set.h"
#include "cdb/schema/schema.h"

namespace agent {

struct ConfigEdits {
    std::vector<EventElement> listed;  // <edit> elements, at most as many as asked for
    std::size_t leftOut = 0;
};

/// `ns`: the namespace of the <edit> elements, which outlives them.
ConfigEdits EditsOf(const cdb::Schema& schema, const cdb::ChangeSet& changes, std::size_t most,
                    std::string_view ns);

}  // namespace agent

#endif
