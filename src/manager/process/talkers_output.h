// SPDX-License-Identifier: Apache-2.0
// The flows that carry most, as the output of the operation sflow-top-talkers.

#ifndef MANAGER_PROCESS_TALKERS_OUTPUT_H
#define MANAGER_PROCESS_TALKERS_OUTPUT_H

#include "manager/sampling/talker_table.h"
#include "manager/status/state_provider.h"

namespace manager {

ActionResult TalkersOutput(const TopTalkers& top);

}  // namespace manager

#endif
