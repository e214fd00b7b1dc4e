// Asks the holders of callpoints about the entries that an edit creates. All requests go out without
// waiting for each other's answers, as fast as the holder's connection takes them.

#ifndef AGENT_CALLPOINTS_H
#define AGENT_CALLPOINTS_H

#include <chrono>
#include <functional>
#include <variant>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "agent/clients.h"
#include "cdb/datastore.h"

namespace agent {

class Callpoints {
public:
    using Result = std::variant<std::vector<cdb::LeafWrite>, cdb::Error>;

    /// `timeout`: how long there may be no answer at all while some are missing.
    Callpoints(boost::asio::io_context& loop, const cdb::SchemaTable& schema, const Clients& clients,
               std::chrono::milliseconds timeout);

    /// `done` is called once: with the writes in the order of the entries, or with why the edit can't
    /// be made. From inside Ask where there is nothing to ask or nobody to ask.
    void Ask(std::vector<cdb::NewEntry> entries, std::function<void(Result)> done);

private:
    boost::asio::io_context& m_loop;
    const cdb::SchemaTable& m_schema;
    const Clients& m_clients;
    std::chrono::milliseconds m_timeout;
    std::uint32_t m_lastTransaction = 0;
};

}  // namespace agent

#endif
