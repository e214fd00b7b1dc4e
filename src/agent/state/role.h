// SPDX-License-Identifier: Apache-2.0
// The role of this node in a redundant pair, as the processes were last told.

#ifndef AGENT_STATE_ROLE_H
#define AGENT_STATE_ROLE_H

#include <cstdint>

namespace agent {

enum class Role : std::uint8_t { kUnknown, kActive, kStandby };

}  // namespace agent

#endif
