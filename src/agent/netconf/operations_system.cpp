// SPDX-License-Identifier: Apache-2.0
#include <string_view>

#include "agent/clients/clients.h"
#include "agent/data/errors.h"
#include "agent/netconf/ha_role.h"
#include "agent/netconf/operations.h"
#include "log/log.h"

namespace agent {
namespace {

using cdb::ErrorTag;
using ipc::cdb::ClientMessage;

/// The client that provides this state is the sFlow manager.
constexpr std::string_view kManagerState = "/state/oam/sflow";
constexpr const char* kResync = "resync";

ClientPtr FindManager(const Clients& clients)
{
    for (const ClientPtr& client : clients.Ready())
        for (const StateProvision& provided : client->Providers())
            if (provided.path == kManagerState) return client;
    return nullptr;
}

}  // namespace

void Operations::HaTransition(const RequestPtr& request)
{
    const bool active = ChildText(request->Operation(), "role") == "active";
    m_services.ha.Take(active ? cdb::Role::kActive : cdb::Role::kStandby, request->Who().user,
                       [request](const std::vector<netconf::RpcError>& warnings) { request->Ok(warnings); });
}

void Operations::SflowResync(const RequestPtr& request)
{
    const auto refuse = [](const RequestPtr& refused, const std::string& why) {
        refused->Refuse(MakeError(Layer::kApplication, ErrorTag::kOperationFailed, why));
    };
    const ClientPtr manager = FindManager(m_services.clients);
    if (!manager) return refuse(request, "the sFlow manager is not connected; start sflow-mgr");
    const auto ask = [](Client& client) {
        OutgoingRequest outgoing{{ClientMessage::kActionReply, client.NextRequest()}};
        auto& action = *outgoing.message->mutable_action_request();
        action.set_request(outgoing.key.second);
        action.set_name(kResync);
        return outgoing;
    };
    const auto take = [request, refuse](const std::vector<Answer>& answers) {
        const Answer& answer = answers.front();
        if (answer.outcome != Outcome::kAnswered)
            return refuse(request, answer.client->Name() + " " + Explain(answer.outcome) + "; see its log");
        const std::string& error = answer.message.action_reply().error();
        if (!error.empty()) return refuse(request, answer.client->Name() + " refuses: " + error);
        request->Ok();
    };
    RequestAll(m_services.timers, {manager}, ask, m_services.actionTimeout, take);
}

/// Copies the store while it is served, beside the loop. One copy at a time.
void Operations::MakeBackup(const RequestPtr& request)
{
    if (m_backup)
        return request->Refuse(MakeError(Layer::kApplication, ErrorTag::kInUse,
                                         "another backup is being made; try again later"));
    if (!m_backupWorker) m_backupWorker = base::MakeWorker(m_services.loop);
    const std::string file(ChildText(request->Operation(), "file"));
    const auto error = std::make_shared<std::optional<cdb::Error>>();
    m_backup = m_backupWorker->Do([copy = m_services.store.Backup(file), error] { *error = copy(); },
                                  [this, request, file, error] { BackupMade(request, file, *error); });
}

void Operations::BackupMade(const RequestPtr& request, const std::string& file,
                            const std::optional<cdb::Error>& error)
{
    m_backup.reset();
    if (error) {
        slog::Error("{}", error->message);
        return request->Refuse(MakeError(Layer::kApplication, error->tag, error->message));
    }
    slog::Notice("{} has copied the store to {}", request->Who().user, file);
    request->Ok();
}

}  // namespace agent
