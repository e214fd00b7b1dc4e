// SPDX-License-Identifier: Apache-2.0
// Brings the look-up of a user's name into the agent.

#ifndef AGENT_ACCESS_USER_H
#define AGENT_ACCESS_USER_H

#include "ipc/peer.h"

namespace agent {

using ipc::UserName;

}  // namespace agent

#endif
