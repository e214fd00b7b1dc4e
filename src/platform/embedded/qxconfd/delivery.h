// SPDX-License-Identifier: Apache-2.0
// One commit's way through the configuration handlers: StartCommit, the touched points' walks, then
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

/// Walks the points in the order given. An exception out of a handler passes.
void Deliver(const cdb::SchemaTable& schema, const cdb::ChangeSet& changes,
             const std::vector<PointOfHandler>& touched);

}  // namespace embedded

#endif
