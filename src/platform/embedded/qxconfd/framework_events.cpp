// SPDX-License-Identifier: Apache-2.0
// Handles what cdbd sends while the connection is up: commits and changes of the node's role.

#include <qxos/callback.h>
#include <qxos/context.h>

#include <optional>

#include "ipc/cdb.pb.h"
#include "platform/embedded/qxconfd/framework.h"
#include "platform/embedded/qxos/context_access.h"

namespace qxconfd {
namespace {

/// The message's change set; nullopt if its nodes are not in the schema.
std::optional<cdb::ChangeSet> ChangesOf(const cdb::SchemaTable& schema, const ipc::cdb::ChangeSet& message)
{
    try {
        return cdb::ChangeSet{message.commit(), cdb::FromMessage(schema, message.root())};
    } catch (const std::invalid_argument&) {
        return std::nullopt;
    }
}

}  // namespace

void AppInterface::Impl::OnChangeSet(std::unique_ptr<ipc::cdb::ChangeSet> message)
{
    const cdb::SchemaTable& schema = m_runtime.database.Schema();
    const auto changes = ChangesOf(schema, *message);
    if (!changes) return GiveUp("it sent a change of nodes that its schema does not have");
    std::vector<embedded::PointOfHandler> touched;
    for (const auto id : message->points()) {
        if (id >= m_points.size()) return GiveUp("it sent a change for a point that is not subscribed");
        touched.push_back(m_points[id]);
    }
    message.reset();  // the changes may be many: they must not be in memory twice while the handlers work
    {
        const embedded::Database::Pin commit(m_runtime.database);
        embedded::Deliver(schema, *changes, touched);
    }
    ipc::cdb::ClientMessage acknowledgement;
    acknowledgement.mutable_change_set_ack()->set_commit(changes->commit);
    m_link.Send(acknowledgement);
}

void AppInterface::Impl::OnHaTransition(const ipc::cdb::HaTransition& transition)
{
    bool handled = false;
    if (qxos::the_context != nullptr) {
        const auto& callbacks = qxos::ContextAccess::CallbacksOf(*qxos::the_context);
        const bool active = transition.role() == ipc::cdb::HaTransition::ACTIVE;
        qxos::Callback* callback = active ? callbacks.goActive : callbacks.goStandby;
        handled = callback != nullptr && callback->Invoke();
    }
    ipc::cdb::ClientMessage answer;
    answer.mutable_ha_reply()->set_request(transition.request());
    answer.mutable_ha_reply()->set_handled(handled);
    m_link.Send(answer);
}

}  // namespace qxconfd
