// SPDX-License-Identifier: Apache-2.0
// The capabilities in the agent's hello.

#ifndef AGENT_NETCONF_CAPABILITIES_H
#define AGENT_NETCONF_CAPABILITIES_H

#include "cdb/schema/schema.h"
#include "netconf/hello.h"

namespace agent {

/// The protocol's capabilities that the agent serves, and the implemented modules. Without session-id.
netconf::Hello MakeHello(const cdb::Schema& schema);

}  // namespace agent

#endif
