// SPDX-License-Identifier: Apache-2.0
#include "agent/clients/callpoints.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include <boost/asio/post.hpp>

#include "base/text.h"
#include "cdb/model/value_message.h"

namespace agent {
namespace {

using Time = std::chrono::steady_clock::time_point;
using ipc::cdb::ClientMessage;

/// Bytes that may wait in a holder's connection before the next request is made.
constexpr std::size_t kMaxWaiting = std::size_t{4} << 20;

/// Requests made in one turn of the loop.
constexpr std::size_t kMadeAtOnce = 256;

cdb::Error Failure(const cdb::NewEntry& entry, const cdb::SchemaTable& schema, const std::string& why)
{
    cdb::Error error;
    error.tag = cdb::ErrorTag::kOperationFailed;
    error.message = "the callpoint " + entry.callpoint + " can't be asked about " +
                    ToText(schema, entry.path) + ": " + why;
    return error;
}

/// The requests of one edit.
class PendingRequest : public std::enable_shared_from_this<PendingRequest> {
public:
    PendingRequest(boost::asio::io_context& loop, base::Timers& timers, const cdb::SchemaTable& schema,
                   Callpoints::Limits limits, std::uint32_t transaction, std::vector<cdb::NewEntry> entries,
                   std::function<void(Callpoints::Result)> done)
        : m_loop(loop),
          m_timers(timers),
          m_schema(schema),
          m_limits(limits),
          m_transaction(transaction),
          m_entries(std::move(entries)),
          m_writes(m_entries.size()),
          m_keys(m_entries.size()),
          m_isAnswered(m_entries.size()),
          m_done(std::move(done))
    {
    }

    void Run(std::map<std::string, ClientPtr> holders)
    {
        m_holders = std::move(holders);
        m_begin = m_timers.Now();
        m_progress = m_begin;
        Pump();
        if (m_done) Watch();
    }

    void Cancel()
    {
        if (!m_done) return;
        ForgetAll();
        m_timer.reset();
        m_done = nullptr;
    }

private:
    void Pump()
    {
        if (m_goesOn) return;
        const std::size_t last = std::min(m_next + kMadeAtOnce, m_entries.size());
        while (m_done && m_next < m_entries.size()) {
            if (m_next == last) {
                m_goesOn = true;
                boost::asio::post(m_loop, [self = shared_from_this()] {
                    self->m_goesOn = false;
                    self->Pump();
                });
                return;
            }
            const std::size_t index = m_next;
            const ClientPtr& holder = m_holders.at(m_entries[index].callpoint);
            if (holder->QueuedBytes() > kMaxWaiting && m_next > m_answered) return;
            ++m_next;
            const std::uint64_t number = holder->NextRequest();
            m_keys[index] = {ClientMessage::kCallpointReply, number};
            const auto take = [self = shared_from_this(), index](const ClientMessage* message) {
                self->Take(index, message);
            };
            if (!holder->Ask(m_keys[index], MakeRequest(index, number), take))
                Fail(index, holder->Name() + " has gone; start it again");
        }
    }

    void ForgetAll()
    {
        for (std::size_t i = 0; i < m_next; ++i) m_holders.at(m_entries[i].callpoint)->Forget(m_keys[i]);
    }

    [[nodiscard]] Time Deadline() const
    {
        return std::min(m_progress + m_limits.progress, m_begin + m_limits.total);
    }

    [[nodiscard]] ipc::cdb::ServerMessage MakeRequest(std::size_t index, std::uint64_t number) const
    {
        ipc::cdb::ServerMessage message;
        ipc::cdb::CallpointRequest& request = *message.mutable_callpoint_request();
        request.set_request(number);
        request.set_transaction(m_transaction);
        request.set_callpoint(m_entries[index].callpoint);
        request.set_operation(ipc::cdb::CallpointRequest::CREATE);
        request.set_path(ToText(m_schema, m_entries[index].path));
        return message;
    }

    void Take(std::size_t index, const ClientMessage* message)
    {
        if (!m_done) return;
        const ClientPtr holder = m_holders.at(m_entries[index].callpoint);
        if (message == nullptr) return Fail(index, holder->Name() + " has gone; start it again");
        const ipc::cdb::CallpointReply& reply = message->callpoint_reply();
        if (!reply.ok())
            return Fail(index,
                        holder->Name() + " refuses: " +
                            (reply.error().empty() ? "it gives no reason; see its log" : reply.error()));
        if (const auto problem = TakeWrites(index, reply))
            return Fail(index, holder->Name() + " answers with a write that can't be made: " +
                                   base::Presentable(*problem));
        m_isAnswered[index] = true;
        ++m_answered;
        m_progress = m_timers.Now();
        if (m_answered < m_entries.size()) return Pump();
        std::vector<cdb::LeafWrite> writes;
        for (auto& each : m_writes)
            for (cdb::LeafWrite& write : each) writes.push_back(std::move(write));
        Finish(std::move(writes));
    }

    std::optional<std::string> TakeWrites(std::size_t index, const ipc::cdb::CallpointReply& reply)
    {
        for (const ipc::cdb::PathWrite& write : reply.writes()) {
            auto path = cdb::ParsePath(m_schema, write.path());
            if (!path) return path.error();
            auto value = cdb::FromMessage(write.value());
            if (!value) return "the value of " + write.path() + " does not fit its type";
            m_writes[index].push_back({*std::move(path), *std::move(value)});
        }
        return std::nullopt;
    }

    void Watch()
    {
        m_timer = m_timers.At(Deadline(), [weak = weak_from_this()] {
            const auto self = weak.lock();
            if (!self || !self->m_done) return;
            if (self->m_timers.Now() < self->Deadline()) return self->Watch();
            std::size_t missing = 0;
            while (self->m_isAnswered[missing]) ++missing;
            const bool isStuck =
                self->m_progress + self->m_limits.progress <= self->m_begin + self->m_limits.total;
            const auto limit = isStuck ? self->m_limits.progress : self->m_limits.total;
            const std::string seconds = std::to_string(static_cast<double>(limit.count()) / 1000.0);
            self->Fail(missing,
                       self->m_holders.at(self->m_entries[missing].callpoint)->Name() +
                           (isStuck ? " has not answered for " : " has not answered all questions within ") +
                           seconds.substr(0, seconds.find('.') + 2) + " s; restart it");
        });
    }

    void Fail(std::size_t index, const std::string& why)
    {
        if (!m_done) return;
        ForgetAll();
        Finish(base::Unexpected(Failure(m_entries[index], m_schema, why)));
    }

    void Finish(Callpoints::Result result)
    {
        m_timer.reset();
        std::exchange(m_done, nullptr)(std::move(result));
    }

    boost::asio::io_context& m_loop;
    base::Timers& m_timers;
    std::shared_ptr<void> m_timer;
    const cdb::SchemaTable& m_schema;
    Callpoints::Limits m_limits;
    std::uint32_t m_transaction;
    std::vector<cdb::NewEntry> m_entries;
    std::vector<std::vector<cdb::LeafWrite>> m_writes;  // of each entry
    std::vector<Client::AnswerKey> m_keys;              // of the requests made
    std::vector<bool> m_isAnswered;
    std::function<void(Callpoints::Result)> m_done;  // null: over
    std::map<std::string, ClientPtr> m_holders;
    std::size_t m_next = 0;
    std::size_t m_answered = 0;
    bool m_goesOn = false;  // the next requests are made in the next turn of the loop
    Time m_begin;
    Time m_progress;
};

}  // namespace

Callpoints::Callpoints(boost::asio::io_context& loop, base::Timers& timers, const cdb::SchemaTable& schema,
                       const Clients& clients, Limits limits)
    : m_loop(loop), m_timers(timers), m_schema(schema), m_clients(clients), m_limits(limits)
{
}

Callpoints::Cancel Callpoints::Ask(std::vector<cdb::NewEntry> entries, std::function<void(Result)> done)
{
    std::map<std::string, ClientPtr> holders;
    for (const cdb::NewEntry& entry : entries) {
        ClientPtr& holder = holders[entry.callpoint];
        if (!holder) holder = m_clients.CallpointHolder(entry.callpoint);
        if (holder) continue;
        done(base::Unexpected(
            Failure(entry, m_schema, "no process serves it; start sflow-app and try again")));
        return nullptr;
    }
    if (entries.empty()) {
        done(std::vector<cdb::LeafWrite>{});
        return nullptr;
    }
    const auto pending = std::make_shared<PendingRequest>(
        m_loop, m_timers, m_schema, m_limits, ++m_lastTransaction, std::move(entries), std::move(done));
    pending->Run(std::move(holders));
    return [pending] { pending->Cancel(); };
}

}  // namespace agent
