// SPDX-License-Identifier: Apache-2.0
#include "agent/clients/request_all.h"

#include <memory>
#include <utility>

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

namespace agent {
namespace {

class RequestRound : public std::enable_shared_from_this<RequestRound> {
public:
    RequestRound(boost::asio::io_context& loop, std::function<void(const std::vector<Answer>&)> done)
        : m_timer(loop), m_done(std::move(done))
    {
    }

    void Run(const std::vector<ClientPtr>& clients,
             const std::function<OutgoingRequest(Client&)>& makeRequest, std::chrono::milliseconds timeout)
    {
        const auto self = shared_from_this();
        m_open = clients.size();
        for (std::size_t i = 0; i < clients.size(); ++i) {
            const OutgoingRequest outgoing = makeRequest(*clients[i]);
            m_keys.push_back(outgoing.key);
            m_answers.push_back({clients[i], Outcome::kLate, {}});
            const auto take = [self, i](const ipc::cdb::ClientMessage* message) { self->Take(i, message); };
            if (clients[i]->Ask(outgoing.key, outgoing.Content(), take)) continue;
            m_answers.back().outcome = Outcome::kGone;
            --m_open;
        }
        m_timer.expires_after(m_open == 0 ? std::chrono::milliseconds(0) : timeout);
        m_timer.async_wait([self](const boost::system::error_code& error) {
            if (!error) self->Finish();
        });
    }

private:
    void Take(std::size_t index, const ipc::cdb::ClientMessage* message)
    {
        Answer& answer = m_answers[index];
        answer.outcome = message == nullptr ? Outcome::kGone : Outcome::kAnswered;
        if (message != nullptr) answer.message = *message;
        if (--m_open == 0) Finish();
    }

    void Finish()
    {
        if (!m_done) return;
        m_timer.cancel();
        for (std::size_t i = 0; i < m_answers.size(); ++i)
            if (m_answers[i].outcome == Outcome::kLate) m_answers[i].client->Forget(m_keys[i]);
        std::exchange(m_done, nullptr)(m_answers);
    }

    boost::asio::steady_timer m_timer;
    std::function<void(const std::vector<Answer>&)> m_done;
    std::vector<Answer> m_answers;
    std::vector<Client::AnswerKey> m_keys;
    std::size_t m_open = 0;
};

}  // namespace

void RequestAll(boost::asio::io_context& loop, const std::vector<ClientPtr>& clients,
                const std::function<OutgoingRequest(Client& client)>& makeRequest,
                std::chrono::milliseconds timeout,
                std::function<void(const std::vector<Answer>& answers)> done)
{
    std::make_shared<RequestRound>(loop, std::move(done))->Run(clients, makeRequest, timeout);
}

}  // namespace agent
