// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/inquiry.h"

#include <chrono>
#include <exception>
#include <utility>

#include "netconf/socket.h"

namespace cli {

Inquiry::Inquiry(const Connect& connect) : m_connect(connect), m_session(connect()) {}

void Inquiry::Ask(std::vector<std::string> operations)
{
    m_operations = std::move(operations);
    m_replies.clear();
    m_isBusy = true;
    m_isSent = false;
    // A server that accepts and says nothing holds up the one who connects.
    if (!m_session && !m_connecting.valid()) m_connecting = std::async(std::launch::async, m_connect);
}

int Inquiry::Descriptor() const { return m_session && m_isSent ? m_session->Descriptor() : -1; }

std::optional<Inquiry::Answer> Inquiry::Take()
{
    if (!m_isBusy) return std::nullopt;
    try {
        Advance();
    } catch (const netconf::ConnectionError& error) {
        m_session.reset();  // the next one connects again
        m_isBusy = false;
        return Answer{{}, error.what()};
    }
    if (m_replies.size() < m_operations.size()) return std::nullopt;
    m_isBusy = false;
    return Answer{std::exchange(m_replies, {}), {}};
}

void Inquiry::Advance()
{
    if (!m_session) {
        if (m_connecting.wait_for(std::chrono::seconds(0)) != std::future_status::ready) return;
        m_session = m_connecting.get();
    }
    if (!m_isSent) Send();
    while (m_replies.size() < m_operations.size()) {
        const auto message = m_session->ReceiveMessageWithin(std::chrono::milliseconds(0));
        if (!message) return;
        auto reply = netconf::ParseReply(*message);
        if (!reply) throw netconf::ConnectionError(reply.error());
        m_replies.push_back(*std::move(reply));
    }
}

void Inquiry::Send()
{
    for (const std::string& operation : m_operations) m_session->Send(operation);
    m_isSent = true;
}

}  // namespace cli
