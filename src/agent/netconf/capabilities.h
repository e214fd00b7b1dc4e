// SPDX-License-Identifier: Apache-2.0
// What the agent says of itself in its hello.

#ifndef AGENT_NETCONF_CAPABILITIES_H
#define AGENT_NETCONF_CAPABILITIES_H

#include "cdb/schema/schema.h"
#include "netconf/hello.h"

namespace agent {

/// The protocol's capabilities that are served, and the implemented modules. No session-id yet.
netconf::Hello MakeHello(const cdb::Schema& schema);

}  // namespace agent

#endif
