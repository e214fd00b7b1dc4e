// SPDX-License-Identifier: Apache-2.0
#include <libyang/libyang.h>

#include <string>
#include <string_view>

#include "agent/clients/clients.h"
#include "agent/data/errors.h"
#include "agent/netconf/ha_role.h"
#include "agent/netconf/operations.h"
#include "base/text.h"
#include "log/log.h"
#include "netconf/xml.h"

namespace agent {
namespace {

using cdb::ErrorTag;
using ipc::cdb::ClientMessage;
using OutputNode = ipc::cdb::ActionReply::Node;

/// The client that provides this state is the sFlow manager.
constexpr std::string_view kManagerState = "/state/oam/sflow";

ClientPtr FindManager(const Clients& clients)
{
    for (const ClientPtr& client : clients.Ready())
        for (const StateProvision& provided : client->Providers())
            if (provided.path == kManagerState) return client;
    return nullptr;
}

/// Writes those of the nodes that the model has below `parent`, as the client has given them.
void AppendOutput(const lysc_node* parent, const google::protobuf::RepeatedPtrField<OutputNode>& nodes,
                  std::string& out)
{
    for (const OutputNode& node : nodes) {
        const lysc_node* schema = lys_find_child(parent, parent->module, node.name().c_str(), 0,
                                                 LYS_LEAF | LYS_LIST, LYS_GETNEXT_OUTPUT);
        if (schema == nullptr) continue;
        const bool isTop = (parent->nodetype & (LYS_RPC | LYS_ACTION)) != 0;
        out.append("<").append(node.name());
        if (isTop) out.append(" xmlns=\"").append(parent->module->ns).append("\"");
        out.append(">");
        if (schema->nodetype == LYS_LIST)
            AppendOutput(schema, node.children(), out);
        else
            netconf::AppendEscaped(out, base::Presentable(node.value()));
        out.append("</").append(node.name()).append(">");
    }
}

std::string OutputOf(const Request& request, const ipc::cdb::ActionReply& reply)
{
    return request.OutputText(
        [&](std::string& out) { AppendOutput(request.Operation()->schema, reply.output(), out); });
}

}  // namespace

void Operations::HaTransition(const RequestPtr& request)
{
    const bool active = ChildText(request->Operation(), "role") == "active";
    m_services.ha.Take(active ? cdb::Role::kActive : cdb::Role::kStandby, request->Who().user,
                       [request](const std::vector<netconf::RpcError>& warnings) { request->Ok(warnings); });
}

void Operations::SflowResync(const RequestPtr& request) { AskManager(request, "resync"); }

void Operations::SflowClearStatistics(const RequestPtr& request)
{
    slog::Notice("{} clears the statistics of sFlow", request->Who().user);
    AskManager(request, "clear-statistics");
}

void Operations::SflowTestCollector(const RequestPtr& request)
{
    AskManager(request, "test-collector", std::string(ChildText(request->Operation(), "collector")));
}

void Operations::SflowTopTalkers(const RequestPtr& request)
{
    AskManager(request, "top-talkers", std::string(ChildText(request->Operation(), "interface")));
}

void Operations::AskManager(const RequestPtr& request, const char* name, const std::string& subject)
{
    const auto refuse = [](const RequestPtr& refused, const std::string& why) {
        refused->Refuse(MakeError(Layer::kApplication, ErrorTag::kOperationFailed, why));
    };
    const ClientPtr manager = FindManager(m_services.clients);
    if (!manager) return refuse(request, "the sFlow manager is not connected; start sflow-mgr");
    const auto ask = [name, subject](Client& client) {
        OutgoingRequest outgoing{{ClientMessage::kActionReply, client.NextRequest()}};
        auto& action = *outgoing.message->mutable_action_request();
        action.set_request(outgoing.key.second);
        action.set_name(name);
        action.set_subject(subject);
        return outgoing;
    };
    const auto take = [request, refuse](const std::vector<Answer>& answers) {
        const Answer& answer = answers.front();
        if (answer.outcome != Outcome::kAnswered)
            return refuse(request, answer.client->Name() + " " + Explain(answer.outcome) + "; see its log");
        const auto& reply = answer.message.action_reply();
        if (!reply.error().empty())
            return refuse(request, answer.client->Name() + " refuses: " + reply.error());
        if (reply.output().empty()) return request->Ok();
        request->Reply(OutputOf(*request, reply));
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
