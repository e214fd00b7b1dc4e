// SPDX-License-Identifier: Apache-2.0
#include "cli/shell/timed_session.h"

#include <utility>

namespace cli {

std::optional<netconf::Reply> TimedSession::Call(netconf::Client& session, std::string_view operation,
                                                 std::chrono::milliseconds within)
{
    if (m_owes && !session.ReceiveMessageWithin(within)) return std::nullopt;
    m_owes = true;
    session.Send(operation);
    const auto message = session.ReceiveMessageWithin(within);
    if (!message) return std::nullopt;
    m_owes = false;
    auto reply = netconf::ParseReply(*message);
    if (!reply) return std::nullopt;
    return *std::move(reply);
}

void TimedSession::Settle(netconf::Client& session)
{
    if (std::exchange(m_owes, false)) session.Receive();
}

}  // namespace cli
