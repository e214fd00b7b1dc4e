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
#include <vector>

#include "cdb/model/schema_table.h"
#include "cdb/rows/reader.h"
#include "platform/embedded/confd/schema_cache.h"

namespace embedded {

/// The reads of one session, which sees one commit. Every operation throws ClientError that says what is
/// wrong, or cdb::FatalError if the store can't be read. The caller frees the values.
class ReadSession {
public:
    ReadSession(SchemaCache& cache, std::shared_ptr<const cdb::StoreReader::Snapshot> view);

    /// The number of entries of a list.
    [[nodiscard]] int NumInstances(std::string_view path);
    /// Reads `count` entries from index `first` on, `perEntry` values each; fewer entries are an error.
    /// Returns the number of values that an entry has.
    int GetObjects(confd_value_t* values, int perEntry, int first, int count, std::string_view path);
    /// Reads `count` values of an entry or container. Returns the number of values that it has.
    int GetObject(confd_value_t* values, int count, std::string_view path);
    /// Reads one leaf; one without a value is an error.
    void Get(confd_value_t* value, std::string_view path);

private:
    struct Entry {
        std::vector<std::string> keys;
        cdb::Row row;
    };

    const ReadPath& Resolved(std::string_view path);
    const ReadPath& ResolvedList(std::string_view path);
    [[nodiscard]] std::vector<std::string> KeysAt(cdb::NodeId list,
                                                  const std::vector<std::string>& parentKeys,
                                                  std::size_t index) const;
    [[nodiscard]] bool Exists(cdb::NodeId node, const std::vector<std::string>& keys) const;
    [[nodiscard]] cdb::Row RowOf(cdb::NodeId entry, const std::vector<std::string>& keys,
                                 std::string_view path) const;

    SchemaCache& m_cache;
    std::shared_ptr<const cdb::StoreReader::Snapshot> m_view;
    const PathReader::Resolve m_resolve;

    // The entries of the short list counted last: a reader counts a list and then reads it.
    std::string m_countedPath;
    std::vector<Entry> m_counted;
};

class Database {
public:
    Database() = default;
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

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
    struct Store {
        explicit Store(const std::string& directory) : reader(cdb::StoreReader::Open(directory)) {}

        std::unique_ptr<cdb::StoreReader> reader;
        SchemaCache cache{reader->Schema()};
    };

    [[nodiscard]] std::shared_ptr<const cdb::StoreReader::Snapshot> View() const;

    std::unique_ptr<Store> m_store;  // outlives the views and sessions below
    std::shared_ptr<const cdb::StoreReader::Snapshot> m_pinned;
    std::map<int, std::unique_ptr<ReadSession>> m_sessions;
};

}  // namespace embedded

#endif
