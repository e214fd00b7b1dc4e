// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/operations.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "agent/data/errors.h"

namespace agent {

Operations::Operations(Services services)
    : m_services(std::move(services)),
      m_dataSchema(m_services.schema),
      m_queue(m_services.loop),
      m_commits(m_services.loop)
{
}

Operations::Handler Operations::Find(const lyd_node* operation)
{
    struct Row {
        std::string_view module;
        std::string_view name;
        Handler handler;
    };
    constexpr std::string_view kBase = "ietf-netconf";
    constexpr std::string_view kSystem = "switch-system";
    static const std::array kRows{
        Row{kBase, "get", &Operations::Get},
        Row{kBase, "get-config", &Operations::GetConfig},
        Row{kBase, "edit-config", &Operations::EditConfig},
        Row{kBase, "validate", &Operations::Validate},
        Row{kBase, "commit", &Operations::Commit},
        Row{kBase, "discard-changes", &Operations::DiscardChanges},
        Row{kBase, "lock", &Operations::Lock},
        Row{kBase, "unlock", &Operations::Unlock},
        Row{kBase, "close-session", &Operations::CloseSession},
        Row{kBase, "kill-session", &Operations::KillSession},
        Row{"ietf-netconf-monitoring", "get-schema", &Operations::GetSchema},
        Row{kSystem, "ha-transition", &Operations::HaTransition},
        Row{kSystem, "sflow-resync", &Operations::SflowResync},
        Row{kSystem, "backup", &Operations::MakeBackup},
    };
    const std::string_view module = operation->schema->module->name;
    const std::string_view name = operation->schema->name;
    const auto* row = std::find_if(kRows.begin(), kRows.end(), [module, name](const Row& each) {
        return each.module == module && each.name == name;
    });
    return row == kRows.end() ? nullptr : row->handler;
}

void Operations::Handle(const RequestPtr& request)
{
    if (RefuseDenied(request)) return;
    if (const Handler handler = Find(request->Operation())) return (this->*handler)(request);
    const std::string name = request->Operation()->schema->name;
    request->Refuse(MakeError(Layer::kProtocol, cdb::ErrorTag::kOperationNotSupported,
                              "the operation " + name + " is not offered", {{"bad-element", name}}));
}

bool Operations::RefuseDenied(const RequestPtr& request)
{
    const lysc_node* operation = request->Operation()->schema;
    if (request->Who().access->MayExecute(operation)) return false;
    ++m_services.access.Denied().operations;
    request->Refuse(MakeError(Layer::kProtocol, cdb::ErrorTag::kAccessDenied,
                              request->Who().user + " may not execute " + operation->name +
                                  "; the rules of access (cdbd --access) decide it"));
    return true;
}

void Operations::InTurn(const RequestPtr& request, std::function<void(const SerialQueue::TicketPtr&)> work)
{
    m_queue.Push([request, doWork = std::move(work)](const SerialQueue::TicketPtr& ticket) {
        if (request->Wanted()) doWork(ticket);
    });
}

bool Operations::RefuseLocked(const RequestPtr& request, Target target)
{
    const auto holder = m_locks.HeldByOther(target, request->Who().id);
    if (!holder) return false;
    request->Refuse(MakeError(Layer::kProtocol, cdb::ErrorTag::kInUse,
                              std::string(target == Target::kRunning ? "running" : "candidate") +
                                  " is locked by session " + std::to_string(*holder) +
                                  "; wait until it unlocks, or end it with kill-session"));
    return true;
}

}  // namespace agent
