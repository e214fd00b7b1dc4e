// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/ha_role.h"

#include <memory>
#include <optional>
#include <utility>

#include "agent/data/errors.h"
#include "log/log.h"

namespace agent {
namespace {

using ipc::cdb::ClientMessage;

/// Ends when both the answers and the write are there.
struct Transition {
    HaRole::Done done;
    std::vector<netconf::RpcError> warnings;
    int open = 2;

    void Part(std::vector<netconf::RpcError> more)
    {
        for (auto& each : more) warnings.push_back(std::move(each));
        if (--open == 0) done(warnings);
    }
};

}  // namespace

const char* Explain(Outcome outcome)
{
    return outcome == Outcome::kGone ? "has gone" : "has not answered in time";
}

HaRole::HaRole(Services services) : m_services(std::move(services)), m_role(m_services.store.RoleOfNode())
{
    m_services.state.SetRole(m_role);
}

void HaRole::Take(cdb::Role role, const std::string& user, Done done)
{
    slog::Notice("{} makes the processes {}", user, role == cdb::Role::kActive ? "active" : "standby");
    if (m_role.role != role) m_role = {role, m_services.now(), user};
    m_services.state.SetRole(m_role);
    const auto transition = std::make_shared<Transition>(Transition{std::move(done), {}});
    const auto problem = std::make_shared<std::optional<cdb::Error>>();
    m_services.changes.Do([this, problem, kept = m_role] { *problem = m_services.store.SetRoleOfNode(kept); },
                          [transition, problem] {
                              std::vector<netconf::RpcError> warnings;
                              if (*problem) {
                                  const std::string text =
                                      "the role is not kept over a restart of cdbd: " + (*problem)->message;
                                  slog::Error("{}", text);
                                  warnings.push_back(MakeWarning(text));
                              }
                              transition->Part(std::move(warnings));
                          });
    TellAll(m_services.clients.Ready(),
            [this, transition](const std::vector<Answer>& answers) { transition->Part(Warnings(answers)); });
}

void HaRole::Tell(Client& client)
{
    if (m_role.role == cdb::Role::kUnknown) return;
    TellAll({client.shared_from_this()},
            [this](const std::vector<Answer>& answers) { static_cast<void>(Warnings(answers)); });
}

void HaRole::TellAll(const std::vector<ClientPtr>& clients, Answered answered)
{
    const auto ask = [role = m_role.role](Client& client) {
        OutgoingRequest outgoing{{ClientMessage::kHaReply, client.NextRequest()}};
        auto& transition = *outgoing.message->mutable_ha_transition();
        transition.set_request(outgoing.key.second);
        transition.set_role(role == cdb::Role::kActive ? ipc::cdb::HaTransition::ACTIVE
                                                       : ipc::cdb::HaTransition::STANDBY);
        client.TellRole(outgoing.key.second, role);
        return outgoing;
    };
    RequestAll(m_services.timers, clients, ask, m_services.timeout, std::move(answered));
}

std::vector<netconf::RpcError> HaRole::Warnings(const std::vector<Answer>& answers) const
{
    std::vector<netconf::RpcError> warnings;
    for (const MissingSubscriber& each : m_services.clients.Missing())
        warnings.push_back(MakeWarning("the transition: " + each.Name() +
                                       " is disconnected because it did not answer; it is told the role when "
                                       "it is back"));
    for (const Answer& answer : answers) {
        if (answer.outcome == Outcome::kAnswered && answer.message.ha_reply().handled()) continue;
        const std::string why =
            answer.outcome == Outcome::kAnswered ? "has not handled it" : Explain(answer.outcome);
        const std::string text = "the transition: " + answer.client->Name() + " " + why;
        slog::Error("{}", text);
        warnings.push_back(MakeWarning(text));
    }
    return warnings;
}

}  // namespace agent
