// SPDX-License-Identifier: Apache-2.0
// A subscriber to configuration changes.

#ifndef QXCONFD_CONFIG_HANDLER_H
#define QXCONFD_CONFIG_HANDLER_H

#include <cstdint>
#include <functional>
#include <vector>

#include "../confd_lib.h"
#include "base_handler.h"

// One subscription, read by the framework when it connects.
struct SubscriptionPoint {
    std::int32_t priority;  // lower is notified first
    std::int32_t ns;        // namespace hash of the path's data model
    const char* path;       // without instances; must outlive the framework
    std::int32_t flags;     // diff-iteration flags, handed on with the callback

    // Called once per changed node with keypath, operation, old and new value. All three belong to the
    // framework and are valid during the call: the callback neither releases them nor keeps a pointer to
    // one or to a string in it.
    //   keypath    never null
    //   old value  null where the framework doesn't know it; this system's never does
    //   new value  that of a leaf with MOP_VALUE_SET; null with every other operation. A leaf that goes
    //              back to its default is MOP_VALUE_SET with the default.
    std::function<confd_iter_ret(confd_hkeypath_t*, confd_iter_op, confd_value_t*, confd_value_t*)> callback;
};

namespace qxconfd {

// The framework calls, on every connection: LoadInitialConfig, then ApplyInitialConfig; for every
// commit that touches a point: StartCommit, the points' callbacks in priority order, then
// ApplyCommitConfig. All on the server loop's thread, one call at a time.
class ConfigHandler : public BaseHandler {
public:
    // Read the whole configuration. `socket` is an open read session's, valid during the call.
    virtual void LoadInitialConfig(int socket) = 0;
    virtual void ApplyInitialConfig() = 0;
    virtual void StartCommit() = 0;
    virtual void ApplyCommitConfig() = 0;

    virtual const std::vector<SubscriptionPoint>& GetSubscriptionPoints() const { return m_points; }

private:
    std::vector<SubscriptionPoint> m_points;
};

}  // namespace qxconfd

#endif
