// SPDX-License-Identifier: Apache-2.0
// What only the sources of SFlowConfigHandler use.

#ifndef DAEMON_SFLOW_CONFIG_HANDLER_INTERNAL_H
#define DAEMON_SFLOW_CONFIG_HANDLER_INTERNAL_H

#include <confd_lib.h>

// The unit's name in logs and faults.
constexpr char kSource[] = "src/daemon/sflow_config_handler";

constexpr char kSFlowPath[] = "/config/oam/sflow";
constexpr char kCollectorPath[] = "/config/oam/sflow/collector";
constexpr char kInterfacePath[] = "/config/oam/sflow/interface";

// What the handlers return after an agent address and after an enabled flag: it suspends the
// iteration, which the framework resumes.
constexpr confd_iter_ret kIterSuspend = static_cast<confd_iter_ret>(5);

#endif
