// SPDX-License-Identifier: Apache-2.0
// The data handlers' callpoints: answers the database's requests with the results and the writes of the
// callbacks. Knows no connection.

#ifndef PLATFORM_EMBEDDED_QXCONFD_CALLPOINTS_H
#define PLATFORM_EMBEDDED_QXCONFD_CALLPOINTS_H

#include <qxconfd/data_handler.h>

#include <string>
#include <vector>

#include "platform/embedded/runtime.h"

namespace ipc::cdb {
class CallpointReply;
class CallpointRequest;
}  // namespace ipc::cdb

namespace embedded {

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

}  // namespace embedded

#endif
