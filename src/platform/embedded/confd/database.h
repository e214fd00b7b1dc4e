// SPDX-License-Identifier: Apache-2.0
// The running datastore as the client API reads it: the store, opened for one connection to cdbd, and the
// read sessions on it. One for each process, in its runtime.

#ifndef PLATFORM_EMBEDDED_CONFD_DATABASE_H
#define PLATFORM_EMBEDDED_CONFD_DATABASE_H

#include <confd_lib.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "cdb/model/schema_table.h"
#include "cdb/rows/reader.h"

namespace embedded {

class ReadSession;

class Database {
public:
    Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database();

    /// Opens the store anew; ends the sessions and views of the previous one. Throws cdb::FatalError.
    void Open(const std::string& directory);

    /// The schema of the store opened last. Throws ClientError if none was opened.
    [[nodiscard]] const cdb::SchemaTable& Schema() const;

    /// While a Pin lives, new sessions read the commit that was the last one when it was made.
    class Pin {
    public:
        explicit Pin(Database& database);
        Pin(const Pin&) = delete;
        Pin& operator=(const Pin&) = delete;
        ~Pin();

    private:
        Database& m_database;
    };

    /// A socket number for a new session. Throws ClientError or cdb::FatalError.
    int OpenSession();
    /// No effect if no session has the number.
    void CloseSession(int socket) noexcept;

    /// Throws ClientError if no session has the number.
    [[nodiscard]] ReadSession& Session(int socket);

private:
    struct Store;
    [[nodiscard]] std::shared_ptr<const cdb::StoreReader::Snapshot> View() const;

    std::unique_ptr<Store> m_store;  // outlives the views and sessions below
    std::shared_ptr<const cdb::StoreReader::Snapshot> m_pinned;
    std::map<int, std::unique_ptr<ReadSession>> m_sessions;
};

}  // namespace embedded

#endif
