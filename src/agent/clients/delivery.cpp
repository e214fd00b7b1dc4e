// SPDX-License-Identifier: Apache-2.0
#include "agent/clients/delivery.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>

#include <google/protobuf/arena.h>

#include "agent/clients/provider_node.h"
#include "log/log.h"

namespace agent {
namespace {

struct Recipient {
    ClientPtr client;
    std::vector<std::uint32_t> points;  // subscription ids, in the order of their priorities
    std::int32_t lowest = 0;            // of the priorities
};

std::vector<Recipient> RecipientsOf(const cdb::SchemaTable& schema, const Clients& clients,
                                    const cdb::ChangeSet& changes)
{
    std::vector<Recipient> recipients;
    for (const ClientPtr& client : clients.Ready()) {
        if (client->WelcomeCommit() >= changes.commit) continue;
        std::vector<Subscription> touched;
        for (const Subscription& each : client->Subscriptions())
            if (cdb::Touches(schema, changes, each.point)) touched.push_back(each);
        if (touched.empty()) continue;
        std::stable_sort(touched.begin(), touched.end(), [](const Subscription& a, const Subscription& b) {
            return a.priority < b.priority;
        });
        Recipient recipient{client, {}, touched.front().priority};
        for (const Subscription& each : touched) recipient.points.push_back(each.id);
        recipients.push_back(std::move(recipient));
    }
    std::stable_sort(recipients.begin(), recipients.end(),
                     [](const Recipient& a, const Recipient& b) { return a.lowest < b.lowest; });
    return recipients;
}

/// The text for the committer of a change that no subscriber gets.
std::string NoSubscriber(const Clients& clients, std::uint64_t commit)
{
    return "commit " + std::to_string(commit) + " stands, but no process " +
           (clients.Ready().empty() ? "is connected" : "that is connected subscribes to what it changes") +
           "; it takes effect when the process that does connects";
}

/// Likewise where the modules tell which process should be there.
std::string NoSubscriber(std::uint64_t commit, const std::string& path, const std::string& process)
{
    return "commit " + std::to_string(commit) +
           " stands, but no process that is connected subscribes to what it changes below " + path +
           "; that takes effect when " + process + " connects";
}

/// Likewise of a subscriber that is not waited for. `misses`: this commit included.
std::string NotWaitedFor(std::uint64_t commit, const std::string& name, const Misses& misses,
                         std::int64_t nowUs, const char* how)
{
    constexpr std::int64_t kSecond = 1'000'000;
    return "commit " + std::to_string(commit) + " stands, but " + name +
           " is not waited for: it has missed " + std::to_string(misses.commits) + " commits in " +
           std::to_string((nowUs - misses.sinceUs) / kSecond) + " s; " + how;
}

bool IsAtOrBelow(const cdb::SchemaTable& schema, cdb::NodeId node, cdb::NodeId top)
{
    while (node != top && node != cdb::kNoNode) node = schema[node].parent;
    return node == top;
}

/// Whether a client hears of a change below the container.
bool Hears(const cdb::SchemaTable& schema, const Client& client, cdb::NodeId container,
           const cdb::ChangeSet& changes)
{
    const auto& points = client.Subscriptions();
    return std::any_of(points.begin(), points.end(), [&](const Subscription& each) {
        if (IsAtOrBelow(schema, container, each.point)) return true;
        return IsAtOrBelow(schema, each.point, container) && cdb::Touches(schema, changes, each.point);
    });
}

bool IsTouched(const cdb::SchemaTable& schema, const cdb::ChangeSet& changes,
               const MissingSubscriber& subscriber)
{
    return std::any_of(subscriber.points.begin(), subscriber.points.end(),
                       [&](cdb::NodeId point) { return cdb::Touches(schema, changes, point); });
}

class PendingDelivery : public std::enable_shared_from_this<PendingDelivery> {
public:
    PendingDelivery(base::Timers& timers, const Clients& clients, const AckTimes& times,
                    std::vector<Recipient> recipients, const WrittenChanges& written,
                    std::vector<std::string> warnings, Delivery::OnStuck onStuck, Delivery::Done done)
        : m_timers(timers),
          m_clients(clients),
          m_times(times),
          m_recipients(std::move(recipients)),
          m_commit(written.changes.commit),
          m_onStuck(std::move(onStuck)),
          m_done(std::move(done)),
          m_result{std::move(warnings), {}}
    {
        m_message->mutable_change_set()->set_commit(m_commit);
        m_message->mutable_change_set()->set_root(written.root);
    }

    void Next()
    {
        while (m_next != m_recipients.size()) {
            const Recipient& recipient = m_recipients[m_next++];
            auto& points = *m_message->mutable_change_set()->mutable_points();
            points.Assign(recipient.points.begin(), recipient.points.end());
            if (recipient.client->Missed().Awaited()) return Await(recipient);
            PassOver(*recipient.client);
        }
        m_done(std::move(m_result));
    }

private:
    using Clock = std::chrono::steady_clock;

    /// Sends the message; Next follows when the acknowledgement has come or the time is over.
    void Await(const Recipient& recipient)
    {
        recipient.client->SetApplying(true);
        m_sent = Clock::now();
        RequestAll(
            m_timers, {recipient.client},
            [this](Client&) {
                OutgoingRequest outgoing{{ipc::cdb::ClientMessage::kChangeSetAck, m_commit}};
                outgoing.written = m_message;
                return outgoing;
            },
            m_times.Of(recipient.client->Process()),
            [self = shared_from_this()](const std::vector<Answer>& answers) {
                self->Take(answers.front());
                self->Next();
            });
    }

    void PassOver(Client& client)
    {
        if (client.CurrentPhase() == Client::Phase::kEnded) return;  // counted as a missing one at the next
        client.SendChanges(m_commit, *m_message);
        client.AddMiss();
        m_result.warnings.push_back(
            NotWaitedFor(m_commit, client.Name(), client.Missed(), m_clients.NowUs(),
                         "it is connected again and has not loaded the configuration yet"));
    }

    void Take(const Answer& answer)
    {
        answer.client->SetApplying(false);
        if (answer.outcome == Outcome::kAnswered) {
            m_result.acknowledged.push_back(
                {answer.client->Process(),
                 std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - m_sent)});
            return;
        }
        const bool late = answer.outcome == Outcome::kLate;
        const std::string text =
            answer.client->Name() + " has not acknowledged commit " + std::to_string(m_commit) + ": " +
            (late ? "it took longer than " + std::to_string(m_times.Of(answer.client->Process()).count()) +
                        " ms and was disconnected"
                  : "its connection is gone") +
            "; it loads the whole configuration when it connects again";
        slog::Error("{}", text);
        m_result.warnings.push_back(text);
        if (!late) return;
        if (m_onStuck) m_onStuck(*answer.client, m_commit);
        answer.client->AddMiss();
        answer.client->Disconnect("it did not acknowledge a commit in time");
    }

    base::Timers& m_timers;
    const Clients& m_clients;
    const AckTimes& m_times;
    std::vector<Recipient> m_recipients;
    std::uint64_t m_commit;
    Delivery::OnStuck m_onStuck;
    Delivery::Done m_done;
    Delivery::Result m_result;
    Clock::time_point m_sent;
    std::shared_ptr<ipc::cdb::WrittenServerMessage> m_message =
        std::make_shared<ipc::cdb::WrittenServerMessage>();
    std::size_t m_next = 0;
};

}  // namespace

WrittenChanges WriteOut(cdb::ChangeSet changes)
{
    google::protobuf::Arena arena;  // a large change has many parts
    auto* message = google::protobuf::Arena::CreateMessage<ipc::cdb::ChangeNode>(&arena);
    cdb::ToMessage(changes.root, *message);
    return {std::move(changes), message->SerializeAsString()};
}

Delivery::Delivery(base::Timers& timers, const cdb::Schema& schema, Clients& clients, AckTimes times)
    : m_timers(timers), m_schema(schema.Table()), m_clients(clients), m_times(std::move(times))
{
    for (const ExpectedProcess& each : ExpectedSubscribers(schema.Context()))
        m_expected.push_back({schema.IdOf(each.container), each.path, each.process});
}

std::vector<std::string> Delivery::Unheard(const cdb::ChangeSet& changes) const
{
    std::vector<std::string> texts;
    const auto ready = m_clients.Ready();
    for (const Expected& expected : m_expected) {
        if (!cdb::Touches(m_schema, changes, expected.container)) continue;
        const bool heard = std::any_of(ready.begin(), ready.end(), [&](const ClientPtr& client) {
            return Hears(m_schema, *client, expected.container, changes);
        });
        const auto& missing = m_clients.Missing();
        const bool named = std::any_of(missing.begin(), missing.end(), [&](const MissingSubscriber& each) {
            return each.process == expected.process && IsTouched(m_schema, changes, each);
        });
        if (!heard && !named) texts.push_back(NoSubscriber(changes.commit, expected.path, expected.process));
    }
    return texts;
}

std::vector<std::string> Delivery::CountMissing(const cdb::ChangeSet& changes) const
{
    std::vector<std::string> texts;
    m_clients.AddMisses([&](const MissingSubscriber& each) {
        if (!IsTouched(m_schema, changes, each)) return false;
        Misses misses = each.misses;
        misses.Add(m_clients.NowUs());
        texts.push_back(NotWaitedFor(changes.commit, each.Name(), misses, m_clients.NowUs(),
                                     "it was disconnected because it did not answer, and loads the whole "
                                     "configuration when it connects again"));
        return true;
    });
    return texts;
}

void Delivery::Deliver(const WrittenChanges& written, Done done)
{
    auto recipients = RecipientsOf(m_schema, m_clients, written.changes);
    auto warnings = Unheard(written.changes);
    for (std::string& text : CountMissing(written.changes)) warnings.push_back(std::move(text));
    if (recipients.empty() && warnings.empty())
        warnings.push_back(NoSubscriber(m_clients, written.changes.commit));
    if (recipients.empty()) return done({std::move(warnings), {}});
    std::make_shared<PendingDelivery>(m_timers, m_clients, m_times, std::move(recipients), written,
                                      std::move(warnings), m_onStuck, std::move(done))
        ->Next();
}

}  // namespace agent
