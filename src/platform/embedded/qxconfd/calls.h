// SPDX-License-Identifier: Apache-2.0
// What cdbd sends as calls of the handlers: a callpoint's request is one callback, a commit is StartCommit,
// the walks of the touched points, then ApplyCommitConfig. Knows no connection.

#ifndef PLATFORM_EMBEDDED_QXCONFD_CALLS_H
#define PLATFORM_EMBEDDED_QXCONFD_CALLS_H

#include <qxconfd/config_handler.h>
#include <qxconfd/data_handler.h>

#include <string>
#include <vector>

#include "cdb/model/change_set.h"
#include "ipc/cdb.pb.h"
#include "platform/embedded/runtime.h"

namespace embedded {

/// Answers requests with the results and the writes of the data handlers' callbacks.
class Callpoints {
public:
    /// All of them must outlive it.
    Callpoints(Runtime& runtime, QxConfdInterface& confd, std::vector<qxconfd::DataHandler*> handlers);

    [[nodiscard]] std::vector<std::string> Names() const;

    /// Calls the requested callback inside its transaction. An exception from a handler propagates; a
    /// ClientError becomes the reply's error.
    ipc::cdb::CallpointReply Answer(const ipc::cdb::CallpointRequest& request);

private:
    struct Served {
        qxconfd::DataHandler* handler = nullptr;
        qxconfd::DataHandler::Callpoint* callpoint = nullptr;
    };

    [[nodiscard]] Served Find(const std::string& name) const;
    std::string Call(const ipc::cdb::CallpointRequest& request);
    int CallInTransaction(const Served& served, const ipc::cdb::CallpointRequest& request,
                          confd_hkeypath_t& keypath);

    Runtime& m_runtime;
    confd_daemon_ctx m_daemon;
    const std::vector<qxconfd::DataHandler*> m_handlers;
};

struct PointOfHandler {
    qxconfd::ConfigHandler* handler = nullptr;
    const SubscriptionPoint* point = nullptr;
};

/// Walks the points in the order given. An exception from a handler propagates.
void Deliver(const cdb::SchemaTable& schema, const cdb::ChangeSet& changes,
             const std::vector<PointOfHandler>& touched);

}  // namespace embedded

#endif
