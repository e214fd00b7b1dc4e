// SPDX-License-Identifier: Apache-2.0
#include "agent/state/state_query.h"

#include <algorithm>
#include <utility>

#include <boost/asio/post.hpp>

namespace agent {

StateQuery::StateQuery(boost::asio::io_context& loop, base::Timers& timers, const ly_ctx* context,
                       std::chrono::milliseconds timeout, Done done)
    : m_loop(loop), m_timers(timers), m_context(context), m_timeout(timeout), m_done(std::move(done))
{
}

void StateQuery::Run(std::vector<StateQuestion> questions)
{
    m_running = questions.size();
    for (StateQuestion& question : questions) {
        m_open.push_back(std::make_unique<Open>());
        StateOutcome& outcome = m_open.back()->outcome;
        outcome.client = question.client;
        for (const auto& part : question.request.parts()) outcome.paths.push_back(part.path());
        outcome.state = std::make_unique<ProvidedState>(m_context, question.client->Providers());
    }
    for (std::size_t i = 0; i < questions.size(); ++i) Ask(i, std::move(questions[i].request));
}

void StateQuery::Ask(std::size_t index, ipc::cdb::StateRequest&& request)
{
    Open& open = *m_open[index];
    const ClientPtr& client = open.outcome.client;
    open.outcome.key = {ipc::cdb::ClientMessage::kStateReply, client->NextRequest()};
    open.until = m_timers.Now() + kWhole * m_timeout;
    ipc::cdb::ServerMessage message;
    request.set_request(open.outcome.key.second);
    *message.mutable_state_request() = std::move(request);
    const auto take = [self = shared_from_this(), index](const ipc::cdb::ClientMessage* answer) {
        self->Take(index, answer);
    };
    if (client->Ask(open.outcome.key, message, take)) return Await(index);
    boost::asio::post(m_loop, [self = shared_from_this(), index] { self->Take(index, nullptr); });
}

void StateQuery::Await(std::size_t index)
{
    m_open[index]->timer = m_timers.After(m_timeout, [weak = weak_from_this(), index] {
        const auto self = weak.lock();
        if (!self) return;
        self->m_open[index]->outcome.late = true;
        self->End(index, "has not answered for " + DurationText(self->m_timeout));
    });
}

void StateQuery::Take(std::size_t index, const ipc::cdb::ClientMessage* message)
{
    Open& open = *m_open[index];
    if (open.ended) return;
    if (message == nullptr) return End(index, "has ended its connection");
    const ipc::cdb::StateReply& part = message->state_reply();
    if (!part.error().empty()) return End(index, "can't tell: " + part.error());
    if (const std::string fault = open.outcome.state->Take(part); !fault.empty())
        return End(index, "has sent what is no state: " + fault);
    if (!part.more()) return End(index, {});
    if (m_timers.Now() > open.until)
        return End(index, "has not come to an end of its answer in " + DurationText(kWhole * m_timeout));
    open.outcome.client->Expect(open.outcome.key,
                                [self = shared_from_this(), index](const ipc::cdb::ClientMessage* answer) {
                                    self->Take(index, answer);
                                });
    Await(index);
}

void StateQuery::End(std::size_t index, std::string problem)
{
    Open& open = *m_open[index];
    open.ended = true;
    open.timer.reset();
    open.outcome.problem = std::move(problem);
    if (open.outcome.late) open.outcome.client->Forget(open.outcome.key);
    if (--m_running > 0) return;
    std::vector<StateOutcome> outcomes;
    for (const auto& each : m_open) outcomes.push_back(std::move(each->outcome));
    std::exchange(m_done, nullptr)(std::move(outcomes));
}

std::string DurationText(std::chrono::milliseconds duration)
{
    const auto ms = duration.count();
    return ms % 1000 == 0 ? std::to_string(ms / 1000) + " s" : std::to_string(ms) + " ms";
}

}  // namespace agent
