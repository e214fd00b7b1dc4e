// SPDX-License-Identifier: Apache-2.0
// The store of one connection, its sessions, and the commit that a Pin holds them at.

#include "platform/embedded/confd/database.h"

#include "platform/embedded/confd/error.h"
#include "platform/embedded/confd/read_session.h"

namespace embedded {
namespace {

/// Session numbers differ from kMaapiSocket.
constexpr int kFirstSession = 2;

}  // namespace

struct Database::Store {
    explicit Store(const std::string& directory) : reader(cdb::StoreReader::Open(directory)) {}
    std::unique_ptr<cdb::StoreReader> reader;
    SchemaCache cache{reader->Schema()};
};

Database::Database() = default;
Database::~Database() = default;

void Database::Open(const std::string& directory)
{
    m_sessions.clear();
    m_pinned.reset();
    m_store.reset();  // first: a process may not have one store open twice
    m_store = std::make_unique<Store>(directory);
}

const cdb::SchemaTable& Database::Schema() const
{
    if (m_store == nullptr) throw ClientError("not connected to cdbd yet");
    return m_store->cache.schema;
}

Database::Pin::Pin(Database& database) : m_database(database) { m_database.m_pinned = m_database.View(); }

Database::Pin::~Pin() { m_database.m_pinned.reset(); }

std::shared_ptr<const cdb::StoreReader::Snapshot> Database::View() const
{
    if (m_store == nullptr) throw ClientError("not connected to cdbd yet");
    if (m_pinned != nullptr) return m_pinned;
    return std::make_shared<const cdb::StoreReader::Snapshot>(m_store->reader->Read());
}

int Database::OpenSession()
{
    auto view = View();
    int socket = kFirstSession;
    while (m_sessions.contains(socket)) ++socket;
    m_sessions.emplace(socket, std::make_unique<ReadSession>(m_store->cache, std::move(view)));
    return socket;
}

void Database::CloseSession(int socket) noexcept { m_sessions.erase(socket); }

ReadSession& Database::Session(int socket)
{
    const auto found = m_sessions.find(socket);
    if (found == m_sessions.end())
        throw ClientError("no read session has the socket " + std::to_string(socket));
    return *found->second;
}

}  // namespace embedded
