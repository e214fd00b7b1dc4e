// SPDX-License-Identifier: Apache-2.0
// The name of a user, for the history and the log.

#ifndef AGENT_ACCESS_USER_H
#define AGENT_ACCESS_USER_H

#include "ipc/peer.h"

namespace agent {

using ipc::UserName;

}  // namespace agent

#endif
