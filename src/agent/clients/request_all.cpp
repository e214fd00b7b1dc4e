// SPDX-License-Identifier: Apache-2.0
#include "agent/clients/request_all.h"

#include <memory>
#include <utility>

namespace agent {
namespace {

class PendingRequests : public std::enable_shared_from_this<PendingRequests> {
public:
    explicit PendingRequests(std::function<void(const std::vector<Answer>&)> done) : m_done(std::move(done))
    {
    }

    void Run(base::Timers& timers, const std::vector<ClientPtr>& clients,
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
        if (m_open == 0) return Finish();
        m_timer = timers.After(timeout, [weak = weak_from_this()] {
            if (const auto late = weak.lock()) late->Finish();
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
        m_timer.reset();
        for (std::size_t i = 0; i < m_answers.size(); ++i)
            if (m_answers[i].outcome == Outcome::kLate) m_answers[i].client->Forget(m_keys[i]);
        std::exchange(m_done, nullptr)(m_answers);
    }

    std::shared_ptr<void> m_timer;
    std::function<void(const std::vector<Answer>&)> m_done;
    std::vector<Answer> m_answers;
    std::vector<Client::AnswerKey> m_keys;
    std::size_t m_open = 0;
};

}  // namespace

void RequestAll(base::Timers& timers, const std::vector<ClientPtr>& clients,
                const std::function<OutgoingRequest(Client& client)>& makeRequest,
                std::chrono::milliseconds timeout,
                std::function<void(const std::vector<Answer>& answers)> done)
{
    std::make_shared<PendingRequests>(std::move(done))->Run(timers, clients, makeRequest, timeout);
}

}  // namespace agent
