// SPDX-License-Identifier: Apache-2.0
// Asks the processes that hold callpoints about the entries that an edit creates. Sends requests without
// waiting for answers, as fast as the holder's connection takes them.

#ifndef AGENT_CLIENTS_CALLPOINTS_H
#define AGENT_CLIENTS_CALLPOINTS_H

#include <chrono>
#include <functional>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "agent/clients/clients.h"
#include "base/expected.h"
#include "base/timers.h"
#include "cdb/datastore/edit_operation.h"
#include "cdb/model/error.h"

namespace agent {

class Callpoints {
public:
    using Result = base::expected<std::vector<cdb::LeafWrite>, cdb::Error>;

    struct Limits {
        std::chrono::milliseconds progress{5'000};  // without any answer while one is missing
        std::chrono::milliseconds total{30'000};    // for all questions of one edit
    };
    /// All references must outlive this.
    Callpoints(boost::asio::io_context& loop, base::Timers& timers, const cdb::SchemaTable& schema,
               const Clients& clients, Limits limits);

    /// Gives the inquiry up: `done` is not called any more, and is freed.
    using Cancel = std::function<void()>;

    /// Calls `done` once: with the writes in the order of the entries, or with why the edit can't be made.
    /// If there is nothing or no process to ask, calls it from inside Ask, which then returns null.
    Cancel Ask(std::vector<cdb::NewEntry> entries, std::function<void(Result)> done);

private:
    boost::asio::io_context& m_loop;
    base::Timers& m_timers;
    const cdb::SchemaTable& m_schema;
    const Clients& m_clients;
    Limits m_limits;
    std::uint32_t m_lastTransaction = 0;
};

}  // namespace agent

#endif
