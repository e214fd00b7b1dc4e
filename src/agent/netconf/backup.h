// SPDX-License-Identifier: Apache-2.0
// Copies the store while it is served, beside the loop. One copy at a time.

#ifndef AGENT_NETCONF_BACKUP_H
#define AGENT_NETCONF_BACKUP_H

#include <memory>

#include <boost/asio/io_context.hpp>

#include "agent/netconf/request.h"
#include "base/worker.h"
#include "cdb/store/store.h"

namespace agent {

class Backup {
public:
    /// Both must outlive this.
    Backup(boost::asio::io_context& loop, const cdb::Store& store);

    /// Makes the copy that the request asks for and answers it; refuses it while another copy is made.
    void Make(const RequestPtr& request);

private:
    boost::asio::io_context& m_loop;
    const cdb::Store& m_store;
    std::unique_ptr<base::Worker> m_worker;  // made for the first copy
    std::shared_ptr<void> m_task;            // under way
};

}  // namespace agent

#endif
