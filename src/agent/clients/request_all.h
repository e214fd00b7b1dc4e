// SPDX-License-Identifier: Apache-2.0
// Asks several clients one question and collects the results.

#ifndef AGENT_CLIENTS_REQUEST_ALL_H
#define AGENT_CLIENTS_REQUEST_ALL_H

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "agent/clients/client.h"
#include "base/timers.h"

namespace agent {

struct OutgoingRequest {
    Client::AnswerKey key;
    std::shared_ptr<ipc::cdb::ServerMessage> message = std::make_shared<ipc::cdb::ServerMessage>();
    /// Sent instead of `message` if not null: a message that was serialized before.
    std::shared_ptr<const google::protobuf::MessageLite> written{};

    [[nodiscard]] const google::protobuf::MessageLite& Content() const
    {
        return written ? *written : *message;
    }
};

enum class Outcome : std::uint8_t { kAnswered, kGone, kLate };

struct Answer {
    ClientPtr client;
    Outcome outcome = Outcome::kLate;
    ipc::cdb::ClientMessage message;  // if answered
};

/// Asks all clients at once. Calls `done` once, when each has answered or gone, or the time is over; from
/// inside RequestAll if all have gone. The answers are in the order of the clients.
void RequestAll(base::Timers& timers, const std::vector<ClientPtr>& clients,
                const std::function<OutgoingRequest(Client& client)>& makeRequest,
                std::chrono::milliseconds timeout,
                std::function<void(const std::vector<Answer>& answers)> done);

}  // namespace agent

#endif
