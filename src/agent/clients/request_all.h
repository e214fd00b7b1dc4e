// SPDX-License-Identifier: Apache-2.0
// One question to several clients, and what became of it.

#ifndef AGENT_CLIENTS_REQUEST_ALL_H
#define AGENT_CLIENTS_REQUEST_ALL_H

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "agent/clients/client.h"

namespace agent {

struct OutgoingRequest {
    Client::AnswerKey key;
    std::shared_ptr<ipc::cdb::ServerMessage> message = std::make_shared<ipc::cdb::ServerMessage>();
    /// Sent in its place where there is one: a message that was written out before.
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
    ipc::cdb::ClientMessage message;  // where answered
};

/// Asks all of them at once. `done` is called once, from the loop, when each has answered, has gone
/// or the time is over; the answers are in the order of the clients.
void RequestAll(boost::asio::io_context& loop, const std::vector<ClientPtr>& clients,
                const std::function<OutgoingRequest(Client& client)>& makeRequest,
                std::chrono::milliseconds timeout,
                std::function<void(const std::vector<Answer>& answers)> done);

}  // namespace agent

#endif
