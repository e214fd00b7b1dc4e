// SPDX-License-Identifier: Apache-2.0
// Delivers one commit to the configuration handlers: StartCommit, the walks of the touched points, then
// ApplyCommitConfig. Knows no connection.

#ifndef PLATFORM_EMBEDDED_QXCONFD_DELIVERY_H
#define PLATFORM_EMBEDDED_QXCONFD_DELIVERY_H

#include <qxconfd/config_handler.h>

#include <vector>

#include "cdb/model/change_set.h"

namespace embedded {

struct PointOfHandler {
    qxconfd::ConfigHandler* handler = nullptr;
    const SubscriptionPoint* point = nullptr;
};

/// Walks the points in the order given. An exception from a handler propagates.
void Deliver(const cdb::SchemaTable& schema, const cdb::ChangeSet& changes,
             const std::vector<PointOfHandler>& touched);

}  // namespace embedded

#endif
