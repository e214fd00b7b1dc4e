// The state that cdbd provides itself: the connected processes and the faults. Used by state.cpp.

#ifndef AGENT_SYSTEM_STATE_H
#define AGENT_SYSTEM_STATE_H

#include <cstdint>
#include <string>
#include <vector>

#include "agent/client.h"
#include "agent/state.h"
#include "agent/yang_tree.h"
#include "cdb/store.h"

struct ly_ctx;

namespace agent {

/// The container /state with what is below /state/system.
Tree MakeSystemState(const ly_ctx* context, const std::vector<ClientPtr>& clients, Role role,
                     const cdb::Store& store);

/// "2026-11-21T03:20:11.123456Z"
std::string DateAndTime(std::int64_t timeUs);

}  // namespace agent

#endif
